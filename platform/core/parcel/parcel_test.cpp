// Encoding and decoding: round trips of every kind of field, refused input, exhausted memory, and octets that
// are not a record.
#include "platform/core/parcel/parcel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/parcel/test_records.h"

namespace {

using test_records::Branch;
using test_records::Everything;
using test_records::kEverything;
using test_records::kRow;
using test_records::Leaf;
using test_records::Octets;
using test_records::Row;

char* heap_text(const char* text) {
  return strdup(text);
}

template <typename T>
ParcelArray heap_array(std::uint64_t count) {
  return {count, std::calloc(count, sizeof(T))};
}

template <typename T>
T* elements(const ParcelArray& array) {
  return static_cast<T*>(array.elements);
}

class ParcelTest : public testing::Test {
 protected:
  void SetUp() override { fault_disarm_all(); }
  void TearDown() override {
    fault_disarm_all();
    EXPECT_EQ(parcel_free_indirections(&kEverything, &record_), kStatusOk);
    EXPECT_EQ(parcel_free_indirections(&kEverything, &copy_), kStatusOk);
  }

  // Everything set, with two branches of which the first has three leaves and the second none.
  void FillEverything() {
    record_ = Everything{heap_text("text"), -5, 4'000'000'000U, 200, 1, 7, {}, {}, {}, heap_text("")};
    record_.octets = {3, static_cast<std::uint8_t*>(std::calloc(3, 1))};
    std::memcpy(record_.octets.octets, "\x0a\x00\xff", 3);
    record_.pointer = heap_array<std::uint8_t>(4);
    std::memcpy(record_.pointer.elements, "\x01\x02\x03\x04", 4);
    record_.branches = heap_array<Branch>(2);
    auto* branches = elements<Branch>(record_.branches);
    branches[0] = Branch{1, heap_array<Leaf>(3), heap_text("import")};
    for (std::uint32_t i = 0; i < 3; ++i) {
      elements<Leaf>(branches[0].leaves)[i] = Leaf{i, i == 1 ? nullptr : heap_text("65000:1")};
    }
    branches[1] = Branch{2, {}, nullptr};
  }

  Octets Encode() const {
    Octets octets = test_records::encode(kEverything, &record_);
    EXPECT_FALSE(octets.empty());
    return octets;
  }

  Status EncodeStatus() {
    std::uint8_t* data = nullptr;
    std::size_t length = 0;
    const Status status = parcel_encode(&kEverything, &record_, &data, &length);
    std::free(data);
    return status;
  }

  Status Decode(const Octets& octets) {
    return parcel_decode(&kEverything, octets.data(), octets.size(), &copy_);
  }

  bool CopyIsClear() const {
    const Everything clear{};
    return std::memcmp(&copy_, &clear, sizeof clear) == 0;
  }

  Everything record_{};
  Everything copy_{};
};

TEST_F(ParcelTest, RoundTripKeepsEveryField) {
  FillEverything();
  ASSERT_EQ(Decode(Encode()), kStatusOk);
  EXPECT_STREQ(copy_.text, "text");
  EXPECT_EQ(copy_.number, -5);
  EXPECT_EQ(copy_.count, 4'000'000'000U);
  EXPECT_EQ(copy_.octet, 200);
  EXPECT_EQ(copy_.flag, 1U);
  EXPECT_EQ(copy_.enumeration, 7U);
  EXPECT_STREQ(copy_.last, "") << "not null";
  ASSERT_EQ(copy_.octets.length, 3U);
  EXPECT_EQ(std::memcmp(copy_.octets.octets, "\x0a\x00\xff", 3), 0);
  ASSERT_EQ(copy_.pointer.count, 4U);
  EXPECT_EQ(std::memcmp(copy_.pointer.elements, "\x01\x02\x03\x04", 4), 0);
  ASSERT_EQ(copy_.branches.count, 2U);
  const auto* branches = elements<Branch>(copy_.branches);
  EXPECT_EQ(branches[0].family, 1U);
  EXPECT_STREQ(branches[0].policy, "import");
  ASSERT_EQ(branches[0].leaves.count, 3U);
  EXPECT_EQ(elements<Leaf>(branches[0].leaves)[1].value, nullptr);
  EXPECT_EQ(elements<Leaf>(branches[0].leaves)[2].kind, 2U);
  EXPECT_STREQ(elements<Leaf>(branches[0].leaves)[2].value, "65000:1");
  EXPECT_EQ(branches[1].leaves.count, 0U);
  EXPECT_EQ(branches[1].policy, nullptr);
}

TEST_F(ParcelTest, ClearedRecordRoundTrips) {
  std::memset(&copy_, 0x55, sizeof copy_);  // decoding clears what was there
  ASSERT_EQ(Decode(Encode()), kStatusOk);
  EXPECT_TRUE(CopyIsClear());
}

TEST_F(ParcelTest, EncodedFormIsFixed) {
  const Row row{heap_text("ge0"), 1, -1, 0x80, 2, 3, nullptr};
  // The 32-bit FNV-1a hash of the annotated schema, computed here once more.
  std::uint32_t hash = 2166136261U;
  for (const char* c = kRow.annotated_schema; *c != '\0'; ++c) {
    hash = (hash ^ static_cast<unsigned char>(*c)) * 16777619U;
  }
  Octets expected = {1, 9, 0, 0, 0, 't', 'e', 's', 't', '_', 'r', 'o', 'w', 1, 0, 0, 0, 0, 0, 0, 0};
  for (unsigned shift = 0; shift < 32; shift += 8)
    expected.push_back(static_cast<std::uint8_t>(hash >> shift));
  const Octets fields = {4,    0,    0, 0, 'g', 'e', '0', 1, 0, 0, 0, 0xff, 0xff, 0xff,
                         0xff, 0x80, 2, 0, 0,   0,   3,   0, 0, 0, 0, 0,    0,    0};
  expected.insert(expected.end(), fields.begin(), fields.end());
  EXPECT_EQ(test_records::encode(kRow, &row), expected);
  std::free(row.name);
}

TEST_F(ParcelTest, TypeNameIsReadFromTheOctetsAlone) {
  const Octets octets = Encode();
  EXPECT_EQ(parcel_type_name(octets.data(), octets.size()), "test_everything");
  EXPECT_EQ(parcel_type_name(octets.data(), 10), "");
  EXPECT_EQ(parcel_type_name(nullptr, 0), "");
  EXPECT_EQ(parcel_type_name(nullptr, 10), "");
  const Octets other_format = {2, 2, 0, 0, 0, 'x', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(parcel_type_name(other_format.data(), other_format.size()), "");
}

TEST_F(ParcelTest, EveryTruncationIsRefusedAndLeavesTheRecordClear) {
  FillEverything();
  const Octets octets = Encode();
  for (std::size_t length = 0; length < octets.size(); ++length) {
    const Octets cut(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(length));
    ASSERT_EQ(Decode(cut), kStatusBadEncoding) << length;
    ASSERT_TRUE(CopyIsClear()) << length;
  }
}

TEST_F(ParcelTest, OctetsLeftOverAreRefused) {
  FillEverything();
  Octets octets = Encode();
  octets.push_back(0);
  EXPECT_EQ(Decode(octets), kStatusBadEncoding);
  EXPECT_TRUE(CopyIsClear());
}

TEST_F(ParcelTest, AnotherTypeVersionOrSchemaIsRefused) {
  ParcelDescription type = kEverything;
  type.type_name = "test_everythinG";
  ParcelDescription version = kEverything;
  version.version = 4;
  ParcelDescription reader = kEverything;
  reader.reader_version += 1;
  ParcelDescription schema = kEverything;
  schema.schema_hash += 1;
  const Octets octets = Encode();
  for (const ParcelDescription* other : {&type, &version, &reader, &schema})
    EXPECT_EQ(parcel_decode(other, octets.data(), octets.size(), &copy_), kStatusBadEncoding);
  EXPECT_EQ(Decode(octets), kStatusOk);
}

TEST_F(ParcelTest, CountBeyondTheOctetsLeftAllocatesNothing) {
  Octets octets = Encode();
  // A cleared record ends with the counts of branches and pointer and the last text, four octets each.
  for (const std::size_t from_end : {12U, 8U, 4U}) {
    Octets bad = octets;
    std::fill_n(bad.end() - static_cast<std::ptrdiff_t>(from_end), 4, std::uint8_t{0xff});
    const ScopedFault reached("calloc_tagged:parcel array", kStatusNoMemory, 1000);
    EXPECT_EQ(Decode(bad), kStatusBadEncoding) << from_end;
    EXPECT_EQ(fault_reached("calloc_tagged:parcel array"), 0U);
  }
}

TEST_F(ParcelTest, TextWithATerminatingOctetInsideIsRefused) {
  record_.last = heap_text("ab");
  Octets octets = Encode();
  octets[octets.size() - 1] = 0;
  EXPECT_EQ(Decode(octets), kStatusBadEncoding);
}

TEST_F(ParcelTest, OctetArrayBeyondItsBoundIsRefusedBothWays) {
  record_.pointer = heap_array<std::uint8_t>(5);
  EXPECT_EQ(EncodeStatus(), kStatusMessageTooLarge);
  record_.pointer.count = 4;
  Octets octets = Encode();
  // The count is before its four octets and the last text's length; a fifth octet makes the rest fit.
  octets[octets.size() - 12] = 5;
  octets.insert(octets.end() - 4, 0);
  EXPECT_EQ(Decode(octets), kStatusBadEncoding);
}

TEST_F(ParcelTest, CountWithoutElementsIsInvalid) {
  record_.branches.count = 1;
  EXPECT_EQ(EncodeStatus(), kStatusInvalid);
  record_.branches.count = 0;
  record_.octets.length = 1;
  EXPECT_EQ(EncodeStatus(), kStatusInvalid);
  record_.octets.length = 0;
}

TEST_F(ParcelTest, RecordBeyondTheSizeBoundIsTooLarge) {
  const std::size_t without_text = Encode().size();
  const std::string text(kParcelMaxSize - without_text + 1, 'x');
  record_.text = heap_text(text.c_str());
  EXPECT_EQ(EncodeStatus(), kStatusMessageTooLarge);
  record_.text[text.size() - 1] = '\0';
  EXPECT_EQ(Encode().size(), kParcelMaxSize);
  ASSERT_EQ(parcel_free_indirections(&kEverything, &record_), kStatusOk);
  record_.text = heap_text(std::string(600'000, 'x').c_str());  // fits alone, but not twice
  record_.last = heap_text(std::string(600'000, 'x').c_str());
  EXPECT_EQ(EncodeStatus(), kStatusMessageTooLarge);
  record_.octets.length = std::uint64_t{1} << 40U;
  EXPECT_EQ(EncodeStatus(), kStatusMessageTooLarge);
  record_.octets.length = 0;
}

TEST_F(ParcelTest, MissingArgumentsAreInvalid) {
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  EXPECT_EQ(parcel_encode(&kEverything, nullptr, &data, &length), kStatusInvalid);
  EXPECT_EQ(parcel_encode(nullptr, &record_, &data, &length), kStatusBadDescription);
  EXPECT_EQ(parcel_decode(&kEverything, nullptr, 0, &copy_), kStatusBadEncoding);
  EXPECT_EQ(parcel_decode(&kEverything, nullptr, 0, nullptr), kStatusInvalid);
  EXPECT_EQ(parcel_decode(nullptr, nullptr, 0, &copy_), kStatusBadDescription);
  EXPECT_EQ(parcel_free_indirections(&kEverything, nullptr), kStatusInvalid);
  EXPECT_EQ(parcel_free_indirections(nullptr, &record_), kStatusBadDescription);
}

TEST_F(ParcelTest, FreeingNullsWhatItReleased) {
  FillEverything();
  EXPECT_EQ(parcel_free_indirections(&kEverything, &record_), kStatusOk);
  EXPECT_EQ(record_.text, nullptr);
  EXPECT_EQ(record_.branches.count, 0U);
  EXPECT_EQ(record_.branches.elements, nullptr);
  EXPECT_EQ(record_.octets.length, 0U);
  EXPECT_EQ(record_.octets.octets, nullptr);
  EXPECT_EQ(record_.number, -5);
}

TEST_F(ParcelTest, FaultPointsFailTheirOperations) {
  FillEverything();
  const Octets octets = Encode();
  const ScopedFault encode("parcel_encode", kStatusIo);
  const ScopedFault decode("parcel_decode", kStatusIo);
  const ScopedFault release("parcel_free_indirections", kStatusIo);
  EXPECT_EQ(EncodeStatus(), kStatusIo);
  EXPECT_EQ(Decode(octets), kStatusIo);
  EXPECT_TRUE(CopyIsClear());
  EXPECT_EQ(parcel_free_indirections(&kEverything, &record_), kStatusIo);
  EXPECT_STREQ(record_.text, "text");
}

TEST_F(ParcelTest, EveryExhaustedAllocationOfDecodingLeavesNoMemory) {
  FillEverything();
  const Octets octets = Encode();
  unsigned failures = 0;
  for (const char* tag : {"parcel text", "parcel octets", "parcel array"}) {
    for (std::uint32_t nth = 1;; ++nth) {
      const ScopedFault fault(std::string("calloc_tagged:") + tag, kStatusNoMemory, nth);
      const Status status = Decode(octets);
      if (status == kStatusOk) break;
      ASSERT_EQ(status, kStatusNoMemory);
      ASSERT_TRUE(CopyIsClear());
      ++failures;
    }
    ASSERT_EQ(parcel_free_indirections(&kEverything, &copy_), kStatusOk);
  }
  EXPECT_EQ(failures, 9U);  // five texts, two octet strings, two arrays
}

TEST_F(ParcelTest, ExhaustedMemoryWhileTheBufferGrowsFailsTheEncoding) {
  record_.text = heap_text(std::string(5000, 'x').c_str());
  for (const std::uint32_t nth : {1U, 2U}) {
    const ScopedFault fault("calloc_tagged:parcel buffer", kStatusNoMemory, nth);
    EXPECT_EQ(EncodeStatus(), kStatusNoMemory) << nth;
  }
  EXPECT_EQ(EncodeStatus(), kStatusOk);
}

// Damaged and random octets: refused or decoded, never a crash, a leak or an allocation without measure (the
// sanitizer build watches).
TEST_F(ParcelTest, DamagedRecordsNeverDisturb) {
  FillEverything();
  const Octets octets = Encode();
  std::mt19937 random(1);
  for (int round = 0; round < 20'000; ++round) {
    Octets damaged = octets;
    for (auto hits = 1 + random() % 3; hits != 0; --hits) {
      damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
    }
    const Status status = Decode(damaged);
    ASSERT_TRUE(status == kStatusOk || status == kStatusBadEncoding);
    ASSERT_EQ(parcel_free_indirections(&kEverything, &copy_), kStatusOk);
    std::string json;
    const Status printed = parcel_to_json(damaged.data(), damaged.size(), &json);
    ASSERT_NE(printed, kStatusOk);  // the type is registered nowhere
  }
}

}  // namespace

// Batches, the registry file, and JSON printing by readers with and without the compiled-in description.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "platform/core/base/test_fault.h"
#include "platform/core/files/temporary_directory.h"
#include "platform/core/parcel/parcel.h"
#include "platform/core/parcel/registry.h"
#include "platform/core/parcel/test_records.h"

namespace {

namespace fs = std::filesystem;
using test_records::encode;
using test_records::kEverything;
using test_records::kRow;
using test_records::Octets;

class RegistryTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(setenv("MPLS_VPN_MIB_RUN_DIR", directory_.path().c_str(), 1), 0);
    parcel_registry_reset();
  }
  void TearDown() override {
    fault_disarm_all();
    parcel_registry_reset();
    unsetenv("MPLS_VPN_MIB_RUN_DIR");
  }

  static Status Register(const std::vector<const ParcelDescription*>& set, const char* name = "test.parcel") {
    ParcelBatch* batch = nullptr;
    if (Status s = parcel_batch_open(name, &batch)) return s;
    for (const ParcelDescription* one : set) {
      if (Status s = parcel_register(batch, one)) {
        parcel_batch_abort(batch);
        return s;
      }
    }
    return parcel_batch_close(batch);
  }

  std::string File() const { return directory_.path() + "/parcel.registry"; }
  std::string FileText() const {
    std::ifstream file(File());
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void WriteFile(const std::string& text) const { std::ofstream(File()) << text; }

  static std::string Json(const Octets& octets) {
    std::string json;
    EXPECT_EQ(parcel_to_json(octets.data(), octets.size(), &json), kStatusOk);
    return json;
  }
  static Status JsonStatus(const Octets& octets) {
    std::string json;
    return parcel_to_json(octets.data(), octets.size(), &json);
  }

  const TemporaryDirectory directory_;
};

TEST_F(RegistryTest, ClosedBatchIsKnownToTheProcessAndTheFile) {
  EXPECT_EQ(parcel_find("test_row"), nullptr);
  ASSERT_EQ(Register({&kEverything, &kRow}), kStatusOk);
  EXPECT_EQ(parcel_find("test_row"), &kRow);
  EXPECT_EQ(parcel_find("test_everything"), &kEverything);
  EXPECT_EQ(parcel_find(nullptr), nullptr);
  EXPECT_NE(FileText().find(std::string("test_row\t1\t0\ttest.parcel\t") + kRow.annotated_schema + "\n"),
            std::string::npos);
}

TEST_F(RegistryTest, AbortedBatchRegistersNothing) {
  ParcelBatch* batch = nullptr;
  ASSERT_EQ(parcel_batch_open("test.parcel", &batch), kStatusOk);
  ASSERT_EQ(parcel_register(batch, &kRow), kStatusOk);
  parcel_batch_abort(batch);
  EXPECT_EQ(parcel_find("test_row"), nullptr);
  EXPECT_FALSE(fs::exists(File()));
}

TEST_F(RegistryTest, SameDefinitionAgainIsNotAChange) {
  ASSERT_EQ(Register({&kRow}), kStatusOk);
  const auto written = fs::last_write_time(File());
  parcel_registry_reset();
  EXPECT_EQ(Register({&kRow}), kStatusOk);
  EXPECT_EQ(fs::last_write_time(File()), written);
}

TEST_F(RegistryTest, ChangedDefinitionIsReportedOnceAndReplaced) {
  ASSERT_EQ(Register({&kRow}), kStatusOk);
  ParcelDescription changed = kRow;
  changed.version = 2;
  EXPECT_EQ(Register({&changed, &kEverything}), kStatusDefinitionChanged);
  EXPECT_EQ(parcel_find("test_row"), &changed);
  EXPECT_EQ(parcel_find("test_everything"), &kEverything);
  EXPECT_EQ(Register({&changed}), kStatusOk);
  EXPECT_NE(FileText().find("test_row\t2\t0"), std::string::npos);
  EXPECT_EQ(FileText().find("test_row\t1\t0"), std::string::npos);
}

TEST_F(RegistryTest, EachPartOfADefinitionCountsAsAChange) {
  ParcelDescription reader = kRow;
  reader.reader_version = 9;
  ParcelDescription renamed = kRow;
  std::string schema = kRow.annotated_schema;
  schema.replace(schema.find("index"), 5, "INDEX");
  renamed.annotated_schema = schema.c_str();
  ASSERT_EQ(Register({&kRow}), kStatusOk);
  EXPECT_EQ(Register({&reader}), kStatusDefinitionChanged);
  EXPECT_EQ(Register({&renamed}), kStatusDefinitionChanged);
  EXPECT_EQ(Register({&kRow}), kStatusDefinitionChanged);
  EXPECT_EQ(Register({&kRow}), kStatusOk);
}

TEST_F(RegistryTest, DefinitionsOfOtherSetsStayInTheFile) {
  ASSERT_EQ(Register({&kRow}, "one.parcel"), kStatusOk);
  ASSERT_EQ(Register({&kEverything}, "other.parcel"), kStatusOk);
  EXPECT_NE(FileText().find("test_row\t"), std::string::npos);
  EXPECT_NE(FileText().find("test_everything\t"), std::string::npos);
}

TEST_F(RegistryTest, BadDescriptionAndDuplicateAreRefused) {
  ParcelDescription bad = kRow;
  bad.annotated_schema = "$1=a($2);";
  EXPECT_EQ(Register({&bad}), kStatusBadDescription);
  EXPECT_EQ(Register({&kRow, &kRow}), kStatusExists);
  EXPECT_EQ(Register({nullptr}), kStatusInvalid);
  EXPECT_EQ(parcel_register(nullptr, &kRow), kStatusInvalid);
  EXPECT_EQ(parcel_batch_close(nullptr), kStatusInvalid);
  EXPECT_EQ(parcel_find("test_row"), nullptr);
}

TEST_F(RegistryTest, SetNameMustBeAWordOfALine) {
  ParcelBatch* batch = nullptr;
  for (const char* name : {static_cast<const char*>(nullptr), "", "a\tb", "a\nb"}) {
    EXPECT_EQ(parcel_batch_open(name, &batch), kStatusInvalid);
  }
  EXPECT_EQ(parcel_batch_open("a", nullptr), kStatusInvalid);
}

TEST_F(RegistryTest, FaultPointsFailEachStepOfABatch) {
  for (const char* point : {"parcel_batch_open", "parcel_register", "parcel_batch_close"})
    ExpectFault(point, [] { return Register({&kRow}); });
  EXPECT_EQ(parcel_find("test_row"), nullptr);
  EXPECT_FALSE(fs::exists(File()));
}

TEST_F(RegistryTest, FileThatCannotBeReplacedFailsTheBatchAsAWhole) {
  fs::create_directory(File() + ".new");
  testing::internal::CaptureStderr();
  EXPECT_EQ(Register({&kRow}), static_cast<Status>(EEXIST));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "parcel: " + File() + " cannot be written: File exists\n");
  EXPECT_EQ(parcel_find("test_row"), nullptr);
}

TEST_F(RegistryTest, MissingRunDirectoryIsCreated) {
  fs::remove_all(directory_.path());
  EXPECT_EQ(Register({&kRow}), kStatusOk);
  EXPECT_TRUE(fs::exists(File()));
}

TEST_F(RegistryTest, DamagedLinesAreLeftOutAndTheRestIsRead) {
  WriteFile(
      "# heading\nno tabs\nname\tx\t0\tset\t$1={a}s;\nname\t1\t0\tset\tno "
      "schema\n\t1\t0\tset\t$1={a}s;\n\ngood\t1\t0\tset\t$1={a}s;\n");
  const parcel_detail::Definitions definitions = parcel_detail::read_registry_file();
  ASSERT_EQ(definitions.size(), 1U);
  EXPECT_EQ(definitions.at("good").schema, "$1={a}s;");
}

TEST_F(RegistryTest, HugeFileIsNotRead) {
  WriteFile("good\t1\t0\tset\t$1={a}s;\n" + std::string(5U << 20U, '#'));
  EXPECT_TRUE(parcel_detail::read_registry_file().empty());
}

struct Texts {
  std::string name;
  std::string vrf;
};

test_records::Row row_of(Texts* texts) {
  return {texts->name.data(), 7, -1, 0xc0, 2, 1, texts->vrf.data()};
}

TEST_F(RegistryTest, JsonPrintsARecordOfARegisteredType) {
  ASSERT_EQ(Register({&kRow}), kStatusOk);
  Texts texts{"ge0/0", "red"};
  const test_records::Row row = row_of(&texts);
  EXPECT_EQ(
      Json(encode(kRow, &row)),
      R"({"name":"ge0/0","index":7,"classification":-1,"protocol":192,"storage":2,"status":1,"vrf":"red"})");
}

TEST_F(RegistryTest, JsonNeedsOnlyTheRegistryFile) {
  ASSERT_EQ(Register({&kRow}), kStatusOk);
  const test_records::Row row{};
  const Octets octets = encode(kRow, &row);
  parcel_registry_reset();
  EXPECT_EQ(Json(octets),
            R"({"name":null,"index":0,"classification":0,"protocol":0,"storage":0,"status":0,"vrf":null})");
}

TEST_F(RegistryTest, JsonPrintsEveryFieldKind) {
  ASSERT_EQ(Register({&kEverything}), kStatusOk);
  std::string text = "t";
  std::uint8_t octets[] = {0x0a, 0xff};
  std::uint8_t pointer[] = {1, 255};
  test_records::Leaf leaves[] = {{1, text.data()}, {2, nullptr}};
  test_records::Branch branches[] = {{1, {2, leaves}, text.data()}, {2, {}, nullptr}};
  const test_records::Everything record = {text.data(), -1,          4294967295U,   255,          2,
                                           3,           {2, octets}, {2, branches}, {2, pointer}, nullptr};
  EXPECT_EQ(
      Json(encode(kEverything, &record)),
      R"({"text":"t","number":-1,"count":4294967295,"octet":255,"flag":true,"enumeration":3,"octets":"0aff",)"
      R"("branches":[{"family":1,"leaves":[{"kind":1,"value":"t"},{"kind":2,"value":null}],"policy":"t"},)"
      R"({"family":2,"leaves":[],"policy":null}],"pointer":[1,255],"last":null})");
}

TEST_F(RegistryTest, JsonTextsAreEscapedAndAlwaysUnicode) {
  ASSERT_EQ(Register({&kRow}), kStatusOk);
  Texts texts{"a\"b\\c\n\x7f \xc3\xa9 \xff\xe2\x82 \xc0\xaf \xed\xa0\x80 \xf0\x9f\x98\x80", ""};
  const test_records::Row row = row_of(&texts);
  const std::string bad = "\xef\xbf\xbd";
  EXPECT_NE(Json(encode(kRow, &row))
                .find("{\"name\":\"a\\\"b\\\\c\\u000a\\u007f \xc3\xa9 " + bad + bad + bad + " " + bad + bad +
                      " " + bad + bad + bad + " \xf0\x9f\x98\x80\""),
            std::string::npos);
}

TEST_F(RegistryTest, JsonOfAnUnknownTypeHasNoSuchRow) {
  const test_records::Row row{};
  EXPECT_EQ(JsonStatus(encode(kRow, &row)), kStatusNoSuchRow);
}

TEST_F(RegistryTest, JsonOfAnotherDefinitionIsABadEncoding) {
  ASSERT_EQ(Register({&kRow}), kStatusOk);
  ParcelDescription other = kRow;
  other.version = 3;
  const test_records::Row row{};
  const Octets octets = encode(other, &row);
  EXPECT_EQ(JsonStatus(octets), kStatusBadEncoding);
  parcel_registry_reset();
  EXPECT_EQ(JsonStatus(octets), kStatusBadEncoding);
}

TEST_F(RegistryTest, JsonOfOtherOctetsIsABadEncoding) {
  ASSERT_EQ(Register({&kEverything}), kStatusOk);
  const test_records::Everything record{};
  Octets octets = encode(kEverything, &record);
  std::string json = "untouched";
  EXPECT_EQ(parcel_to_json(nullptr, 0, &json), kStatusBadEncoding);
  EXPECT_EQ(parcel_to_json(octets.data(), octets.size(), nullptr), kStatusInvalid);
  for (std::size_t length = 0; length < octets.size(); ++length) {
    ASSERT_EQ(parcel_to_json(octets.data(), length, &json), kStatusBadEncoding) << length;
  }
  octets.push_back(0);
  EXPECT_EQ(parcel_to_json(octets.data(), octets.size(), &json), kStatusBadEncoding);
  EXPECT_EQ(json, "untouched");
}

// A schema of long names and one-octet elements: a small record whose JSON would be very large.
TEST_F(RegistryTest, JsonHasItsOwnLimit) {
  const std::string name(200, 'n');
  WriteFile("wide\t1\t0\tset\t$1={a}a($2);$2={" + name + "}C;\n");
  const std::string schema = "$1={a}a($2);$2={" + name + "}C;";
  std::uint32_t hash = 2166136261U;
  for (const char c : schema) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  Octets octets = {1, 5, 0, 0, 0, 'w', 'i', 'd', 'e', 1, 0, 0, 0, 0, 0, 0, 0};
  const auto put = [&octets](std::uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8)
      octets.push_back(static_cast<std::uint8_t>(value >> shift));
  };
  put(hash);
  put(500'000);
  octets.resize(octets.size() + 500'000);
  EXPECT_EQ(JsonStatus(octets), kStatusMessageTooLarge);
}

}  // namespace

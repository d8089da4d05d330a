// Values of several numbers.
#include "platform/store/tree/tuple.h"

#include <gtest/gtest.h>

#include "platform/core/base/fault.h"

namespace {

KvValue Tuple(std::vector<std::int64_t> numbers) {
  KvValue value;
  value.type = KvValueType::kTuple;
  value.tuple = std::move(numbers);
  return value;
}

TEST(Tuple, IsUnpackedInOrder) {
  const KvValue value = Tuple({100, 80});
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  ASSERT_EQ(tuple_unpack(&value, "%d%d", {&first, &second}), kStatusOk);
  EXPECT_EQ(first, 100U);
  EXPECT_EQ(second, 80U);
}

TEST(Tuple, NumbersHave32BitsSignedOrNot) {
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  const KvValue fits = Tuple({-1, 4294967295});
  ASSERT_EQ(tuple_unpack(&fits, "%d%d", {&first, &second}), kStatusOk);
  EXPECT_EQ(first, 4294967295U);
  EXPECT_EQ(second, 4294967295U);
  for (const std::int64_t number : {4294967296, -2147483649}) {
    const KvValue value = Tuple({1, number});
    EXPECT_EQ(tuple_unpack(&value, "%d%d", {&first, &second}), kStatusInvalid);
  }
  EXPECT_EQ(first, 4294967295U) << "nothing is placed by an unpacking that fails";
}

TEST(Tuple, FormatNumbersAndPlacesAreOfOneLength) {
  const KvValue value = Tuple({1, 2});
  std::uint32_t place = 7;
  EXPECT_EQ(tuple_unpack(&value, "%d", {&place}), kStatusInvalid);
  EXPECT_EQ(tuple_unpack(&value, "%d%d", {&place}), kStatusInvalid);
  EXPECT_EQ(tuple_unpack(&value, "%d", {&place, &place}), kStatusInvalid);
  EXPECT_EQ(place, 7U);
}

TEST(Tuple, OtherFormatsAndValuesAreInvalid) {
  KvValue value = Tuple({1});
  std::uint32_t place = 7;
  for (const char* format : {"", "%s", "%d ", "%d%", "d", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(tuple_unpack(&value, format, {&place}), kStatusInvalid);
  }
  EXPECT_EQ(tuple_unpack(nullptr, "%d", {&place}), kStatusInvalid);
  value.type = KvValueType::kNumber;
  EXPECT_EQ(tuple_unpack(&value, "%d", {&place}), kStatusInvalid);
}

TEST(Tuple, UnpackingHasItsFaultPoint) {
  const KvValue value = Tuple({1});
  std::uint32_t place = 0;
  const ScopedFault fault("tuple_unpack", kStatusIo);
  EXPECT_EQ(tuple_unpack(&value, "%d", {&place}), kStatusIo);
}

}  // namespace

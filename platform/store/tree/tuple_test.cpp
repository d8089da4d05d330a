// Values of several numbers.
#include "platform/store/tree/tuple.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"

namespace {

using testing::ElementsAre;

TEST(Tuple, WhatIsPackedIsUnpackedInOrder) {
  KvValue value;
  ASSERT_EQ(tuple_pack(&value, "%d%d", {100, 80}), kStatusOk);
  EXPECT_EQ(value.type, KvValueType::kTuple);
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  ASSERT_EQ(tuple_unpack(&value, "%d%d", {&first, &second}), kStatusOk);
  EXPECT_EQ(first, 100U);
  EXPECT_EQ(second, 80U);
}

TEST(Tuple, PackingReplacesWhatTheValueWas) {
  KvValue value;
  value.type = KvValueType::kText;
  value.text = "before";
  ASSERT_EQ(tuple_pack(&value, "%d", {1}), kStatusOk);
  EXPECT_THAT(value.tuple, ElementsAre(1));
  EXPECT_EQ(value.text, "");
}

TEST(Tuple, NumbersHave32BitsSignedOrNot) {
  KvValue value;
  ASSERT_EQ(tuple_pack(&value, "%d%d", {-1, 4294967295}), kStatusOk);
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  ASSERT_EQ(tuple_unpack(&value, "%d%d", {&first, &second}), kStatusOk);
  EXPECT_EQ(first, 4294967295U);
  EXPECT_EQ(second, 4294967295U);
  EXPECT_EQ(tuple_pack(&value, "%d", {4294967296}), kStatusInvalid);
  EXPECT_EQ(tuple_pack(&value, "%d", {-2147483649}), kStatusInvalid);
  value.tuple = {1, 4294967296};
  EXPECT_EQ(tuple_unpack(&value, "%d%d", {&first, &second}), kStatusInvalid);
  EXPECT_EQ(first, 4294967295U) << "nothing is placed by an unpacking that fails";
}

TEST(Tuple, FormatNumbersAndPlacesAreOfOneLength) {
  KvValue value;
  EXPECT_EQ(tuple_pack(&value, "%d%d", {1}), kStatusInvalid);
  EXPECT_EQ(tuple_pack(&value, "%d", {1, 2}), kStatusInvalid);
  EXPECT_EQ(value.type, KvValueType::kNone) << "nothing is changed by a packing that fails";
  ASSERT_EQ(tuple_pack(&value, "%d%d", {1, 2}), kStatusOk);
  std::uint32_t place = 7;
  EXPECT_EQ(tuple_unpack(&value, "%d", {&place}), kStatusInvalid);
  EXPECT_EQ(tuple_unpack(&value, "%d%d", {&place}), kStatusInvalid);
  EXPECT_EQ(tuple_unpack(&value, "%d", {&place, &place}), kStatusInvalid);
  EXPECT_EQ(place, 7U);
}

TEST(Tuple, OtherFormatsAndValuesAreInvalid) {
  KvValue value;
  for (const char* format : {"", "%s", "%d ", "%d%", "d"}) {
    EXPECT_EQ(tuple_pack(&value, format, {1}), kStatusInvalid) << format;
  }
  EXPECT_EQ(tuple_pack(&value, nullptr, {1}), kStatusInvalid);
  EXPECT_EQ(tuple_pack(nullptr, "%d", {1}), kStatusInvalid);
  std::uint32_t place = 7;
  EXPECT_EQ(tuple_unpack(nullptr, "%d", {&place}), kStatusInvalid);
  value.type = KvValueType::kNumber;
  EXPECT_EQ(tuple_unpack(&value, "%d", {&place}), kStatusInvalid);
}

TEST(Tuple, BothOperationsHaveTheirFaultPoints) {
  KvValue value;
  std::uint32_t place = 0;
  {
    const ScopedFault fault("tuple_pack", kStatusIo);
    EXPECT_EQ(tuple_pack(&value, "%d", {1}), kStatusIo);
  }
  ASSERT_EQ(tuple_pack(&value, "%d", {1}), kStatusOk);
  const ScopedFault fault("tuple_unpack", kStatusIo);
  EXPECT_EQ(tuple_unpack(&value, "%d", {&place}), kStatusIo);
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Numbers, AreDigitsAlone) {
  EXPECT_EQ(text::parse_number("0"), 0U);
  EXPECT_EQ(text::parse_number("007"), 7U);
  EXPECT_EQ(text::parse_number("4294967295"), 4294967295U);
  for (const char* digits : {"", " 1", "1 ", "+1", "-1", "1x", "0x10", "4294967296", "1.0"}) {
    EXPECT_EQ(text::parse_number(digits), std::nullopt) << digits;
  }
}

TEST(Numbers, AreBoundedByTheTypeAndTheMaximum) {
  EXPECT_EQ(text::parse_number("255", 255), 255U);
  EXPECT_EQ(text::parse_number("256", 255), std::nullopt);
  EXPECT_EQ(text::parse_number<std::uint8_t>("256"), std::nullopt);
  EXPECT_EQ(text::parse_number<std::int64_t>("-9223372036854775808"), INT64_MIN);
  EXPECT_EQ(text::parse_number<std::uint32_t>("ff", UINT32_MAX, 16), 255U);
}

TEST(Numbers, MayBeFractions) {
  EXPECT_EQ(text::parse_real("1.5"), 1.5);
  for (const char* digits : {"", "1.5s", " 1", "soon", "1e400"}) {
    EXPECT_EQ(text::parse_real(digits), std::nullopt) << digits;
  }
}

TEST(Words, AreSplitAtSeparators) {
  EXPECT_THAT(text::split("a/b//c", '/'), ElementsAre("a", "b", "", "c"));
  EXPECT_THAT(text::split("/a/", '/'), ElementsAre("", "a"));
  EXPECT_THAT(text::split("", '/'), IsEmpty());
}

TEST(Words, AreListedAsAlternatives) {
  EXPECT_EQ(text::alternatives({"a", "b", "c"}), "a, b or c");
  EXPECT_EQ(text::alternatives({"a", "b"}), "a or b");
  EXPECT_EQ(text::alternatives({"a"}), "a");
  EXPECT_EQ(text::alternatives({}), "");
}

}  // namespace

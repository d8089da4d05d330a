// Tests of what counts as a character, and as one that may be shown.
#include "platform/core/base/utf8.h"

#include <gtest/gtest.h>

namespace {

TEST(Utf8, WellFormedCharactersHaveALength) {
  EXPECT_EQ(utf8_length("a"), 1U);
  EXPECT_EQ(utf8_length("\xc3\xa9x"), 2U);
  EXPECT_EQ(utf8_length("\xe2\x82\xacx"), 3U);
  EXPECT_EQ(utf8_length("\xf0\x9f\x98\x80x"), 4U);
  EXPECT_EQ(utf8_length("\n"), 1U);
}

TEST(Utf8, OtherOctetsBeginNone) {
  EXPECT_EQ(utf8_length(""), 0U);
  EXPECT_EQ(utf8_length("\x80"), 0U);
  EXPECT_EQ(utf8_length("\xc3"), 0U) << "cut short";
  EXPECT_EQ(utf8_length("\xe2\x82"), 0U) << "cut short";
  EXPECT_EQ(utf8_length("\xe2\x82x"), 0U);
  EXPECT_EQ(utf8_length("\xc0\xaf"), 0U) << "overlong";
  EXPECT_EQ(utf8_length("\xed\xa0\x80"), 0U) << "a surrogate";
  EXPECT_EQ(utf8_length("\xf4\x90\x80\x80"), 0U) << "beyond U+10FFFF";
  EXPECT_EQ(utf8_length("\xff"), 0U);
}

TEST(Utf8, ControlCharactersAreNotPrintable) {
  EXPECT_EQ(utf8_printable_length(" "), 1U);
  EXPECT_EQ(utf8_printable_length("\xc2\xa0"), 2U);
  EXPECT_EQ(utf8_printable_length("\x1b["), 0U);
  EXPECT_EQ(utf8_printable_length("\x7f"), 0U);
  EXPECT_EQ(utf8_printable_length("\xc2\x9b"), 0U) << "U+009B begins a control sequence";
  EXPECT_EQ(utf8_printable_length("\x9b"), 0U);
  EXPECT_EQ(utf8_printable_length(""), 0U);
}

}  // namespace

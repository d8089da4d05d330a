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

TEST(Numbers, DurationsMayHaveAUnit) {
  EXPECT_EQ(text::parse_duration("2", 1), 2.0);
  EXPECT_EQ(text::parse_duration("250", 0.001), 0.25);
  EXPECT_EQ(text::parse_duration("500ms", 1), 0.5);
  EXPECT_EQ(text::parse_duration("2s", 0.001), 2.0);
  EXPECT_EQ(text::parse_duration("1.5m", 1), 90.0);
  EXPECT_EQ(text::parse_duration("1h", 1), 3600.0);
  EXPECT_EQ(text::parse_duration("1d", 1), 86400.0);
  for (const char* text :
       {"", "s", "ms", "2x", "2 s", "2S", "1h30m", "1e1", "1e3ms", "inf", "nan", "-1s", "+1s"})
    EXPECT_EQ(text::parse_duration(text, 1), std::nullopt) << text;
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

TEST(Words, CandidatesOfAnAbbreviationBeginWithIt) {
  const std::vector<std::string> words = {"route-targets", "routes", "vrf", "rip", "ripng"};
  EXPECT_THAT(text::candidates("route", words), ElementsAre("route-targets", "routes"));
  EXPECT_THAT(text::candidates("v", words), ElementsAre("vrf"));
  EXPECT_THAT(text::candidates("rip", words), ElementsAre("rip")) << "it is a word itself";
  EXPECT_THAT(text::candidates("vrfs", words), IsEmpty());
  EXPECT_THAT(text::candidates("", words), IsEmpty());
}

TEST(Words, ClosestIsTheWordThatIsMisspelled) {
  const std::vector<std::string> words = {"show", "get", "list", "datalist", "config", "vrf"};
  EXPECT_EQ(text::closest("shwo", words), "show");
  EXPECT_EQ(text::closest("vrfs", words), "vrf");
  EXPECT_EQ(text::closest("confg", words), "config");
  EXPECT_EQ(text::closest("lst", words), "list");
  EXPECT_EQ(text::closest("nonsense", words), "");
  EXPECT_EQ(text::closest("x", {"y"}), "");
  EXPECT_EQ(text::closest("", words), "");
  EXPECT_EQ(text::closest(std::string(100000, 'a'), words), "");
}

TEST(Words, MessagesEndWithOneHint) {
  EXPECT_EQ(text::hint("shwo", {"show", "get"}, "expected show or get"), "did you mean \"show\"?");
  EXPECT_EQ(text::hint("nonsense", {"show", "get"}, "expected show or get"), "expected show or get");
  EXPECT_EQ(text::continued("a question?", "more"), "a question? more");
  EXPECT_EQ(text::continued("a statement", "more"), "a statement; more");
  EXPECT_EQ(text::continued("a statement", ""), "a statement");
}

}  // namespace

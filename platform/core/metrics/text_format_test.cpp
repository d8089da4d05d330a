#include "platform/core/metrics/text_format.h"

#include <gtest/gtest.h>

#include <string>

namespace metrics {
namespace {

constexpr Family kRoutes{"routes", Type::kGauge, "Routes of a VRF."};

std::string Escaped(std::string_view value) {
  std::string text;
  append_escaped(&text, value);
  return text;
}

// The three escapes of the format's description.
TEST(TextFormat, QuotesBackslashesAndLineBreaksOfALabelAreEscaped) {
  EXPECT_EQ(Escaped("red"), "red");
  EXPECT_EQ(Escaped("a\"b"), "a\\\"b");
  EXPECT_EQ(Escaped("a\\b"), "a\\\\b");
  EXPECT_EQ(Escaped("a\nb"), "a\\nb");
  EXPECT_EQ(Escaped("\\\"\n"), "\\\\\\\"\\n");
  EXPECT_EQ(Escaped(""), "");
}

TEST(TextFormat, CharactersOfSeveralOctetsAreWrittenAsTheyAre) {
  EXPECT_EQ(Escaped("caf\xc3\xa9\xe2\x82\xac"), "caf\xc3\xa9\xe2\x82\xac");
}

// A server refuses a whole answer with one octet that is not UTF-8. Names that differ must stay different.
TEST(TextFormat, OctetsThatAreNotUtf8AreNumbers) {
  EXPECT_EQ(Escaped("caf\xe9"), "caf\\\\xe9");
  EXPECT_NE(Escaped("a\xfe"), Escaped("a\xff"));
}

TEST(TextFormat, FamilyHasItsHelpAndTypeAndThenItsSamples) {
  std::string text;
  Samples samples(kRoutes, &text);
  samples.add_header();
  samples.add({{"vrf", "red"}, {"afi", "ipv4"}}, 18446744073709551615U);
  samples.add({}, 0);
  EXPECT_EQ(text,
            "# HELP routes Routes of a VRF.\n# TYPE routes gauge\n"
            "routes{vrf=\"red\",afi=\"ipv4\"} 18446744073709551615\nroutes 0\n");
}

TEST(TextFormat, PartsOfAHistogramHaveSuffixes) {
  constexpr Family kDuration{"duration_seconds", Type::kHistogram, "Time."};
  std::string text;
  Samples samples(kDuration, &text);
  samples.add_header();
  samples.add_part("_bucket", {{"le", "0.5"}}, 2);
  samples.add_seconds("_sum", {}, 0.25);
  samples.add_part("_count", {}, 2);
  EXPECT_EQ(text,
            "# HELP duration_seconds Time.\n# TYPE duration_seconds histogram\n"
            "duration_seconds_bucket{le=\"0.5\"} 2\nduration_seconds_sum 0.25\nduration_seconds_count 2\n");
}

}  // namespace
}  // namespace metrics

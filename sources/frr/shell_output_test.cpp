// What the suite's shell printed, as an answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sources/frr/conversation.h"
#include "sources/frr/fake_suite_test_support.h"

namespace {

using frr::Answer;
using testing::HasSubstr;

std::string without(std::string text, const std::string& part) {
  const std::size_t at = text.find(part);
  EXPECT_NE(at, std::string::npos);
  return text.erase(at, part.size());
}

std::string with(std::string text, const std::string& before, const std::string& part) {
  const std::size_t at = text.find(before);
  EXPECT_NE(at, std::string::npos);
  return text.insert(at, part);
}

TEST(ShellOutput, ConfigurationIsBetweenItsHeadAndItsEnd) {
  const Answer answer = frr::read_shell_output(kWhole, "bgpd");
  EXPECT_TRUE(answer.whole) << answer.reason;
  EXPECT_EQ(answer.configuration, "!\nrouter bgp 65000 vrf red\nexit\n!\n");
}

TEST(ShellOutput, ConfigurationKeepsTheMemoryOfTheText) {
  std::string text = with(kWhole, "router bgp", std::string(100000, '!') + "\n");
  const char* const memory = text.data();
  EXPECT_EQ(frr::read_shell_output(std::move(text), "bgpd").configuration.data(), memory);
}

TEST(ShellOutput, ConfigurationMayBeEmpty) {
  const Answer answer =
      frr::read_shell_output("\nCurrent configuration:\nend\nvm# show daemons\n bgpd\nvm# ", "bgpd");
  EXPECT_TRUE(answer.whole) << answer.reason;
  EXPECT_EQ(answer.configuration, "");
}

TEST(ShellOutput, IncompleteAnswersAreRecognized) {
  const std::map<std::string, std::string> texts{
      {"without a configuration", without(kWhole, "Current configuration:")},
      {"empty", ""},
      {"without the end of the configuration", without(kWhole, "end\n")},
      {"of a program that is not connected", without(kWhole, " bgpd")},
      {"of one that is named in its configuration only",
       with(without(kWhole, " bgpd"), "exit", " description bgpd\n")}};
  for (const auto& [what, text] : texts) EXPECT_FALSE(frr::read_shell_output(text, "bgpd").whole) << what;
  for (const char* other : {"bgp", "ospfd"})
    EXPECT_FALSE(frr::read_shell_output(kWhole, other).whole) << other;
}

TEST(ShellOutput, LostOrReconnectedConnectionMakesItIncomplete) {
  for (const char* before : {"Building", "Current", "router", "exit", " zebra"}) {
    for (const char* warning : {"Warning: connecting to bgpd...success!\n",
                                "Warning: closing connection to bgpd because of an I/O error!\n"}) {
      EXPECT_FALSE(frr::read_shell_output(with(kWhole, before, warning), "bgpd").whole) << before << warning;
    }
  }
}

TEST(ShellOutput, DescriptionThatReadsLikeAWarningIsOne) {
  const std::string text =
      with(kWhole, "exit", " neighbor 10.0.0.1 description Warning: connecting to the CE\n");
  EXPECT_TRUE(frr::read_shell_output(text, "bgpd").whole);
}

constexpr char kToken[] = "0123456789abcdef0123456789abcdef";

std::string with_parts(const std::vector<std::string>& shown) {
  std::string text;
  for (std::size_t part = 0; part <= shown.size(); ++part) {
    const std::string mark = frr::part_mark(kToken, part);
    text += mark + "\n% Unknown command: " + mark + "\nvm# ";
    if (part < shown.size()) text += "show it json\n" + shown[part] + "\nvm# ";
  }
  return with(kWhole, "show daemons", text);
}

TEST(ShellOutput, FurtherCommandsHaveTheirParts) {
  const Answer answer = frr::read_shell_output(with_parts({"{\"a\": 1}", "{\n}"}), "bgpd", kToken, 2);
  ASSERT_TRUE(answer.whole) << answer.reason;
  EXPECT_THAT(answer.shown, testing::ElementsAre(HasSubstr("{\"a\": 1}"), HasSubstr("{\n}")));
  EXPECT_THAT(answer.shown[0], testing::Not(HasSubstr("{\n}")));
  EXPECT_EQ(answer.configuration, "!\nrouter bgp 65000 vrf red\nexit\n!\n");
}

TEST(ShellOutput, AnswerWithoutAPartIsIncomplete) {
  const std::string whole = with_parts({"{}", "{}"});
  EXPECT_TRUE(frr::read_shell_output(whole, "bgpd", kToken, 2).whole);
  EXPECT_FALSE(frr::read_shell_output(whole, "bgpd", kToken, 3).whole);
  EXPECT_FALSE(frr::read_shell_output(kWhole, "bgpd", kToken, 1).whole);
}

// A line of a command's answer starts with a blank, like the list of connected programs.
TEST(ShellOutput, PartDoesNotConnectTheProgram) {
  const std::string text = with_parts({"{\n bgpd \n}"});
  EXPECT_TRUE(frr::read_shell_output(text, "bgpd", kToken, 1).whole);
  EXPECT_FALSE(frr::read_shell_output(without(text, " zebra bgpd"), "bgpd", kToken, 1).whole);
}

}  // namespace

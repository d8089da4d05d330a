// mplsvpn's configuration commands against a served data store that stores its configuration, with the
// candidates in the test's directory.
#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "cli/output/json_list.h"
#include "cli/served_test_fixture.h"
#include "platform/config/vrf_config.h"
#include "platform/core/files/user_name.h"
#include "platform/store/configuration/configuration.h"

namespace cli {

class Configuration : public ServedCommandLine {
 protected:
  void SetUp() override {
    ServedCommandLine::SetUp();
    ASSERT_EQ(kvtree_keep_configuration(Directory()), kStatusOk);
    setenv("XDG_STATE_HOME", Directory().c_str(), 1);
  }
  void TearDown() override {
    unsetenv("XDG_STATE_HOME");
    ServedCommandLine::TearDown();
  }
  // "config" and the line's words, which must succeed; the output.
  std::string Done(const std::string& line) {
    EXPECT_EQ(AskLine(line), kExitOk) << line << ": " << Err();
    return Out();
  }
  // The same for what must fail; the error output.
  std::string Refused(const std::string& line, int exit_status = kExitFailed) {
    EXPECT_EQ(AskLine(line), exit_status) << line;
    EXPECT_EQ(Out(), "") << line;
    return Err();
  }
  Json DoneAsJson(const std::string& line) { return Json::parse(Done("--json " + line)); }
  // The end of the line of a commit of this user.
  static std::string ByMe() { return " by " + user_name(geteuid()) + "\n"; }
  // Another owner sets an item.
  static void Hold(std::string_view owner, const std::string& line) {
    const auto parsed = vrf_config::parse_words(std::get<vrf_config::Words>(vrf_config::split_words(line)));
    std::vector<KvConfigChange> changes;
    for (const KvConfigNode& node : std::get<std::vector<KvConfigNode>>(parsed)) {
      changes.push_back({node.path, node.value});
    }
    ASSERT_EQ(kvtree_config_commit(owner, changes, "held"), kStatusOk);
  }
  static void Withdraw(std::string_view owner, const std::string& line) {
    const auto parsed = vrf_config::parse_words(std::get<vrf_config::Words>(vrf_config::split_words(line)));
    const std::string& path = std::get<std::vector<KvConfigNode>>(parsed).front().path;
    ASSERT_EQ(kvtree_config_commit(owner, {{path, std::nullopt}}, "withdrawn"), kStatusOk);
  }
  std::string Write(const std::string& text) const {
    const std::string name = Directory() + "/red.conf";
    std::ofstream(name) << text;
    return name;
  }

 private:
  int AskLine(const std::string& line) {
    vrf_config::Words words = std::get<vrf_config::Words>(vrf_config::split_words(line));
    const auto place = words.begin() + (words.front() == "--json" ? 1 : 0);
    words.insert(place, "config");
    return Ask(words);
  }
};

}  // namespace cli

// platform.yaml: defaults, both sources, and every error with its position.
#include "daemon/settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/core/files/temporary_directory.h"

namespace daemon_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SettingsFile : public ::testing::Test {
 protected:
  void Write(const std::string& text) { std::ofstream(folder_.path() + "/platform.yaml") << text; }
  bool Read() { return read_settings(folder_.path(), &settings_, &error_); }
  Settings Accepted(const std::string& text) {
    Write(text);
    EXPECT_TRUE(Read()) << text << error_;
    return settings_;
  }
  std::string Refusal(const std::string& text) {
    Write(text);
    EXPECT_FALSE(Read()) << text;
    return error_.substr(error_.find("platform.yaml"));
  }

  const TemporaryDirectory folder_;
  Settings settings_;
  std::string error_;
};

TEST_F(SettingsFile, MissingFileMeansTheKernel) {
  ASSERT_TRUE(Read());
  EXPECT_EQ(settings_.source->word, "kernel");
}

TEST_F(SettingsFile, MissingFolderIsReported) {
  ASSERT_TRUE(Read());
  EXPECT_EQ(settings_.warning, "") << "a missing file alone is usual";
  const std::string folder = folder_.path() + "/none";
  ASSERT_TRUE(read_settings(folder, &settings_, &error_));
  EXPECT_EQ(settings_.source->word, "kernel");
  EXPECT_EQ(settings_.warning.substr(0, folder.size() + 2), folder + ": ");
  EXPECT_NE(settings_.warning.find("configuration directory does not exist"), std::string::npos);
}

TEST_F(SettingsFile, FolderThatCannotBeSearchedIsAFailure) {
  const std::string loop = folder_.path() + "/loop";
  std::filesystem::create_symlink(loop, loop);
  EXPECT_FALSE(read_settings(loop, &settings_, &error_));
  EXPECT_EQ(error_, loop + "/platform.yaml: Too many levels of symbolic links");
}

TEST_F(SettingsFile, FifoInThePlaceOfTheFileIsAFailure) {
  const std::string file = folder_.path() + "/platform.yaml";
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
  EXPECT_FALSE(Read());
  EXPECT_EQ(error_, file + ": it is a FIFO, not a regular file");
}

TEST_F(SettingsFile, RouterFileIsRelativeToTheSettings) {
  EXPECT_EQ(Accepted("source: file\nrouter_file: router.yaml\n").options["router_file"],
            folder_.path() + "/router.yaml");
  EXPECT_EQ(settings_.source->word, "file");
  EXPECT_EQ(Accepted("router_file: /tmp/x.yaml\nsource: file\n").options["router_file"], "/tmp/x.yaml");
}

TEST_F(SettingsFile, SourceIsTheKernelUnlessItIsNamed) {
  for (const char* text : {"", "router_file: /tmp/x.yaml\n"}) {
    EXPECT_EQ(Accepted(text).source->word, "kernel") << text;
  }
}

TEST_F(SettingsFile, MetricsAreOffUnlessTheyAreNamed) {
  EXPECT_FALSE(Accepted("").metrics.is_on);
  EXPECT_FALSE(Accepted("metrics: false\n").metrics.is_on);
  const daemon_metrics::MetricsSettings metrics = Accepted("metrics: true\n").metrics;
  EXPECT_TRUE(metrics.is_on);
  EXPECT_EQ(http::describe(metrics.place), "127.0.0.1:10166");
  EXPECT_TRUE(metrics.with_interfaces);
}

TEST_F(SettingsFile, MetricsHaveAPlace) {
  const daemon_metrics::MetricsSettings metrics =
      Accepted("metrics: {address: '::1', port: 9000, vrf: mgmt, interfaces: false}\n").metrics;
  EXPECT_TRUE(metrics.is_on);
  EXPECT_EQ(http::describe(metrics.place), "[::1]:9000 in VRF mgmt");
  EXPECT_FALSE(metrics.with_interfaces);
}

TEST_F(SettingsFile, WrongMetricsAreRefusedAtTheirPlace) {
  EXPECT_EQ(Refusal("metrics: {port: 65536}\n"),
            "platform.yaml:1:17: 'port' is a number from 1 to 65535, not '65536'");
  EXPECT_EQ(Refusal("metrics:\n  address: pe1\n"),
            "platform.yaml:2:12: 'address' is an IP address, not 'pe1'");
  EXPECT_EQ(Refusal("metrics: {vrf: a-name-too-long-for-a-device}\n"),
            "platform.yaml:1:16: 'vrf' is the name of a VRF device, 1 to 15 characters, not "
            "'a-name-too-long-for-a-device'");
  EXPECT_EQ(Refusal("metrics: {port: 1, port: 2}\n"),
            "platform.yaml:1:20: the key \"port\" is written twice");
  EXPECT_EQ(Refusal("metrics: {host: a}\n"),
            "platform.yaml:1:11: metrics has no key \"host\"; the keys are address, "
            "port, vrf, interfaces");
  EXPECT_EQ(Refusal("metrics: {[a]: b}\n"), "platform.yaml:1:11: a key of metrics is one word");
  EXPECT_EQ(Refusal("metrics: {port: [1]}\n"), "platform.yaml:1:17: 'port' takes one word");
  EXPECT_EQ(Refusal("metrics: {interfaces: some}\n"),
            "platform.yaml:1:23: 'interfaces' is true or false, not \"some\"");
  EXPECT_EQ(Refusal("metrics: 9000\n"), "platform.yaml:1:10: 'metrics' is true or false, not \"9000\"");
  EXPECT_EQ(Refusal("metrics: [9000]\n"),
            "platform.yaml:1:10: 'metrics' is 'true', 'false', or a map of 'address', 'port', 'vrf' and "
            "'interfaces'");
}

TEST_F(SettingsFile, RoutingSuiteIsFollowedWithTheKernelByDefault) {
  using Words = std::vector<std::string>;
  ASSERT_TRUE(Read());
  EXPECT_EQ(settings_.frr_shell, Words{"/usr/bin/vtysh"}) << "without a file";
  const auto shell = [this](const std::string& text) { return Accepted(text).frr_shell; };
  EXPECT_EQ(shell(""), Words{"/usr/bin/vtysh"});
  EXPECT_EQ(shell("source: kernel\n"), Words{"/usr/bin/vtysh"});
  EXPECT_EQ(shell("frr: auto\n"), Words{"/usr/bin/vtysh"});
  EXPECT_EQ(shell("frr: false\nsource: kernel\n"), Words{});
}

TEST_F(SettingsFile, RoutingSuiteIsFollowedBesideARouterFileOnRequest) {
  using Words = std::vector<std::string>;
  const std::string file = "source: file\nrouter_file: router.yaml\n";
  const auto shell = [&](const std::string& text) { return Accepted(text + file).frr_shell; };
  EXPECT_EQ(shell(""), Words{});
  EXPECT_EQ(shell("frr: auto\n"), Words{});
  EXPECT_EQ(shell("frr: true\n"), Words{"/usr/bin/vtysh"});
  EXPECT_EQ(shell("frr: /opt/vtysh -N pe1\n"), (Words{"/opt/vtysh", "-N", "pe1"}));
}

TEST_F(SettingsFile, RoutingSuiteIsWantedWhenItIsNamed) {
  const auto wanted = [this](const std::string& text) { return Accepted(text).frr_wanted; };
  EXPECT_TRUE(wanted("frr: true\n"));
  EXPECT_TRUE(wanted("frr: /usr/bin/vtysh\n"));
  EXPECT_FALSE(wanted("frr: auto\n"));
  EXPECT_FALSE(wanted("frr: false\n"));
  EXPECT_FALSE(wanted(""));
}

TEST_F(SettingsFile, ErrorsNameTheirPosition) {
  EXPECT_EQ(Refusal("source: kernel\nrouters: x\n"),
            "platform.yaml:2:1: the settings file has no key \"routers\"; the keys are source, frr, metrics, "
            "router_file");
  EXPECT_EQ(Refusal("sorce: file\n"),
            "platform.yaml:1:1: the settings file has no key \"sorce\"; did you mean \"source\"? the keys "
            "are source, frr, metrics, router_file");
  EXPECT_EQ(Refusal("[a]: file\n"), "platform.yaml:1:1: a key of the settings file is one word");
  EXPECT_EQ(Refusal("source: disk\n"), "platform.yaml:1:9: 'source' is 'kernel' or 'file', not 'disk'");
  EXPECT_EQ(Refusal("source: file\n"), "platform.yaml:1:1: 'source: file' needs a 'router_file'");
  EXPECT_EQ(Refusal("source: [a]\n"), "platform.yaml:1:9: 'source' takes one word");
  EXPECT_EQ(Refusal("source: kernel\nsource: file\n"),
            "platform.yaml:2:1: the key \"source\" is written twice");
  EXPECT_EQ(Refusal("router_file: [a]\n"), "platform.yaml:1:14: 'router_file' takes one word");
  EXPECT_EQ(Refusal("- a\n"),
            "platform.yaml:1:1: the settings file is written as keys with values; the keys are source, frr, "
            "metrics, router_file");
  EXPECT_EQ(Refusal("a: b: c\n").substr(0, 18), "platform.yaml:1:5:");
  EXPECT_EQ(Refusal("kernel\n"),
            "platform.yaml:1:1: the settings file is written as keys with values; the keys are source, frr, "
            "metrics, router_file");
  EXPECT_EQ(Refusal("frr: vtysh\n"),
            "platform.yaml:1:6: 'frr' is 'auto', 'true', 'false' or the path of a shell, not 'vtysh'");
  EXPECT_EQ(Refusal("frr: [a]\n"), "platform.yaml:1:6: 'frr' takes one word");
}

// The reason between them is the YAML library's.
TEST_F(SettingsFile, TabInThePlaceOfBlanksIsNamedWithItsRemedy) {
  const std::string reason = Refusal("source: kernel\n\t\nfrr: auto\n");
  EXPECT_TRUE(reason.starts_with("platform.yaml:2:1: ")) << reason;
  EXPECT_TRUE(reason.ends_with("; write blanks instead of the tab")) << reason;
}

// platform.yaml has one key for each option, whichever source it belongs to.
TEST(SourceKinds, HaveDistinctOptions) {
  for (const SourceKind& kind : source_kinds()) {
    for (const SourceOption& option : kind.options) EXPECT_EQ(find_source_option(option.key), &option);
  }
}

TEST_F(SettingsFile, RejectedFileLeavesTheSettingsUnchanged) {
  settings_.options["router_file"] = "router.yaml";
  Write("source: disk\n");
  EXPECT_FALSE(Read());
  EXPECT_EQ(settings_.options["router_file"], "router.yaml");
}

TEST_F(SettingsFile, ChangedSettingsAreNamed) {
  const auto changed = [this](const std::string& former, const std::string& now) {
    const Settings before = Accepted(former);
    return changed_settings(before, Accepted(now));
  };
  EXPECT_THAT(changed("", "source: kernel\nfrr: auto\nmetrics: false\n"), IsEmpty()) << "the defaults";
  EXPECT_THAT(changed("", "source: file\nrouter_file: a\n"), ElementsAre("source", "router_file"));
  EXPECT_THAT(changed("source: file\nrouter_file: a\n", ""), ElementsAre("source", "router_file"));
  EXPECT_THAT(changed("router_file: a\n", "router_file: b\n"), ElementsAre("router_file"));
  EXPECT_THAT(changed("", "frr: true\n"), ElementsAre("frr"));
  EXPECT_THAT(changed("frr: true\n", "frr: /usr/bin/vtysh\n"), IsEmpty()) << "the same shell";
  EXPECT_THAT(changed("metrics: true\n", "metrics: {port: 9000}\n"), ElementsAre("metrics"));
}

}  // namespace
}  // namespace daemon_host

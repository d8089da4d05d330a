// "debug", against flags that are served over their socket.
#include "platform/core/debug/debug.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <thread>

#include "cli/command_line_test_fixture.h"
#include "cli/output/json_list.h"
#include "platform/core/base/clock.h"
#include "platform/core/evm/evm.h"

namespace cli {
namespace {

using ::testing::HasSubstr;

constexpr char kNameSpace[] = "/debug/mpls_vpn/";

class DebugCommand : public CommandLine {
 protected:
  void SetUp() override {
    unsetenv("MPLS_VPN_MIB_DEBUG");
    manager_ = event_manager_create("/dev/mpls/vpn/debug", 0);
    ASSERT_NE(manager_, nullptr);
    ASSERT_EQ(debug_init_event(&flags_[0], flags_.data(), 0, 7, "prov", 1), kStatusOk);
    ASSERT_EQ(debug_init_event(&flags_[1], flags_.data(), 1, 7, "vmap", 1), kStatusOk);
    ASSERT_EQ(debug_register(kNameSpace, flags_.data(), 2, manager_), kStatusOk);
  }
  void TearDown() override {
    EXPECT_EQ(debug_cleanup(kNameSpace), kStatusOk);
    event_manager_destroy(manager_);
  }

  // mplsvpn on a thread of its own while this one serves; with `print`, "prov" prints this all the time while
  // on.
  int Ask(const std::vector<std::string>& words, const char* print = nullptr) {
    std::atomic<bool> done = false;
    int exit_status = -1;
    std::thread command([&] {
      exit_status = Run(words);
      done = true;
    });
    while (!done) {
      event_run_pending(manager_, kNanosecondsPerMillisecond);
      if (print != nullptr && debug_enabled(flags_[0])) debug_printf(flags_[0], "%s", print);
    }
    command.join();
    event_run_pending(manager_);
    return exit_status;
  }

  std::array<DebugFlag, 2> flags_{};
  EventManager* manager_ = nullptr;
};

TEST_F(DebugCommand, AreasAreListed) {
  flags_[1].enabled = 1;
  EXPECT_EQ(Ask({"debug"}), kExitOk) << Err();
  EXPECT_EQ(Out(),
            "AREA  STATE  NAME SPACE\n"
            "prov  off    /debug/mpls_vpn/\n"
            "vmap  on     /debug/mpls_vpn/\n");
  const std::string listed = Out();
  EXPECT_EQ(Ask({"debug", "list"}), kExitOk);
  EXPECT_EQ(Out(), listed);
}

TEST_F(DebugCommand, ListAsJsonHasStableKeys) {
  EXPECT_EQ(Ask({"--json", "debug", "list"}), kExitOk) << Err();
  EXPECT_EQ(Json::parse(Out())[0], (Json{{"area", "prov"}, {"on", false}, {"nameSpace", kNameSpace}}));
}

TEST_F(DebugCommand, AreaIsSwitched) {
  EXPECT_EQ(Ask({"debug", "vmap", "on"}), kExitOk) << Err();
  EXPECT_EQ(Out(), "vmap is on\n");
  EXPECT_FALSE(debug_enabled(flags_[0]));
  EXPECT_TRUE(debug_enabled(flags_[1]));
  EXPECT_EQ(Ask({"--json", "debug", "vmap", "off"}), kExitOk);
  EXPECT_EQ(Json::parse(Out()), (Json{{"area", "vmap"}, {"on", false}}));
  EXPECT_FALSE(debug_enabled(flags_[1]));
}

TEST_F(DebugCommand, AllAreasAreSwitchedTogether) {
  EXPECT_EQ(Ask({"debug", "all", "on"}), kExitOk) << Err();
  EXPECT_TRUE(debug_enabled(flags_[0]));
  EXPECT_TRUE(debug_enabled(flags_[1]));
}

TEST_F(DebugCommand, UnknownAreaIsNamed) {
  EXPECT_EQ(Ask({"debug", "nothing", "on"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: unknown debug area \"nothing\"; expected all, prov or vmap\n");
  EXPECT_EQ(Ask({"debug", "vamp", "on"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: unknown debug area \"vamp\"; did you mean \"vmap\"?\n");
}

TEST_F(DebugCommand, AreaMayBeAbbreviated) {
  EXPECT_EQ(Ask({"debug", "vm", "on"}), kExitOk) << Err();
  EXPECT_EQ(Out(), "vmap is on\n");
  EXPECT_TRUE(debug_enabled(flags_[1]));
}

TEST_F(DebugCommand, PrintsAreWatchedAfterSwitching) {
  EXPECT_EQ(Ask({"debug", "prov", "on", "--watch", "--count", "2"}, "Entering"), kExitOk) << Err();
  EXPECT_EQ(Out(), "prov is on\nprov: Entering\nprov: Entering\n");
}

TEST_F(DebugCommand, WatchedPrintsAsJsonAreOneObjectALine) {
  flags_[0].enabled = 1;
  EXPECT_EQ(Ask({"--json", "debug", "watch", "--count", "1"}, "Entering"), kExitOk) << Err();
  EXPECT_EQ(Out(), "{\"area\":\"prov\",\"text\":\"Entering\",\"dropped\":0}\n");
}

TEST_F(DebugCommand, WatchingEndsWithItsTime) {
  EXPECT_EQ(Ask({"debug", "watch", "--seconds", "0.05"}), kExitOk) << Err();
  EXPECT_EQ(Out(), "");
}

TEST_F(DebugCommand, DaemonThatStopsEndsTheWatch) {
  std::atomic<bool> done = false;
  int exit_status = -1;
  std::thread command([&] {
    exit_status = Run({"debug", "prov", "on", "--watch"});
    done = true;
  });
  while (!debug_enabled(flags_[0])) event_run_pending(manager_, kNanosecondsPerMillisecond);
  event_run_pending(manager_, 10 * kNanosecondsPerMillisecond);
  TearDown();
  SetUp();
  command.join();
  EXPECT_EQ(exit_status, kExitNoDaemon);
  EXPECT_THAT(Err(), HasSubstr("mpls_vpn_mib closed the connection"));
}

}  // namespace
}  // namespace cli

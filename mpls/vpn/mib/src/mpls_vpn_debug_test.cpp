// The debug areas: registration, names, and prints that follow their flag.
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"

namespace {

class DebugFlags : public testing::Test {
 protected:
  void SetUp() override {
    unsetenv("MPLS_VPN_MIB_DEBUG");
    manager_ = event_manager_create("/dev/mpls/vpn/debug", 0x70000004);
    ASSERT_NE(manager_, nullptr);
    debug_capture(&prints_);
  }
  void TearDown() override {
    debug_capture(nullptr);
    fault_disarm_all();
    EXPECT_EQ(mpls_vpn_debug_cleanup(), kStatusOk);
    event_manager_destroy(manager_);
    for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(0);
    unsetenv("MPLS_VPN_MIB_DEBUG");
  }
  TestRunDirectory directory_;
  EventManager* manager_ = nullptr;
  std::string prints_;
};

TEST_F(DebugFlags, EachAreaHasItsCommandName) {
  ASSERT_EQ(mpls_vpn_debug_init(manager_), kStatusOk);
  const char* const names[] = {"start",  "prov",       "vtab",   "rib",   "dbase",
                               "cfgmgr", "checkpoint", "errors", "traps", "vmap"};
  for (std::uint32_t i = 0; i < kMplsVpnDebugAreas; ++i) {
    EXPECT_STREQ(mpls_vpn_debug_flags[i].command_name, names[i]);
    EXPECT_EQ(mpls_vpn_debug_flags[i].index, i);
    EXPECT_EQ(mpls_vpn_debug_flags[i].kind, 7U);
    EXPECT_EQ(mpls_vpn_debug_flags[i].value, 1U);
    EXPECT_FALSE(debug_enabled(mpls_vpn_debug_flags[i])) << names[i];
  }
}

TEST_F(DebugFlags, AreasAreSwitchedByTheirCommandNames) {
  ASSERT_EQ(setenv("MPLS_VPN_MIB_DEBUG", "checkpoint,errors", 1), 0);
  ASSERT_EQ(mpls_vpn_debug_init(manager_), kStatusOk);
  EXPECT_TRUE(debug_enabled(mpls_vpn_debug_flags[CHKPT]));
  EXPECT_TRUE(debug_enabled(mpls_vpn_debug_flags[ERR]));
  EXPECT_FALSE(debug_enabled(mpls_vpn_debug_flags[START]));
}

TEST_F(DebugFlags, FirstFlagThatFailsEndsTheRegistration) {
  const ScopedFault fault("debug_init_event", kStatusIo, 3);
  EXPECT_EQ(mpls_vpn_debug_init(manager_), kStatusIo);
  EXPECT_EQ(fault_reached("debug_init_event"), 3U);
  // Nothing was registered under the name space.
  EXPECT_EQ(debug_cleanup("/debug/mpls_vpn/"), kStatusNoSuchRow);
}

TEST_F(DebugFlags, FailedRegistrationIsReturned) {
  const ScopedFault fault("debug_register", kStatusNoMemory);
  EXPECT_EQ(mpls_vpn_debug_init(manager_), kStatusNoMemory);
}

TEST_F(DebugFlags, CleanupRemovesTheNameSpace) {
  ASSERT_EQ(mpls_vpn_debug_init(manager_), kStatusOk);
  EXPECT_EQ(mpls_vpn_debug_cleanup(), kStatusOk);
  EXPECT_EQ(debug_cleanup("/debug/mpls_vpn/"), kStatusNoSuchRow);
  EXPECT_EQ(mpls_vpn_debug_cleanup(), kStatusOk);
}

TEST_F(DebugFlags, PrintAppearsOnlyWhileItsAreaIsOn) {
  mpls_vpn_debug(DBASE, "first");
  mpls_vpn_debug_flags[DBASE].enabled.store(1);
  mpls_vpn_debug(DBASE, "second %d", 2);
  mpls_vpn_debug(VMAP, "third");
  EXPECT_EQ(prints_, "second 2\n");
}

TEST_F(DebugFlags, ArgumentsAreNotEvaluatedWhileTheAreaIsOff) {
  int evaluated = 0;
  mpls_vpn_debug(DBASE, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 0);
}

TEST_F(DebugFlags, ConversionsFlagIsInNoNameSpace) {
  ASSERT_EQ(setenv("MPLS_VPN_MIB_DEBUG", "all", 1), 0);
  ASSERT_EQ(mpls_vpn_debug_init(manager_), kStatusOk);
  EXPECT_TRUE(debug_enabled(mpls_vpn_debug_flags[VMAP]));
  EXPECT_FALSE(debug_enabled(l3vpnmib_debug_flags));
}

using DebugFlagsDeathTest = DebugFlags;

TEST_F(DebugFlagsDeathTest, RegistrationWithoutAnEventManagerAborts) {
  EXPECT_DEATH((void)mpls_vpn_debug_init(nullptr),
               "mpls/vpn/mib/src/mpls_vpn_debug: [0-9]+ evm != NULL -- assertion failed");
}

}  // namespace

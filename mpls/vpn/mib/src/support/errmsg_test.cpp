// The records and texts of the error messages.
#include "mpls/vpn/mib/src/support/errmsg.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class ErrorMessages : public testing::Test {
 protected:
  void SetUp() override { errmsg_capture(&lines_); }
  void TearDown() override { errmsg_capture(nullptr); }
  std::string lines_;
};

TEST_F(ErrorMessages, InitNamesWhatFailedAndWhy) {
  mpls_vpn_errmsg_init("Debug initialization failed exiting...", "Input/output error");
  EXPECT_EQ(lines_,
            "%MPLS_VPN_MIB-OS-3-ERR_INIT : Debug initialization failed exiting... : Input/output error\n");
}

TEST_F(ErrorMessages, TextsAreAsTheyHaveAlwaysBeen) {
  errmsg_post(&ERR_TRACE_INIT);
  errmsg_post(&ERR_DLL_SYMBOL_ERROR, "route_next", "ipv4.dll");
  errmsg_post(&ERR_DLL_LOAD, "ipv4.dll");
  EXPECT_EQ(lines_,
            "%MPLS_VPN_MIB-OS-3-ERR_TRACE_INIT : mpls vpn mib event tracing subsytem initialization failed\n"
            "%MPLS_VPN_MIB-OS-3-ERR_DLL_SYMBOL_ERROR : Cannot find symbol route_next in DLL ipv4.dll\n"
            "%MPLS_VPN_MIB-OS-3-ERR_DLL_LOAD : Cannot load DLL: ipv4.dll \n");
}

TEST_F(ErrorMessages, NumbersCountFromTheModuleLoadMessage) {
  EXPECT_EQ(ERR_DLL_LOAD.number, 0U);
  EXPECT_EQ(ERR_DLL_SYMBOL_ERROR.number, 1U);
  EXPECT_EQ(ERR_INIT.number, 2U);
  EXPECT_EQ(ERR_TRACE_INIT.number, 3U);
}

}  // namespace

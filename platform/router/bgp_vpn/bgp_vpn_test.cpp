// Route distinguishers, their change callback and the AS number format.
#include "platform/router/bgp_vpn/bgp_vpn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "platform/router/bgp_vpn/rd_test_support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

class BgpVpn : public RdTest {};

TEST_F(BgpVpn, RdOfAVrfIsItsText) {
  AddVrf("red", "65000:100");
  EXPECT_EQ(Rd("red"), "65000:100");
}

TEST_F(BgpVpn, VrfWithoutRdAndUnknownVrfAreNoSuchRow) {
  AddVrf("red", "");
  EXPECT_EQ(Rd("red"), err_text(kStatusNoSuchRow));
  EXPECT_EQ(Rd("blue"), err_text(kStatusNoSuchRow));
}

TEST_F(BgpVpn, RdThatDoesNotFitIsInvalid) {
  AddVrf("red", "65000:100");
  std::array<char, 16> text{"before"};
  EXPECT_EQ(bgp_vpn_rd_get("red", text.data(), 9), kStatusInvalid);
  EXPECT_STREQ(text.data(), "before");
  EXPECT_EQ(bgp_vpn_rd_get("red", text.data(), 10), kStatusOk);
  EXPECT_STREQ(text.data(), "65000:100");
}

TEST_F(BgpVpn, ChangesAreReportedOnTheLoop) {
  AddVrf("red", "65000:1");
  Register();
  ChangeRd("red", "65000:2");
  EXPECT_THAT(reported(), ElementsAre()) << "before the loop ran";
  ChangeRd("red", "");
  Run();
  EXPECT_THAT(reported(), ElementsAre("set red 65000:2", "deletion red -"));
}

TEST_F(BgpVpn, ExistingRdsAreReportedBeforeTheRegistrationReturns) {
  AddVrf("red", "65000:1");
  AddVrf("none", "");
  AddVrf("blue", "4200000000:1");
  SetFormat("asdot");
  FollowFormat();
  ASSERT_EQ(bgp_vpn_rd_register_cb(manager_.get(), &Note), kStatusOk);
  EXPECT_THAT(reported(), UnorderedElementsAre("set red 65000:1", "set blue 64086.59904:1"));
  EXPECT_EQ(bgp_vpn_rd_register_cb(manager_.get(), &Note), kStatusExists);
}

TEST_F(BgpVpn, RdOfACreatedVrfIsReportedOnTheLoop) {
  Register();
  AddVrf("red", "65000:1");
  AddVrf("none", "");
  EXPECT_THAT(reported(), ElementsAre()) << "before the loop ran";
  Run();
  EXPECT_THAT(reported(), ElementsAre("set red 65000:1"));
}

TEST_F(BgpVpn, EndedRegistrationDropsPendingReports) {
  AddVrf("red", "65000:1");
  Register();
  ChangeRd("red", "65000:2");
  bgp_vpn_rd_unregister_cb();
  Register();
  Run();
  EXPECT_THAT(reported(), ElementsAre());
}

TEST_F(BgpVpn, ChangesAreReportedAfterAllThatWasPending) {
  Register();
  FillFeed();
  AddVrf("red", "65000:1");
  event_post(manager_.get(), [] { EXPECT_THAT(reported(), ElementsAre()) << "after the first batch"; });
  Run();
  EXPECT_THAT(reported(), ElementsAre("set red 65000:1"));
}

TEST_F(BgpVpn, OtherChangesAreNotReported) {
  AddVrf("red", "65000:1");
  Register();
  router::ChangeVrf(&router_, "red", &router::Vrf::description, "other");
  Run();
  EXPECT_THAT(reported(), ElementsAre());
}

TEST_F(BgpVpn, WithoutAModelNothingIsAvailable) {
  bgp_vpn_attach(nullptr);
  EXPECT_EQ(Rd("red"), err_text(kStatusUnavailable));
}

TEST_F(BgpVpn, NullArgumentsAreInvalid) {
  std::array<char, 8> text{};
  EXPECT_EQ(bgp_vpn_rd_get(nullptr, text.data(), text.size()), kStatusInvalid);
  EXPECT_EQ(bgp_vpn_rd_get("red", nullptr, 8), kStatusInvalid);
  EXPECT_EQ(bgp_vpn_rd_register_cb(nullptr, &Note), kStatusInvalid);
  EXPECT_EQ(bgp_vpn_rd_register_cb(manager_.get(), nullptr), kStatusInvalid);
  EXPECT_EQ(bgp_util_asn_format_init_notify(nullptr), kStatusInvalid);
}

TEST_F(BgpVpn, LookUpHasItsFaultPoint) {
  AddVrf("red", "65000:1");
  fault_arm("bgp_vpn_rd_get", kStatusIo);
  EXPECT_EQ(Rd("red"), err_text(kStatusIo));
}

TEST(RdText, AsNumbersAreWrittenInTheFormat) {
  EXPECT_EQ(bgp_util_format_rd("4200000000:30", BgpAsnFormat::kAsplain), "4200000000:30");
  EXPECT_EQ(bgp_util_format_rd("4200000000:30", BgpAsnFormat::kAsdot), "64086.59904:30");
  EXPECT_EQ(bgp_util_format_rd("64086.59904:30", BgpAsnFormat::kAsplain), "4200000000:30");
  EXPECT_EQ(bgp_util_format_rd("65535:1", BgpAsnFormat::kAsdot), "65535:1");
  EXPECT_EQ(bgp_util_format_rd("65536:1", BgpAsnFormat::kAsdot), "1.0:1");
  EXPECT_EQ(bgp_util_format_rd("4200000000:30", BgpAsnFormat::kAsdotPlus), "64086.59904:30");
}

TEST(RdText, SmallAsNumbersKeepTheTextOfTheirType) {
  for (const BgpAsnFormat format : {BgpAsnFormat::kAsplain, BgpAsnFormat::kAsdot, BgpAsnFormat::kAsdotPlus}) {
    EXPECT_EQ(bgp_util_format_rd("65000:1", format), "65000:1");
    EXPECT_EQ(bgp_util_format_rd("0.65000:1", format), "0.65000:1");
    EXPECT_EQ(bgp_util_format_rd("0.65535:1", format), "0.65535:1");
  }
}

TEST(RdText, AddressesAndOtherTextsAreUnchanged) {
  for (const char* text :
       {"10.0.0.1:5", "", "red", ":1", "4294967296:1", "70000:70000", "1.65536:1", "1.:1", ".1:1", "-1:1"}) {
    EXPECT_EQ(bgp_util_format_rd(text, BgpAsnFormat::kAsdotPlus), text);
  }
}

}  // namespace

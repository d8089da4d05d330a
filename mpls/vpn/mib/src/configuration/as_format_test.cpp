// Changes of the AS number format: the stored texts follow them.
#include "mpls/vpn/mib/src/configuration/vrf_handlers_test_support.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/store/configuration/configuration.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using vrf_config::Direction;
using vrf_config::Family;

// In the order of start-up: the format before the route targets.
class AsNumberFormat : public VrfConfiguration {
 protected:
  AsNumberFormat() { registers_at_once_ = false; }
  void SetUp() override {
    VrfConfiguration::SetUp();
    FollowFormat();
    Register();
  }
  void Reconnect() override {
    mpls_vpn_mib_prov_end();
    FollowFormat();
    EXPECT_EQ(mpls_vpn_mib_prov_init(manager_), kStatusOk);
  }
  void FollowFormat() { ASSERT_EQ(bgp_util_asn_format_init_notify(manager_), kStatusOk); }
  void Commit(const std::vector<KvConfigChange>& changes) {
    ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, changes, ""), kStatusOk);
    Run();
  }
  void SetFormat(std::string_view format) {
    const KvConfigNode node = vrf_config::as_format(format);
    Commit({{node.path, node.value}});
  }
  void DeleteFormat() { Commit({{vrf_config::as_format({}).path, std::nullopt}}); }
  static KvConfigNode Target(const std::string& vrf, const std::string& text) {
    return vrf_config::route_target(vrf, Family::kIpv4, Direction::kImport,
                                    vrf_config::parse_target(text).value());
  }
  void SetTargets(const std::string& vrf, const std::vector<std::string>& texts) {
    std::vector<KvConfigChange> changes;
    for (const std::string& text : texts) {
      const KvConfigNode node = Target(vrf, text);
      changes.push_back({node.path, node.value});
    }
    Commit(changes);
  }
  void SetRd(const std::string& text) {
    const KvConfigNode node =
        vrf_config::route_distinguisher("red", Family::kIpv4, vrf_config::parse_target(text).value());
    Commit({{node.path, node.value}});
  }
  // The route target's row in the MIB.
  static std::string Row(const std::string& vrf, unsigned number) {
    Reply reply;
    const std::string path = "/oper/mpls_vpn/gl/rt/" + vrf + "/" + std::to_string(number) + "/1";
    if (kvtree_get(path, false, reply.Place()) != kStatusOk) return "none";
    return Decoded<mpls_vpn_mib_rt>(kMibRtParcel, reply.Get())->rt;
  }
};

TEST_F(AsNumberFormat, ChangeIsInTheRowsOfRouteTargetsAndNoRowIsLostOrDoubled) {
  SetTargets("red", {"65000:100", "0.65000:100", "4200000000:30", "10.0.0.1:5"});
  SetFormat("asdot");
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 1/1", "import 10.0.0.1:5 1/1",
                                            "import 0.65000:100 1/1", "import 64086.59904:30 1/1"));
  EXPECT_EQ(Row("red", 4), "64086.59904:30");
  EXPECT_EQ(Row("red", 5), "none");
  DeleteFormat();
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 1/1", "import 10.0.0.1:5 1/1",
                                            "import 0.65000:100 1/1", "import 4200000000:30 1/1"));
  EXPECT_FALSE(Printed("Could not insert RT in the WAVL tree"));
  EXPECT_FALSE(Printed("Could not delete RT from the WAVL tree"));
}

TEST_F(AsNumberFormat, RouteTargetOfAnEarlierFormatIsDeletedInTheNewOne) {
  SetTargets("red", {"4200000000:30", "65000:100"});
  SetFormat("asdot+");
  Commit({{Target("red", "4200000000:30").path, std::nullopt}});
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 1/1"));
}

TEST_F(AsNumberFormat, ChangeStampsTheVrfsWhoseTextsChange) {
  AddVrf("blue");
  AddVrf("green");
  Run();
  SetTargets("red", {"4200000000:30"});
  SetTargets("blue", {"65000:100", "0.65000:100"});
  ChangeRd("green", "65536:1");
  const std::uint32_t before = Now();
  PassSeconds(5);
  SetFormat("asdot");
  EXPECT_EQ(ChangedAt("red"), before + 5);
  EXPECT_EQ(ChangedAt("blue"), before);
  EXPECT_EQ(ChangedAt("green"), before + 5);
}

TEST_F(AsNumberFormat, RdFollowsIt) {
  SetRd("4200000000:1");
  EXPECT_EQ(RdOf("red"), "4200000000:1");
  SetFormat("asdot");
  EXPECT_EQ(RdOf("red"), "64086.59904:1");
  DeleteFormat();
  EXPECT_EQ(RdOf("red"), "4200000000:1");
}

TEST_F(AsNumberFormat, RestartIsInTheFormatFromTheFirstRowOnAndMovesNoTime) {
  SetTargets("red", {"4200000000:30", "65000:100"});
  SetRd("4200000000:1");
  SetFormat("asdot");
  const std::uint32_t changed = ChangedAt("red");
  PassSeconds(60);
  ClearPrints();
  RestartDaemon();
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 1/1", "import 64086.59904:30 1/1"));
  EXPECT_EQ(RdOf("red"), "64086.59904:1");
  EXPECT_EQ(ChangedAt("red"), changed);
  EXPECT_THAT(Prints(), testing::Not(testing::Contains(HasSubstr("RT=4200000000:30"))));
  DeleteFormat();
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 1/1", "import 4200000000:30 1/1"));
}

}  // namespace

// The daemon with VRFs that configuration names: what it retains of a VRF that is deleted and created again,
// and what it counts on interfaces that leave and join.
#include "mpls/vpn/mib/src/configuration/config_test_support.h"
#include "mpls/vpn/mib/src/configuration/protocols.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/router/config_references/config_references.h"
#include "platform/store/configuration/configuration.h"

namespace {

using vrf_config::Family;

const vrf_config::Target kTarget = {vrf_config::Target::Type::kTwoOctetAs, 65000, 100};

class ConfiguredVrfs : public Configured<DaemonTest> {
 protected:
  ConfiguredVrfs() { registers_at_once_ = false; }
  void SetUp() override {
    Configured::SetUp();
    ASSERT_EQ(config_references_start(&router_, manager_), kStatusOk);
    Register();
  }
  void TearDown() override {
    config_references_stop();
    Configured::TearDown();
  }

  void Configure(const std::vector<KvConfigNode>& nodes) {
    std::vector<KvConfigChange> changes;
    for (const KvConfigNode& node : nodes) changes.push_back({node.path, node.value});
    EXPECT_EQ(kvtree_config_commit(kConfigOwnerCli, changes, ""), kStatusOk);
    Run();
  }
  void Unconfigure(const KvConfigNode& node) {
    EXPECT_EQ(kvtree_config_commit(kConfigOwnerCli, {{node.path, std::nullopt}}, ""), kStatusOk);
    Run();
  }
  static KvConfigNode StaticRoute(const std::string& prefix, const std::string& interface) {
    return vrf_config::static_route("red", {Family::kIpv4, prefix, interface, "192.0.2.9"});
  }
  // All protocols that run on interfaces, on ge0.
  static std::vector<KvConfigNode> Protocols(const std::string& vrf) {
    return {vrf_config::rip_interface(vrf, "ge0"), vrf_config::ospf_interface(vrf, "1", 0, "ge0"),
            vrf_config::eigrp_interface(vrf, 90, "ge0"),
            vrf_config::static_route(vrf, {Family::kIpv4, "10.1.0.0/16", "ge0", ""})};
  }
  // "none bgp ospf rip isis static other", as digits.
  static std::string Counts(const std::uint32_t (&counts)[kMplsVpnProtocols]) {
    std::string text;
    for (const std::uint32_t count : counts) text += std::to_string(count);
    return text;
  }
  static std::string OfInterface(const char* vrf, const char* interface = "ge0") {
    const IfNode* node = mpls_vpn_mib_get_if_by_vrf_and_name(vrf, interface);
    return node == nullptr ? "not there" : Counts(node->protocol_count);
  }
  std::string OfVrf(const char* vrf) { return Counts(AttributesOf(vrf)->protocol_count); }
  void Move(const char* vrf) {
    Join("ge0", vrf);
    Run();
  }
};

constexpr char kNothing[] = "0000000";
constexpr char kEach[] = "0011011";  // OSPF, RIP, static, other

TEST_F(ConfiguredVrfs, InterfaceThatJoinsAfterItsConfigurationIsCounted) {
  AddVrf("red");
  Configure(Protocols("red"));
  AddInterface("ge0", "red");
  Run();
  EXPECT_EQ(OfInterface("red"), kEach);
}

TEST_F(ConfiguredVrfs, ManyVrfsCreatedAtOnceHaveTheirRouteDistinguishers) {
  for (int number = 0; number < 100; ++number) {
    AddVrf("vrf" + std::to_string(number), 0, "65000:" + std::to_string(number));
  }
  Run();
  for (int number = 0; number < 100; ++number) {
    const std::string name = "vrf" + std::to_string(number);
    EXPECT_STREQ(AttributesOf(name.c_str())->rd, ("65000:" + std::to_string(number)).c_str()) << name;
  }
}

TEST_F(ConfiguredVrfs, InterfaceThatRejoinsHasItsCountsAgain) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Run();
  Configure(Protocols("red"));
  EXPECT_EQ(OfInterface("red"), kEach);
  for (int flap = 0; flap < 3; ++flap) {
    Move("default");
    EXPECT_EQ(OfInterface("red"), "not there");
    Move("red");
    EXPECT_EQ(OfInterface("red"), kEach);
  }
}

TEST_F(ConfiguredVrfs, InterfaceThatFlapsWithinOneBatchIsCountedOnce) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Configure(Protocols("red"));
  for (int flap = 0; flap < 3; ++flap) {
    Leave("ge0");
    Join("ge0", "red");
  }
  Run();
  EXPECT_EQ(OfInterface("red"), kEach);
}

TEST_F(ConfiguredVrfs, InterfaceCountsWhereItIs) {
  AddVrf("red");
  AddVrf("blue");
  AddInterface("ge0", "red");
  Run();
  Configure(Protocols("red"));
  Configure({vrf_config::rip_interface("blue", "ge0")});
  Move("blue");
  EXPECT_EQ(OfInterface("red"), "not there");
  EXPECT_EQ(OfInterface("blue"), "0001000");
  Move("red");
  EXPECT_EQ(OfInterface("red"), kEach);
  EXPECT_EQ(OfInterface("blue"), "not there");
}

TEST_F(ConfiguredVrfs, CountsAreExactAfterFlaps) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Run();
  Configure({StaticRoute("10.1.0.0/16", "ge0"), StaticRoute("10.2.0.0/16", "ge0")});
  Move("default");
  Configure({StaticRoute("10.3.0.0/16", "ge0")});
  Move("red");
  EXPECT_EQ(OfInterface("red"), "0000030");
  Unconfigure(StaticRoute("10.1.0.0/16", "ge0"));
  Unconfigure(StaticRoute("10.2.0.0/16", "ge0"));
  EXPECT_EQ(OfInterface("red"), "0000010");
  Unconfigure(StaticRoute("10.3.0.0/16", "ge0"));
  EXPECT_EQ(OfInterface("red"), kNothing);
}

TEST_F(ConfiguredVrfs, ConfigurationAndJoinInOneBatchAreCountedOnce) {
  AddVrf("red");
  AddInterface("ge0");
  Run();
  const KvConfigNode rip = vrf_config::rip_interface("red", "ge0");
  EXPECT_EQ(kvtree_config_commit(kConfigOwnerCli, {{rip.path, rip.value}}, ""), kStatusOk);
  Move("red");
  EXPECT_EQ(OfInterface("red"), "0001000");
  Move("default");
  Join("ge0", "red");
  EXPECT_EQ(kvtree_config_commit(kConfigOwnerCli, {{rip.path, std::nullopt}}, ""), kStatusOk);
  Run();
  EXPECT_EQ(OfInterface("red"), kNothing);
}

TEST_F(ConfiguredVrfs, NeighborOfAVrfThatIsCreatedLaterIsCounted) {
  const KvConfigNode neighbor = vrf_config::bgp_neighbor("red", 65000, "192.0.2.9", Family::kIpv4);
  Configure({neighbor, StaticRoute("10.1.0.0/16", "")});
  EXPECT_EQ(AttributesOf("red")->creation_time, 0U) << "it is only named";
  AddVrf("red");
  Run();
  EXPECT_EQ(OfVrf("red"), "0100010");
  DeleteVrf("red");
  Run();
  AddVrf("red");
  Run();
  EXPECT_EQ(OfVrf("red"), "0100010");
  Unconfigure(neighbor);
  EXPECT_EQ(OfVrf("red"), "0000010");
}

TEST_F(ConfiguredVrfs, VrfDeletedAndCreatedAgainHasItsConfigurationAgain) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Run();
  Configure(Protocols("red"));
  Configure({vrf_config::description("red", "Red Rail"),
             vrf_config::route_threshold("red", Family::kIpv4, 100, 80),
             vrf_config::route_policy("red", Family::kIpv4, vrf_config::Direction::kImport, "IN"),
             vrf_config::route_target("red", Family::kIpv4, vrf_config::Direction::kImport, kTarget)});
  // Like the kernel: the members leave before the device is removed, and an operator adds them again.
  Leave("ge0");
  DeleteVrf("red");
  Run();
  ASSERT_NE(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("red")->vrf_id, 0U);
  PassSeconds(60);
  AddVrf("red");
  Move("red");
  const mpls_vpn_vrf_attr* const attributes = AttributesOf("red");
  EXPECT_STREQ(attributes->description, "Red Rail");
  EXPECT_EQ(attributes->high_thresh, 100U);
  EXPECT_EQ(attributes->mid_thresh, 80U);
  EXPECT_STREQ(attributes->import_route_policy[0], "IN");
  EXPECT_NE(mpls_vpn_mib_get_first_rt_in_vrf("red"), nullptr);
  EXPECT_EQ(attributes->creation_time, Now()) << "it is a new VRF";
  EXPECT_EQ(OfInterface("red"), kEach);
}

TEST_F(ConfiguredVrfs, VrfThatLosesItsConfigurationWhileDeletedIsForgotten) {
  const KvConfigNode text = vrf_config::description("red", "Red Rail");
  AddVrf("red");
  Run();
  Configure({text});
  DeleteVrf("red");
  Run();
  Unconfigure(text);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
  AddVrf("red");
  Run();
  EXPECT_EQ(AttributesOf("red")->description, nullptr);
}

TEST_F(ConfiguredVrfs, ReplayChangesNoTimes) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Run();
  Configure(Protocols("red"));
  const std::uint32_t before = ChangedAt("red");
  PassSeconds(60);
  std::vector<std::string> paths;
  for (const KvConfigNode& node : Protocols("red")) paths.push_back(node.path);
  EXPECT_EQ(kvtree_config_replay(paths), kStatusOk);
  Run();
  EXPECT_EQ(OfInterface("red"), kEach);
  EXPECT_EQ(ChangedAt("red"), before);
}

TEST_F(ConfiguredVrfs, RestartCountsTheSameAndMovesNoTimes) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Run();
  Configure(Protocols("red"));
  Configure({vrf_config::bgp_neighbor("red", 65000, "192.0.2.9", Family::kIpv4),
             vrf_config::description("red", "Red Rail")});
  const std::uint32_t before = ChangedAt("red");
  RestartDaemon([&] { PassSeconds(60); });
  EXPECT_EQ(OfInterface("red"), kEach);
  EXPECT_EQ(OfVrf("red"), "0100000");
  EXPECT_STREQ(AttributesOf("red")->description, "Red Rail");
  EXPECT_EQ(ChangedAt("red"), before);
  Move("default");
  Move("red");
  EXPECT_EQ(OfInterface("red"), kEach);
}

}  // namespace

// Each builder's node against the patterns by which the daemon matches it, and against the library that reads
// route targets from paths.
#include <gmock/gmock.h>

#include <iterator>

#include "platform/config/test_support.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/store/tree/kvtree.h"
#include "platform/store/tree/tuple.h"

namespace vrf_config {
namespace {

using Type = Target::Type;

// What the handler of a pattern was given: "handler: argument argument ... = value".
std::string& seen() {
  static std::string text;
  return text;
}

std::string value_text(const KvNotifyInfo* info) {
  KvConfigNode node;
  if (info->value != nullptr) node.value = *info->value;
  return shown(node);
}

void note(const char* handler, const KvNotifyInfo* info, const RequestArgs* args) {
  seen() += handler;
  seen() += ":";
  for (unsigned i = 0; i < args->count; ++i) {
    if (kvtree_absent(args, i)) {
      seen() += " -";
    } else if (args->arg[i].text != nullptr) {
      seen() += " " + std::string(args->arg[i].text);
    } else {
      seen() += " " + std::to_string(*args->arg[i].number);
    }
  }
  seen() += value_text(info);
}

void note_target(const char* handler, const KvNotifyInfo* info, const RequestArgs* args) {
  char text[64] = "";
  std::uint32_t afi = 0;
  std::uint32_t safi = 0;
  const Status status = bgp_vpn_extract_rt(args, sizeof text, text, &afi, &safi);
  seen() += std::string(handler) + ": " + args->arg[0].text + " " + text + " " + std::to_string(afi) + " " +
            std::to_string(safi) + (status ? " failed" : "") + value_text(info);
}

template <const char* kName>
void handle(const KvNotifyInfo* info, const RequestArgs* args) {
  note(kName, info, args);
}

constexpr char kDescr[] = "descr";
constexpr char kRd[] = "rd";
constexpr char kThresh[] = "thresh";
constexpr char kImportPolicy[] = "import-policy";
constexpr char kExportPolicy[] = "export-policy";
constexpr char kBgp[] = "bgp";
constexpr char kRip[] = "rip";
constexpr char kOspf[] = "ospf";
constexpr char kEigrp[] = "eigrp";
constexpr char kStatic[] = "static";

KvHandlerEntry entry(KvNotifyHandler notify) {
  KvHandlerEntry handlers;
  handlers.notify = notify;
  return handlers;
}

#define VRF_TABLE "vrf/<s>/ord_z/afi_safi/<n>/<n>/"
#define ROUTE_TARGET "<n>/<n>/<n>/<n>/<ip4>/<n>/<n>"
const KvRoute kVrfRoutes[] = {
    {"vrf/<s>/ord_a/vmap/ord_k/vmap/descr", entry(handle<kDescr>)},
    {VRF_TABLE "default/ord_b/bgp/ord_a/rd", entry(handle<kRd>)},
    {VRF_TABLE "default/ord_b/bgp/ord_c/import-rt/" ROUTE_TARGET,
     entry([](const KvNotifyInfo* info, const RequestArgs* args) { note_target("import", info, args); })},
    {VRF_TABLE "default/ord_b/bgp/ord_e/export-rt/" ROUTE_TARGET,
     entry([](const KvNotifyInfo* info, const RequestArgs* args) { note_target("export", info, args); })},
    {VRF_TABLE "<s>/ord_e/rib/table-prefix-limit", entry(handle<kThresh>)},
    {VRF_TABLE "default/ord_b/bgp/ord_b/import-policy", entry(handle<kImportPolicy>)},
    {VRF_TABLE "default/ord_b/bgp/ord_d/export-policy", entry(handle<kExportPolicy>)},
};
const KvRoute kBgpRoutes[] = {{"<s>/<x>/<x>/<s>/<s>/nbr/<n>/prov/<s>/<n>/<ad>/<s>", entry(handle<kBgp>)}};
const KvRoute kRipRoutes[] = {{"<s>/ord_t/if/<i>/ord_d/enabled", entry(handle<kRip>)}};
const KvRoute kOspfRoutes[] = {
    {"<s>/<s>/<s>/ord_v/area/<ip4>/<x>/ord_i/name_scope/<i>/ord_A/running", entry(handle<kOspf>)}};
const KvRoute kEigrpRoutes[] = {
    {"<s>/<s>/<s>/ord_m/af/<*>/ord_t/if/<i>/ord_a/enabled", entry(handle<kEigrp>)}};
const KvRoute kStaticRoutes[] = {
    {"<s>/address/<s>/<s>/ord_c/<*>/route/<ad>/<x>/<s>/<s>/nexthop/<i>/<ad>", entry(handle<kStatic>)}};

template <const auto& kRoutes>
void match(const KvNotification* notification) {
  static const KvRoutingTable table{kRoutes, std::size(kRoutes)};
  kvtree_match_notify(notification, &table);
}

struct Subscription {
  std::string_view scope;
  KvNotificationEntry notify;
};
constexpr Subscription kSubscriptions[] = {
    {kVrfScope, match<kVrfRoutes>},     {kBgpScope, match<kBgpRoutes>},
    {kRipScope, match<kRipRoutes>},     {kOspfScope, match<kOspfRoutes>},
    {kEigrpScope, match<kEigrpRoutes>}, {kStaticScope, match<kStaticRoutes>},
};

class Builders : public ::testing::Test {
 protected:
  void SetUp() override {
    manager_ = event_manager_create("/dev/mpls/vpn/main", 0);
    ASSERT_NE(manager_, nullptr);
  }
  void TearDown() override {
    kvtree_reset();
    event_manager_destroy(manager_);
  }
  // What the daemon's handlers are given for the node.
  std::string Taken(const KvConfigNode& node) {
    seen().clear();
    EXPECT_EQ(kvtree_set(node.path, node.value), kStatusOk) << node.path;
    for (const Subscription& each : kSubscriptions) {
      KvConnection* connection = nullptr;
      EXPECT_EQ(kvtree_bind(&connection, std::string(each.scope).c_str(), kKvBindConfiguration), kStatusOk);
      EXPECT_EQ(
          kvtree_register_notification(connection, "", kKvEventSet, each.notify, manager_, 0, 0, 4, nullptr),
          kStatusOk);
    }
    kvtree_reset();
    return seen();
  }

 private:
  const TestRunDirectory directory_;
  EventManager* manager_ = nullptr;
};

TEST_F(Builders, DescriptionIsTaken) {
  EXPECT_EQ(Taken(description("red", "Customer Red")), "descr: red = 'Customer Red'");
}

TEST_F(Builders, RouteDistinguisherIsTaken) {
  EXPECT_EQ(Taken(route_distinguisher("red", Family::kIpv6, {Type::kIpv4Address, 0x0a000001, 5})),
            "rd: red 2 1 = '10.0.0.1:5'");
}

TEST_F(Builders, RouteTargetOfEachTypeReadsAsItsText) {
  for (const Target& target :
       {Target{Type::kTwoOctetAs, 65000, 4294967295}, Target{Type::kTwoOctetAs, 0, 0},
        Target{Type::kIpv4Address, 0xc0000201, 65535}, Target{Type::kFourOctetAs, 4200000000, 65535},
        Target{Type::kFourOctetAs, 65000, 1}}) {
    const std::string text = target_text(target);
    EXPECT_EQ(Taken(route_target("red", Family::kIpv4, Direction::kImport, target)),
              "import: red " + text + " 1 1 = 1");
    EXPECT_EQ(Taken(route_target("red", Family::kIpv6, Direction::kExport, target)),
              "export: red " + text + " 2 1 = 1");
  }
}

TEST_F(Builders, RouteTargetOfEvpnHasItsAddressFamilyNumbers) {
  EXPECT_EQ(Taken(route_target("red", Family::kEvpn, Direction::kImport, {Type::kTwoOctetAs, 65000, 1})),
            "import: red 65000:1 25 70 = 1");
}

TEST_F(Builders, RoutePolicyIsTaken) {
  EXPECT_EQ(Taken(route_policy("red", Family::kIpv4, Direction::kImport, "in")),
            "import-policy: red 1 1 = 'in'");
  EXPECT_EQ(Taken(route_policy("red", Family::kIpv6, Direction::kExport, "out")),
            "export-policy: red 2 1 = 'out'");
}

TEST_F(Builders, ThresholdIsTheMaximumAndTheMidThreshold) {
  const KvConfigNode node = route_threshold("red", Family::kIpv4, 4294967295, 80);
  EXPECT_EQ(Taken(node), "thresh: red 1 1 default = (4294967295, 80)");
  std::uint32_t maximum = 0;
  std::uint32_t mid = 0;
  ASSERT_EQ(tuple_unpack(&node.value, "%d%d", {&maximum, &mid}), kStatusOk);
  EXPECT_EQ(maximum, 4294967295U);
  EXPECT_EQ(mid, 80U);
}

TEST_F(Builders, BgpNeighborIsAnAddressOrAName) {
  EXPECT_EQ(Taken(bgp_neighbor("red", 65000, "192.0.2.1", Family::kIpv4)),
            "bgp: default 0 65000 ord_a red 4 default 1 192.0.2.1 ipv4 = 1");
  EXPECT_EQ(Taken(bgp_neighbor("red", 65000, "2001:db8::1", Family::kIpv6)),
            "bgp: default 0 65000 ord_a red 4 default 2 2001:db8::1 ipv6 = 1");
  EXPECT_EQ(Taken(bgp_neighbor("red", 65000, "ge0:1", Family::kIpv4)),
            "bgp: default 0 65000 ord_a red 4 ge0:1 1 - ipv4 = 1");
}

TEST_F(Builders, InterfacesOfProtocolsAreTaken) {
  EXPECT_EQ(Taken(rip_interface("red", "ge0")), "rip: red ge0 = 1");
  EXPECT_EQ(Taken(ripng_interface("red", "ge0")), "rip: red ge0 = 1");
  EXPECT_EQ(Taken(ospf_interface("red", "1", 0x0a000001, "ge0")), "ospf: 1 ord_a red 10.0.0.1 int ge0 = 1");
  EXPECT_EQ(Taken(eigrp_interface("red", 100, "ge0")), "eigrp: 100 red ord_a ge0 = 1");
}

TEST_F(Builders, StaticRouteHasAnInterfaceANextHopOrNeither) {
  EXPECT_EQ(Taken(static_route("red", {Family::kIpv4, "10.1.0.0/16", "ge0", "192.0.2.1"})),
            "static: red ipv4 unicast 10.1.0.0 16 - - ge0 192.0.2.1 = 1");
  EXPECT_EQ(Taken(static_route("red", {Family::kIpv6, "2001:db8::/32", "", "2001:db8::1"})),
            "static: red ipv6 unicast 2001:db8:: 32 - - - 2001:db8::1 = 1");
  EXPECT_EQ(Taken(static_route("red", {Family::kIpv4, "0.0.0.0/0", "", ""})),
            "static: red ipv4 unicast 0.0.0.0 0 - - - - = 1");
}

TEST_F(Builders, OddNamesArriveAsTheyAre) {
  for (const char* name : {"-", "a/b", "a b", "caf\xc3\xa9", "100%", "<s>", "..", "%2D", "\x01\xff"}) {
    EXPECT_EQ(Taken(description(name, "x")), "descr: " + std::string(name) + " = 'x'");
    EXPECT_EQ(Taken(rip_interface(name, name)), "rip: " + std::string(name) + " " + name + " = 1");
  }
}

TEST_F(Builders, OneAddressIsOneItemHoweverItIsSpelt) {
  EXPECT_EQ(bgp_neighbor("red", 1, "2001:DB8:0:0::1", Family::kIpv6).path,
            bgp_neighbor("red", 1, "2001:db8::1", Family::kIpv6).path);
  EXPECT_EQ(static_route("red", {Family::kIpv6, "2001:DB8:0::/32", "", "fe80:0::1"}).path,
            static_route("red", {Family::kIpv6, "2001:db8::/32", "", "fe80::1"}).path);
  EXPECT_EQ(static_route("red", {Family::kIpv4, "10.1.2.3/12", "", ""}).path,
            static_route("red", {Family::kIpv4, "10.0.0.0/12", "", ""}).path);
}

TEST_F(Builders, TrapSwitchesAreBelowTheirPath) {
  EXPECT_EQ(shown(trap_switch("vrf-up", 1)), "/cfg/gl/snmp/enable/traps/l3vpnmib/vrf-up = 1");
  EXPECT_EQ(shown(trap_switch(kTrapReissueTime, 60)),
            "/cfg/gl/snmp/enable/traps/l3vpnmib/notif-reissue-time = 60");
}

}  // namespace
}  // namespace vrf_config

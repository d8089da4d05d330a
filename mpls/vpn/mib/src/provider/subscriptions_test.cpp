// The eight subscriptions, one item each: the effect of a set, a deletion and a replay on the attribute
// block, the MIB and the show record, for a VRF that exists, one that does not yet, and "default".
#include <ostream>
#include <utility>

#include "mpls/vpn/mib/src/configuration/config_test_support.h"
#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "mpls/vpn/mib/src/traps/info.h"
#include "platform/router/rib_threshold/records.h"

namespace {

enum class Value { kText, kPair, kMaximumEvent };

// One configured item. Texts are states (see State()); the ones of "default" and of a VRF that does not exist
// yet are those while the item is set.
struct Item {
  const char* name;
  const char* path;  // VRF and INTERFACE are placeholders of the names
  Value value;
  const char* existing;
  const char* forward;  // before the VRF is created
  const char* created;  // after it was created
  const char* of_default;
  const char* deleted;  // of the VRF that exists, after the deletion
};

void PrintTo(const Item& item, std::ostream* out) {
  *out << item.name;
}

constexpr char kNothing[] = "block: mib: show:";

constexpr Item kItems[] = {
    {"Description", "/cfg/gl/vmap/vrf/VRF/ord_a/vmap/ord_k/vmap/descr", Value::kText,
     "block: description=text mib: description=text show: description=text",
     "block: description=text mib: show:",
     "block: description=text mib: description=text show: description=text",
     "block: description=text mib: show:", kNothing},
    // Rows of route targets exist as long as their configuration, with or without the VRF.
    {"ImportRouteTarget",
     "/cfg/gl/vmap/vrf/VRF/ord_z/afi_safi/1/1/default/ord_b/bgp/ord_c/import-rt/0/0/65000/100/0.0.0.0/0/0",
     Value::kText, "block: rt=65000:100 mib: rt=65000:100 show: rt=65000:100",
     "block: rt=65000:100 mib: rt=65000:100 show:",
     "block: rt=65000:100 mib: rt=65000:100 show: rt=65000:100",
     "block: rt=65000:100 mib: rt=65000:100 show:", kNothing},
    {"ImportPolicy", "/cfg/gl/vmap/vrf/VRF/ord_z/afi_safi/1/1/default/ord_b/bgp/ord_b/import-policy",
     Value::kText, "block: policy=text mib: show: policy=text", "block: policy=text mib: show:",
     "block: policy=text mib: show: policy=text", "block: policy=text mib: show:", kNothing},
    {"Thresholds", "/cfg/gl/vmap/vrf/VRF/ord_z/afi_safi/1/1/default/ord_e/rib/table-prefix-limit",
     Value::kPair, "block: thresholds=100/80 mib: thresholds=100/80 show:",
     "block: thresholds=100/80 mib: show:", "block: thresholds=100/80 mib: thresholds=100/80 show:",
     "block: thresholds=100/80 mib: show:", kNothing},
    {"Traps", "/cfg/gl/snmp/enable/traps/l3vpnmib/all", Value::kText, "block: mib: traps=1 show:",
     "block: mib: traps=1 show:", "block: mib: traps=1 show:", "block: mib: traps=1 show:", kNothing},
    {"Bgp", "/cfg/gl/ip-bgp/default/0/65000/ord_a/VRF/nbr/4/prov/default/1/192.0.2.9/ipv4", Value::kText,
     "block: vrf-protocol=1 mib: protocols=40 show:", kNothing, kNothing, kNothing, kNothing},
    {"Rip", "/cfg/gl/rip/ord_B/VRF/ord_t/if/INTERFACE/ord_d/enabled", Value::kText,
     "block: if-protocol=3 mib: protocols=10 show:", kNothing, kNothing, kNothing, kNothing},
    {"Ospf",
     "/cfg/gl/ipv4-ospf/proc/1/ord_a/VRF/ord_v/area/0.0.0.1/int/ord_i/name_scope/INTERFACE/ord_A/running",
     Value::kText, "block: if-protocol=2 mib: protocols=20 show:", kNothing, kNothing, kNothing, kNothing},
    {"Eigrp", "/cfg/gl/eigrp/proc/100/VRF/ord_a/ord_m/af/ipv4/ord_t/if/INTERFACE/ord_a/enabled", Value::kText,
     "block: if-protocol=6 mib: protocols=2 show:", kNothing, kNothing, kNothing, kNothing},
    {"Static",
     "/cfg/gl/static/router/ord_v/VRF/address/ipv4/unicast/ord_c/topology/route/198.51.100.0/24/a/b/nexthop/"
     "INTERFACE/192.0.2.9",
     Value::kText, "block: if-protocol=5 mib: protocols=4 show:", kNothing, kNothing, kNothing, kNothing},
    // The event names the VRF's table; "default" has none here. The deletion raises no notification.
    {"ThresholdEvent", "/oper/rib_threshold/VRF/max-thresh-exc", Value::kMaximumEvent,
     "block: routes=101 exceeded=1 mib: show:", kNothing, kNothing, kNothing,
     "block: routes=101 exceeded=1 mib: show:"},
};

class Subscriptions : public Configured<RouteTablesTest>, public testing::WithParamInterface<Item> {
 protected:
  Subscriptions() { registers_at_once_ = false; }
  void SetUp() override {
    Configured::SetUp();
    AddVrfWithTables("red", true, false);
    AddInterface("ge0", "red");
    AddInterface("ge7");
    Run();
  }
  void TearDown() override {
    for (MplsVpnTrapInfo& info : mpls_vpn_mib_trap_info) info.enabled = 0;
    Configured::TearDown();
  }

  static std::string PathFor(const std::string& vrf, const std::string& interface) {
    std::string path = GetParam().path;
    for (const auto& [what, name] :
         {std::pair<std::string, std::string>{"VRF", vrf}, {"INTERFACE", interface}}) {
      const std::size_t at = path.find(what);
      if (at != std::string::npos) path.replace(at, what.size(), name);
    }
    return path;
  }
  void SetItem(const std::string& vrf, const std::string& interface) {
    const std::string path = PathFor(vrf, interface);
    if (GetParam().value == Value::kText) SetText(path, "text");
    if (GetParam().value == Value::kPair) SetPair(path, 100, 80);
    if (GetParam().value == Value::kMaximumEvent) {
      const router::Vrf* found = vrf == router::kDefaultVrf ? nullptr : router_.find_vrf(vrf);
      const std::uint32_t table = found == nullptr ? 0 : found->ipv4_table;
      SetRecord(path, rib_threshold::kMaximumThresholdParcel,
                rib_threshold::MaximumThreshold{0, table, 101, 100});
    }
  }

  // What differs from nothing: "block: ... mib: ... show: ...".
  std::string State(const char* vrf) {
    return "block:" + Block(vrf) + " mib:" + Mib(vrf) + " show:" + Show(vrf);
  }

 private:
  static std::string Part(const std::string& name, const char* text) {
    return text == nullptr ? "" : " " + name + "=" + text;
  }
  // " name=1 name=1 name=5": each protocol as often as it was counted.
  static std::string Counted(const std::string& name, const std::uint32_t (&counts)[kMplsVpnProtocols]) {
    std::string text;
    for (unsigned protocol = 0; protocol < kMplsVpnProtocols; ++protocol) {
      for (std::uint32_t n = 0; n < counts[protocol]; ++n)
        text += " " + name + "=" + std::to_string(protocol);
    }
    return text;
  }
  static std::string Block(const char* vrf) {
    std::string text;
    if (const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf)) {
      const mpls_vpn_vrf_attr& block = *mpls_vpn_vrf_attributes(record);
      text += Part("description", block.description) + Part("policy", block.import_route_policy[0]);
      if (block.high_thresh != 0) {
        text += " thresholds=" + std::to_string(block.high_thresh) + "/" + std::to_string(block.mid_thresh);
      }
      if (block.curr_num_routes != 0) text += " routes=" + std::to_string(block.curr_num_routes);
      if (block.high_thresh_exceeded != 0) text += " exceeded=1";
      text += Counted("vrf-protocol", block.protocol_count);
    }
    for (const RtNode* node = mpls_vpn_mib_get_first_rt_in_vrf(vrf); node != nullptr;
         node = mpls_vpn_mib_get_next_rt_in_vrf(node, vrf)) {
      text += Part("rt", node->value);
    }
    for (const IfNode* node = mpls_vpn_mib_get_first_if_of_vrf(vrf); node != nullptr;
         node = mpls_vpn_mib_get_next_if_of_vrf(node, vrf)) {
      text += Counted("if-protocol", node->protocol_count);
    }
    return text;
  }
  static bool Get(const std::string& path, Reply* reply) {
    const Status rc = kvtree_get("/oper/mpls_vpn/gl/" + path, false, reply->Place());
    EXPECT_TRUE(rc == kStatusOk || rc == kStatusNoSuchRow) << path << ": " << err_text(rc);
    return rc == kStatusOk;
  }
  static std::string Mib(const std::string& vrf) {
    std::string text;
    Reply reply;
    if (Get("vrf/" + vrf, &reply)) {
      const Decoded<mpls_vpn_mib_vrf> row(kMibVrfParcel, reply.Get());
      text += Part("description", row->description);
      if (row->highThresh != 0) {
        text += " thresholds=" + std::to_string(row->highThresh) + "/" + std::to_string(row->midThresh);
      }
    }
    if (Get("rt/" + vrf + "/1/1", &reply)) {
      text += Part("rt", Decoded<mpls_vpn_mib_rt>(kMibRtParcel, reply.Get())->rt);
    }
    if (Get("interface-next/" + vrf + "/0", &reply)) {
      const Decoded<mpls_vpn_mib_interface> row(kMibInterfaceParcel, reply.Get());
      if (row->vrfName == vrf && row->protocol != 0) text += " protocols=" + Hex(row->protocol).substr(2);
    }
    if (Get("scalars", &reply)) {
      const Decoded<mpls_vpn_mib_scalars> scalars(kMibScalarsParcel, reply.Get());
      if (scalars->notificationEnable != 0) text += " traps=" + std::to_string(scalars->notificationEnable);
    }
    return text;
  }
  static std::string Show(const std::string& vrf) {
    std::string text;
    Reply reply;
    if (!Get("vrf-detail/" + vrf, &reply)) return text;
    const Decoded<mpls_vpn_vrf> show(kShowVrfParcel, reply.Get());
    text += Part("description", show->VRFDescription);
    const auto* tables = static_cast<const mpls_vpn_afi_safi*>(show->AF.elements);
    for (std::uint64_t i = 0; i < show->AF.count; ++i) {
      text += Part("policy", tables[i].ImportRoutePolicy);
      const auto* targets = static_cast<const mpls_vpn_rt*>(tables[i].RouteTarget.elements);
      for (std::uint64_t j = 0; j < tables[i].RouteTarget.count; ++j) {
        text += Part("rt", targets[j].RouteTargetValue);
      }
    }
    return text;
  }
};

TEST_P(Subscriptions, SetAndDeletionOnAVrfThatExists) {
  Register();
  EXPECT_EQ(State("red"), kNothing);
  SetItem("red", "ge0");
  EXPECT_EQ(State("red"), GetParam().existing);
  Delete(PathFor("red", "ge0"));
  EXPECT_EQ(State("red"), GetParam().deleted);
}

TEST_P(Subscriptions, SetOnAVrfThatIsCreatedLaterAndDeletion) {
  Register();
  SetItem("later", "ge1");
  EXPECT_EQ(State("later"), GetParam().forward);
  AddVrfWithTables("later", true, false);
  AddInterface("ge1", "later");
  Run();
  EXPECT_EQ(State("later"), GetParam().created);
  Delete(PathFor("later", "ge1"));
  EXPECT_EQ(State("later"), kNothing);
}

TEST_P(Subscriptions, DeletionOnAVrfThatWasNeverCreated) {
  Register();
  SetItem("later", "ge1");
  Delete(PathFor("later", "ge1"));
  EXPECT_EQ(State("later"), kNothing);
}

TEST_P(Subscriptions, SetAndDeletionOnTheVrfDefault) {
  Register();
  SetItem("default", "ge7");
  EXPECT_EQ(State("default"), GetParam().of_default);
  Delete(PathFor("default", "ge7"));
  EXPECT_EQ(State("default"), kNothing);
}

TEST_P(Subscriptions, ReplayAtStartIsLikeASet) {
  SetItem("red", "ge0");
  SetItem("default", "ge7");
  Register();
  EXPECT_EQ(State("red"), GetParam().existing);
  EXPECT_EQ(State("default"), GetParam().of_default);
  EXPECT_EQ(backend_scan_in_progress, 0U);
}

TEST_P(Subscriptions, ReplayOfALaterRunIsLikeASetAndChangesNoTime) {
  Register();
  SetItem("red", "ge0");
  const std::uint32_t changed = ChangedAt("red");
  PassSeconds(60);
  RestartDaemon();
  EXPECT_EQ(State("red"), GetParam().existing);
  EXPECT_EQ(ChangedAt("red"), changed);
}

INSTANTIATE_TEST_SUITE_P(EachItem, Subscriptions, testing::ValuesIn(kItems),
                         [](const auto& item) { return std::string(item.param.name); });

}  // namespace

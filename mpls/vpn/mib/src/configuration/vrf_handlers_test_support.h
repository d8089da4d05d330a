// For tests: VRF configuration as nodes of the data store, the VRF's attribute block and the route-target
// database. VRF "red" exists and has never been changed.
#pragma once

#include <string>
#include <vector>

#include "mpls/vpn/mib/src/configuration/config_test_support.h"
#include "mpls/vpn/mib/src/configuration/vrf_handlers.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/router/model/router_test_support.h"

inline std::string vrf_path(const std::string& vrf) {
  return "/cfg/gl/vmap/vrf/" + vrf;
}
inline std::string bgp_path(const std::string& vrf, unsigned afi = 1, unsigned safi = 1) {
  return vrf_path(vrf) + "/ord_z/afi_safi/" + std::to_string(afi) + "/" + std::to_string(safi) +
         "/default/ord_b/bgp";
}
// 65000:100
inline std::string import_path(const std::string& vrf, unsigned afi = 1, unsigned safi = 1) {
  return bgp_path(vrf, afi, safi) + "/ord_c/import-rt/0/0/65000/100/0.0.0.0/0/0";
}
// 10.0.0.1:5
inline std::string export_path(const std::string& vrf) {
  return bgp_path(vrf) + "/ord_e/export-rt/1/0/0/0/10.0.0.1/5/0";
}
inline std::string description_path(const std::string& vrf) {
  return vrf_path(vrf) + "/ord_a/vmap/ord_k/vmap/descr";
}
inline std::string import_policy_path(const std::string& vrf, unsigned afi = 1, unsigned safi = 1) {
  return bgp_path(vrf, afi, safi) + "/ord_b/import-policy";
}
inline std::string export_policy_path(const std::string& vrf, unsigned afi = 1, unsigned safi = 1) {
  return bgp_path(vrf, afi, safi) + "/ord_d/export-policy";
}
inline std::string limit_path(const std::string& vrf, unsigned afi = 1, unsigned safi = 1,
                              const std::string& table = "default") {
  return vrf_path(vrf) + "/ord_z/afi_safi/" + std::to_string(afi) + "/" + std::to_string(safi) + "/" + table +
         "/ord_e/rib/table-prefix-limit";
}

class VrfConfiguration : public Configured<DaemonTest> {
 protected:
  void SetUp() override {
    Configured::SetUp();
    AddVrf("red");
    Run();
    ForgetChange("red");
    ClearPrints();
  }
  // "type value afi/safi", in order.
  static std::vector<std::string> TargetsOf(const char* vrf) {
    std::vector<std::string> targets;
    for (const RtNode* node = mpls_vpn_mib_get_first_rt_in_vrf(vrf); node != nullptr;
         node = mpls_vpn_mib_get_next_rt_in_vrf(node, vrf)) {
      targets.push_back(std::string(node->type == kRtImport ? "import " : "export ") + node->value + " " +
                        std::to_string(node->afi) + "/" + std::to_string(node->safi));
    }
    return targets;
  }
  static std::string Shown(const char* text) { return mpls_vpn_shown(text); }
  // The four policies: import IPv4, import IPv6, export IPv4, export IPv6.
  std::vector<std::string> PoliciesOf(const char* vrf) {
    const mpls_vpn_vrf_attr* attributes = AttributesOf(vrf);
    return {Shown(attributes->import_route_policy[0]), Shown(attributes->import_route_policy[1]),
            Shown(attributes->export_route_policy[0]), Shown(attributes->export_route_policy[1])};
  }
  std::string DescriptionOf(const char* vrf) { return Shown(AttributesOf(vrf)->description); }
  std::string RdOf(const char* vrf) { return Shown(AttributesOf(vrf)->rd); }
  static bool IsKnown(const char* vrf) { return vtab_get_vrf_record_by_vrf_name(vrf) != nullptr; }
  void ExpectForwardReferenceStampedButNotCheckpointed(const char* vrf) {
    ASSERT_TRUE(IsKnown(vrf));
    EXPECT_EQ(vtab_get_vrf_record_by_vrf_name(vrf)->vrf_id, 0U);
    EXPECT_EQ(ChangedAt(vrf), Now());
    EXPECT_EQ(AttributesOf(vrf)->chkpt_objid, 0U);
  }
  void ChangeRd(const std::string& name, const std::string& rd) {
    router::ChangeVrf(&router_, name, &router::Vrf::rd, rd);
    Run();
  }
  // Those of import_path().
  static Arguments TargetArguments(const char* vrf) {
    Arguments args(0, 10);
    args.Text(0, vrf).Number(1, 1).Number(2, 1).Number(3, 0).Number(4, 0).Number(5, 65000).Number(6, 100);
    return args;
  }
  // Those of a path with a family, for the table "default".
  static Arguments FamilyArguments(const char* vrf) {
    return Arguments(0, 4).Text(0, vrf).Number(1, 1).Number(2, 1).Text(3, "default");
  }
  static constexpr KvNotifyInfo kSet{"item", kKvEventSet, nullptr};
  static constexpr KvNotifyInfo kDeleted{"item", kKvEventDeleted, nullptr};
  static constexpr KvNotifyInfo kNeither{"item", 0, nullptr};
  static constexpr KvNotifyInfo kBoth{"item", kKvEventSet | kKvEventDeleted, nullptr};
};

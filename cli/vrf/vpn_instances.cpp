#include "cli/vrf/vpn_instances.h"

#include <algorithm>
#include <unordered_map>

#include "cli/show/interface_states.h"
#include "cli/show/tables.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"

namespace cli {

namespace {

constexpr char kNoVrf[] = "default";

class InstancesReader {
 public:
  InstancesReader(const Session& session, kvtree::Client& client) : session_(session), client_(client) {}

  VpnInstances read() {
    walk(kVrfTable);
    walk(kRouteTargetTable);
    walk_interface_states(session_, client_,
                          [this](const interface_states::InterfaceState& state) { add(state); });
    return std::move(instances_);
  }

 private:
  template <typename Row>
  void walk(const RowTable<Row>& table) {
    const auto take = [this](const Row& row) {
      add(row);
      return true;
    };
    RowWalk<Row>(session_, client_, table, take).run(table.first_path(""));
  }
  void add(const mpls_vpn_mib_vrf& row) {
    const std::string name = text_or_empty(row.name);
    places_[name] = instances_.vrfs.size();
    instances_.vrfs.push_back({name, text_or_empty(row.description), text_or_empty(row.rd)});
  }
  void add(const mpls_vpn_mib_rt& row) {
    VpnInstance* const vrf = find(text_or_empty(row.vrfName));
    if (vrf == nullptr) return;
    const std::string target = text_or_empty(row.rt);
    if ((row.type & kRtImport) != 0) add_once(target, &vrf->imports);
    if ((row.type & kRtExport) != 0) add_once(target, &vrf->exports);
  }
  void add(const interface_states::InterfaceState& state) {
    const std::string name = text_or_empty(state.name);
    const std::string vrf_name = text_or_empty(state.vrf);
    if (vrf_name == kNoVrf) return instances_.unassigned.push_back(name);
    if (VpnInstance* const vrf = find(vrf_name)) vrf->interfaces.push_back(name);
  }

  static void add_once(const std::string& target, std::vector<std::string>* targets) {
    if (std::ranges::find(*targets, target) == targets->end()) targets->push_back(target);
  }
  // Null for a VRF that is configured but does not exist.
  VpnInstance* find(const std::string& name) {
    const auto found = places_.find(name);
    return found == places_.end() ? nullptr : &instances_.vrfs[found->second];
  }

  const Session& session_;
  kvtree::Client& client_;
  VpnInstances instances_;
  std::unordered_map<std::string, std::size_t> places_;
};

}  // namespace

VpnInstances read_vpn_instances(const Session& session, kvtree::Client& client) {
  return InstancesReader(session, client).read();
}

}  // namespace cli

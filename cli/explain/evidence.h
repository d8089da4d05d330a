// What the links of an explanation look at. Each fact is read once, when a link needs it first; one that
// cannot be read throws the same Failure each time. A suite that does not answer in time is not asked again.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cli/doctor/facts.h"
#include "cli/explain/request.h"
#include "cli/explain/suite_paths.h"
#include "cli/explain/targets.h"
#include "cli/output/address.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace cli::explain {

struct VrfFacts {
  std::string rd{};
  bool is_up = false;
  std::uint32_t routes = 0;
};

struct MibRoute {
  inet::Prefix prefix{};
  std::string next_hop{};  // empty: none
  std::string protocol{};
  const char* discards = nullptr;  // how; null: it does not
};

// Where the route of the prefix is, by the suite's tables. kVpn: at least one VPN route may be imported;
// kOtherVpn: others only, which may be those of another customer with the same addresses.
enum class Origin { kVpn, kVrf, kInactive, kOtherVpn, kNowhere };

class Evidence {
 public:
  // `of_route`: a prefix or an address; none for the VRF itself. The others must outlive it.
  Evidence(doctor::Facts& of_router, const ExplainRequest& of_user, const std::optional<Prefix>& of_route)
      : facts(of_router), request(of_user), route_(of_route) {}

  bool is_of_route() const { return route_.has_value(); }
  // The facts of the prefix are those of the longest routes that contain an address.
  bool is_of_address() const { return route_ && route_->is_address; }
  // REQUIRES: is_of_route().
  const inet::Prefix& prefix() const { return route_->prefix; }
  // Asks for the facts of this prefix from now on.
  void narrow_to(const inet::Prefix& found);

  // The daemon's row of the VRF; null if there is none.
  const VrfFacts* vrf();
  // Of all VRFs: by which BGP imports and exports. From the suite's configuration, or from the daemon if the
  // suite cannot be asked; other owners' items override the suite's in the MIB, and not in BGP.
  const std::vector<Target>& targets();
  // Of all VRFs in the MIB.
  const std::vector<Target>& mib_targets();
  // The VRF's device; null if the kernel has none.
  const doctor::Vrf* device();
  // The suite's configuration names the VRF.
  bool is_configured();

  // Of the prefix.
  const std::vector<BgpPath>& vpn_paths();  // those of the VRF itself excluded
  const std::vector<BgpPath>& vrf_paths();
  const std::vector<RibEntry>& rib();
  const std::vector<kernel::KernelRoute>& kernel_routes();
  const std::vector<MibRoute>& mib_routes();
  Origin origin();
  // The first VPN route that may be imported, by its targets; null if there is none.
  const BgpPath* importable();
  // The path that is used, or would be: the best one of the VRF, or else the importable one.
  const BgpPath* path();

  // The suite's route of the next hop in the core.
  const std::vector<RibEntry>& core_routes();
  // The other routers that export each target in the family.
  const std::map<std::string, std::set<std::string>>& exporters(const std::string& family);
  // The states of the sessions for VPN routes of the family, by neighbor.
  std::map<std::string, std::string> sessions(const std::string& family);
  // What is wrong with the sessions for VPN routes of the family, as "; ..." to add to a text; empty:
  // nothing.
  std::string session_problem(const std::string& family);
  // The address families of the VRF in the suite's configuration.
  std::vector<doctor::SuiteFamily> families();
  // That of the prefix; null if there is none.
  const doctor::SuiteFamily* configured_family();
  // One that exports routes without a label or segment identifier; null if there is none.
  const doctor::SuiteFamily* family_without_label();
  bool exports_with_labels();
  // The labels with which packets arrive for the VRF.
  const std::set<std::string>& vpn_labels();

  // The targets of the VRF in the family of the prefix, or in any family.
  std::set<std::string> own_targets(bool is_import);
  bool is_imported(const BgpPath& path);
  // What to add to a text with own_targets(): empty if the MIB has the same, or cannot be read.
  std::string difference_of_mib(bool is_import);

  const char* family_name() const;  // "ipv4", "ipv6"
  std::string prefix_name() const;  // or the address
  // A command with "ip" or "ipv6" and the VRF with the prefix.
  std::string of_family(const char* command) const;
  std::string of_bgp_vrf() const;  // "show bgp vrf red ipv4 unicast 10.1.0.0/16"
  // The command that adds the line to the suite's configuration.
  std::string configure(const doctor::SuiteFamily& family, const std::string& line) const;

  doctor::Facts& facts;
  const ExplainRequest& request;

 private:
  // The suite knows the VRF: NotPossible if the kernel has no device, so that no other name reaches it.
  void require_device();
  void require_bgp();
  template <typename Ask>
  auto patiently(Ask ask);
  Json ask_json(const std::string& command);
  const doctor::SuiteConfiguration& configuration();
  std::set<std::string> own_of(const std::vector<Target>& all, bool is_import) const;

  struct OfRoute {
    doctor::Once<std::vector<BgpPath>> vpn_paths{};
    doctor::Once<std::vector<BgpPath>> vrf_paths{};
    doctor::Once<std::vector<RibEntry>> rib{};
    doctor::Once<std::vector<RibEntry>> core_routes{};
    doctor::Once<std::vector<kernel::KernelRoute>> kernel_routes{};
    doctor::Once<std::vector<MibRoute>> mib_routes{};
  };

  std::optional<Prefix> route_;
  OfRoute of_route_{};
  std::optional<Failure> timeout_{};  // of the suite
  doctor::Once<bool> runs_bgp_;
  doctor::Once<std::set<std::string>> vpn_labels_;
  doctor::Once<std::optional<VrfFacts>> vrf_;
  doctor::Once<std::vector<Target>> targets_;
  doctor::Once<std::vector<Target>> mib_targets_;
  std::map<std::string, doctor::Once<std::map<std::string, std::set<std::string>>>> exporters_;
};

// "65000:1 65000:2", or "none".
std::string list_of(const std::set<std::string>& names);

}  // namespace cli::explain

// The VRFs of the suite against those of the kernel.
#include <fmt/format.h>

#include <map>
#include <set>
#include <string_view>

#include "cli/doctor/facts.h"
#include "cli/doctor/names.h"
#include "cli/doctor/suite_checks.h"
#include "cli/doctor/suite_saved.h"
#include "cli/show/tables.h"
#include "cli/system/program.h"

namespace cli::doctor {

namespace {

// Why VRFs are VPNs, and what could not be asked about that.
struct Evidence {
  std::map<std::string, std::string> reasons;  // by the name of the VRF
  std::string unknown;
  std::string fix;
};

void add_saved(Facts& facts, Evidence* evidence) try {
  const std::string file = find_saved_file(facts);
  if (file.empty()) return;
  for (const std::string& vrf : parse_suite_configuration(read_saved_file(file)).used_vrfs)
    evidence->reasons.emplace(vrf, file + " names it");
} catch (const NotPossible& reason) {
  evidence->unknown = reason.what();
  evidence->fix = reason.fix();
}

void add_effective(Facts& facts, Evidence* evidence) try {
  const Session& session = facts.session;
  const auto client = connect_to_daemon(session);
  const auto take_vrf = [evidence](const mpls_vpn_mib_vrf& row) {
    if (!text_or_empty(row.rd).empty())
      evidence->reasons[text_or_empty(row.name)] = "it has a route distinguisher";
    return true;
  };
  RowWalk<mpls_vpn_mib_vrf>(session, *client, kVrfTable, take_vrf).run(kVrfTable.first_path(""));
  const auto take_target = [evidence](const mpls_vpn_mib_rt& row) {
    evidence->reasons.emplace(text_or_empty(row.vrfName), "it has route targets");
  };
  walk_rows_of<mpls_vpn_mib_rt>(session, *client, kRouteTargetTable, "", {take_target});
} catch (const Failure& failure) {
  evidence->unknown = failure.what();
}

Finding unused_vpn(const std::string& name, const std::string& reason) {
  return {Level::kWarning,
          fmt::format("the suite's running configuration does not name VRF {}, but {}: it exchanges no VPN "
                      "routes",
                      name, reason),
          fmt::format("configure \"router bgp AS vrf {}\", or mplsvpn doctor --skip vrf-not-in-suite", name)};
}

// Nothing says that these VRFs are VPNs.
Finding no_vpns(const std::set<std::string>& names, const Evidence& evidence) {
  if (evidence.unknown.empty())
    return {Level::kOk, fmt::format("not in the suite's configuration, and no VPNs: {}", some_of(names)), ""};
  return {Level::kNotPossible,
          fmt::format("not in the suite's configuration: {}; whether they are VPNs is unknown: {}",
                      some_of(names), evidence.unknown),
          evidence.fix};
}

}  // namespace

Findings check_suite_vrfs(Facts& facts) {
  Findings findings;
  std::set<std::string_view> devices;
  for (const Vrf& vrf : facts.vrfs()) devices.insert(vrf.name);
  for (const std::string& name : facts.suite_configuration().vrfs) {
    if (devices.contains(name)) continue;
    findings.push_back(
        {Level::kError,
         fmt::format("the suite has VRF {} in its configuration, and the kernel has no such device", name),
         fmt::format("ip link add {0} type vrf table NUMBER; ip link set dev {0} up", shell_word(name))});
  }
  return findings;
}

// A VRF without route distinguisher and route targets, such as one for management, is not a VPN.
Findings check_unused_vrfs(Facts& facts) {
  facts.require_kernel_source();
  std::set<std::string> unused;
  const auto& known = facts.suite_configuration().used_vrfs;
  for (const Vrf& vrf : facts.vrfs()) {
    if (!known.contains(vrf.name)) unused.insert(vrf.name);
  }
  if (unused.empty()) return {};
  Evidence evidence;
  add_effective(facts, &evidence);
  add_saved(facts, &evidence);
  Findings findings;
  for (const auto& [name, reason] : evidence.reasons) {
    if (unused.erase(name) > 0) findings.push_back(unused_vpn(name, reason));
  }
  if (!unused.empty()) findings.push_back(no_vpns(unused, evidence));
  return findings;
}

}  // namespace cli::doctor

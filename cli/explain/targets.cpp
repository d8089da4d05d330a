#include "cli/explain/targets.h"

#include "cli/show/tables.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/config/vrf_config.h"

namespace cli::explain {

namespace {

// The rows name families as the suite does; those of EVPN have none.
std::string family_of(const mpls_vpn_mib_rt& row) {
  const std::string text = text_or_empty(row.description);
  if (text.starts_with("IPv4")) return "ipv4";
  return text.starts_with("IPv6") ? "ipv6" : "";
}

}  // namespace

std::string plain_target(std::string_view text) {
  const auto parsed = vrf_config::parse_target(text);
  return parsed ? vrf_config::target_text(*parsed) : std::string(text);
}

std::vector<Target> read_targets(const Session& session) {
  const auto client = connect_to_daemon(session);
  std::vector<Target> targets;
  const auto add = [&targets](const mpls_vpn_mib_rt& row) {
    const std::string target = plain_target(text_or_empty(row.rt));
    for (const bool is_import : {true, false}) {
      if ((row.type & (is_import ? kRtImport : kRtExport)) == 0) continue;
      targets.push_back({text_or_empty(row.vrfName), target, family_of(row), is_import});
    }
  };
  walk_rows_of<mpls_vpn_mib_rt>(session, *client, kRouteTargetTable, "", {add});
  return targets;
}

std::vector<Target> targets_of(const doctor::SuiteConfiguration& configuration) {
  constexpr std::string_view kImport = "import ";
  std::vector<Target> targets;
  for (const doctor::SuiteFamily& family : configuration.families) {
    for (const std::string& target : family.targets) {
      const bool is_import = target.starts_with(kImport);
      targets.push_back({family.vrf, plain_target(target.substr(target.find(' ') + 1)),
                         family.family.substr(0, family.family.find(' ')), is_import,
                         is_import ? family.imports : family.exports});
    }
  }
  return targets;
}

}  // namespace cli::explain

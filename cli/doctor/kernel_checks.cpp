#include "cli/doctor/kernel_checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "cli/doctor/facts.h"
#include "cli/doctor/names.h"
#include "cli/system/program.h"

namespace cli::doctor {

namespace {

constexpr std::size_t kShownLinks = 8;

// VPN routes, local or received, need labels; those with segment identifiers do not.
bool uses_labels(Facts& facts) {
  if (count_label_routes() > 0) return true;
  const auto& families = facts.suite_configuration().families;
  return std::ranges::any_of(families, [](const auto& family) { return family.exports && family.has_label; });
}

// Links outside of VRFs on which packets from other routers may arrive.
std::vector<std::string> core_links(Facts& facts) {
  std::vector<std::string> names;
  for (const kernel::LinkSeen& each : facts.links()) {
    const bool is_core =
        !each.link.is_vrf && each.link.vrf_master == 0 && each.link.name != "lo" && each.link.up;
    if (is_core) names.push_back(each.link.name);
  }
  return names;
}

bool accepts_labels(const std::string& link) {
  return read_sysctl("net/mpls/conf/" + link + "/input") == "1";
}

// Links through which packets with labels leave, and that accept none from the router at their other end.
Findings deaf_links(Facts& facts, const std::set<std::uint32_t>& sending) {
  Findings findings;
  for (const auto& [link, unused] : facts.links()) {
    if (!sending.contains(link.index) || accepts_labels(link.name)) continue;
    std::string name = link.name;
    std::ranges::replace(name, '.', '/');
    findings.push_back(
        {Level::kError,
         fmt::format("labelled packets leave through interface {}, which accepts none: what the router "
                     "at its other end sends is lost",
                     link.name),
         fmt::format("sysctl -w net.mpls.conf.{}.input=1", shell_word(name))});
  }
  return findings;
}

// Which of the interfaces are of the core, only the operator knows. sysctl(8) writes the dots of a name as
// slashes.
std::string acceptance_fix(std::vector<std::string> links) {
  for (std::string& name : links) {
    std::ranges::replace(name, '.', '/');
    name = shell_word(name);
  }
  const std::string fix = "sysctl -w net.mpls.conf.INTERFACE.input=1 for each interface toward the core";
  return links.empty() ? fix : fix + "; INTERFACE is one of " + some_of(links, kShownLinks);
}

}  // namespace

Findings check_vrf_devices(Facts& facts) {
  Findings findings;
  for (const Vrf& vrf : facts.vrfs()) {
    if (vrf.is_enabled) continue;
    findings.push_back({Level::kError,
                        fmt::format("the device of VRF {} is down: the VRF forwards no packets", vrf.name),
                        fmt::format("ip link set dev {} up", shell_word(vrf.name))});
  }
  return findings;
}

Findings check_vrf_members(Facts& facts) {
  Findings findings;
  for (const Vrf& vrf : facts.vrfs()) {
    if (!vrf.members.empty()) continue;
    findings.push_back({Level::kWarning, fmt::format("VRF {} has no interface: its state is down", vrf.name),
                        fmt::format("ip link set dev INTERFACE master {}", shell_word(vrf.name))});
  }
  return findings;
}

Findings check_shared_tables(Facts& facts) {
  std::map<std::uint32_t, std::string> first;
  Findings findings;
  for (const Vrf& vrf : facts.vrfs()) {
    const auto [known, is_new] = first.emplace(vrf.table, vrf.name);
    if (is_new) continue;
    findings.push_back(
        {Level::kError,
         fmt::format("VRFs {} and {} share table {}: each forwards by the routes of both", known->second,
                     vrf.name, vrf.table),
         fmt::format("ip link del {0}; ip link add {0} type vrf table NUMBER", shell_word(vrf.name))});
  }
  return findings;
}

Findings check_labels(Facts& facts) {
  facts.vrfs();
  if (!uses_labels(facts)) return {};
  const std::string labels = read_sysctl("net/mpls/platform_labels");
  if (labels.empty()) {
    return {{Level::kError, "VPN routes have labels, but the kernel's module mpls_router is not loaded",
             "modprobe -a mpls_router mpls_iptunnel"}};
  }
  if (labels == "0") {
    return {{Level::kError, "net.mpls.platform_labels is 0: the kernel accepts no label route",
             "sysctl -w net.mpls.platform_labels=1048575"}};
  }
  std::vector<std::uint32_t> tables;
  for (const Vrf& vrf : facts.vrfs()) tables.push_back(vrf.table);
  if (const auto sending = read_label_links(tables); !sending.empty()) return deaf_links(facts, sending);
  const std::vector<std::string> links = core_links(facts);
  if (std::ranges::any_of(links, accepts_labels)) return {};
  return {{Level::kError,
           "no interface outside of VRFs accepts labelled packets: what other routers send is lost",
           acceptance_fix(links)}};
}

}  // namespace cli::doctor

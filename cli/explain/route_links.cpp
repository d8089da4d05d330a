#include "cli/explain/route_links.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "cli/doctor/check.h"
#include "cli/explain/evidence.h"
#include "cli/explain/kernel_routes.h"
#include "cli/system/program.h"

namespace cli::explain {

namespace {

constexpr char kOfVrf[] = "the route is of the VRF itself";
constexpr char kNoPath[] = "no path of BGP can be used";

std::string look_at(Evidence& evidence, const std::string& command) {
  return fmt::format("{} -c {}", evidence.facts.suite.words(), shell_word(command));
}

// "10.255.0.2 with RD 65000:110", or "VRF blue".
std::string origin_of(const BgpPath& path) {
  if (path.is_of_this_router())
    return path.next_hop_vrf.empty() ? "this router" : fmt::format("VRF {}", path.next_hop_vrf);
  const std::string router = path.neighbor.empty() ? path.next_hop : path.neighbor;
  return path.rd.empty() ? router : fmt::format("{} with RD {}", router, path.rd);
}

std::string origins_of(const std::vector<BgpPath>& paths) {
  std::set<std::string> names;
  for (const BgpPath& path : paths) names.insert(origin_of(path));
  return fmt::format("{}", fmt::join(names, ", "));
}

// Those of the VRF if it has imported by other means than its route targets.
std::vector<BgpPath> importable_paths(Evidence& evidence) {
  std::vector<BgpPath> paths = evidence.vpn_paths();
  std::erase_if(paths, [&](const BgpPath& path) { return !evidence.is_imported(path); });
  return paths.empty() ? evidence.vrf_paths() : paths;
}

// Of those that the suite has for the prefix in the VRF.
std::string protocols(Evidence& evidence) {
  std::set<std::string> names;
  for (const RibEntry& entry : evidence.rib()) names.insert(entry.protocol);
  if (!evidence.vrf_paths().empty()) names.insert("bgp");
  return list_of(names);
}

Judgement judge_unused(Evidence& evidence) {
  const bool is_of_bgp = !evidence.vrf_paths().empty();
  return broken(
      fmt::format("the suite has {} and does not use it: {}", evidence.prefix_name(), protocols(evidence)),
      look_at(evidence, is_of_bgp ? evidence.of_bgp_vrf() : evidence.of_family("show {} route vrf {}")));
}

const RibEntry* selected(Evidence& evidence) {
  const auto found = std::ranges::find_if(evidence.rib(), &RibEntry::is_selected);
  return found == evidence.rib().end() ? nullptr : &*found;
}

bool is_of_vrf(Evidence& evidence) {
  const Origin origin = evidence.origin();
  return origin == Origin::kVrf || origin == Origin::kInactive;
}

Judgement judge_own_source(Evidence& evidence) {
  if (const RibEntry* const entry = selected(evidence); entry != nullptr && entry->protocol != "bgp")
    return ok(fmt::format("{}: {}", kOfVrf, entry->protocol));
  if (evidence.vrf_paths().empty()) return ok("the kernel has it, not from the suite");
  const auto& paths = evidence.vrf_paths();
  const auto best = std::ranges::find_if(paths, &BgpPath::is_best);
  return ok(fmt::format("{}: BGP from {}", kOfVrf, origin_of(best == paths.end() ? paths.front() : *best)));
}

// No command to paste: with the targets of another customer's VPN it would join the two.
Judgement judge_other_vpns(Evidence& evidence) {
  const auto& paths = evidence.vpn_paths();
  const std::string& vrf = evidence.request.vrf;
  std::set<std::string> theirs;
  for (const BgpPath& path : paths) theirs.insert(path.targets.begin(), path.targets.end());
  const std::string own = list_of(evidence.own_targets(true));
  const std::string text = fmt::format(
      "{} is not announced with a route target that VRF {} imports ({}{}); other VPNs have the prefix with "
      "{} (from {}){}",
      evidence.prefix_name(), vrf, own, evidence.difference_of_mib(true), list_of(theirs), origins_of(paths),
      evidence.session_problem(evidence.family_name()));
  if (evidence.configured_family() == nullptr)
    return broken(text, fmt::format("configure \"router bgp AS vrf {}\" with the address family {} unicast",
                                    vrf, evidence.family_name()));
  return broken(text,
                fmt::format("the router with this VPN's route announces it with one of them; or, only if the "
                            "route of the other VPN belongs to VRF {}, \"rt vpn import\" with its route "
                            "target and all that are there already ({})",
                            vrf, own));
}

Judgement judge_imported(Evidence& evidence, const BgpPath& path) {
  const doctor::SuiteFamily* const family = evidence.configured_family();
  if (family != nullptr && !family->imports)
    return broken(fmt::format("VRF {} does not import {} VPN routes", family->vrf, family->family),
                  evidence.configure(*family, "import vpn"));
  std::set<std::string> matching = evidence.own_targets(true);
  std::erase_if(matching, [&](const auto& each) {
    return std::ranges::find(path.targets, each) == path.targets.end();
  });
  const std::string how = matching.empty() ? "from it" : list_of(matching);
  return ok(fmt::format("the VRF imports {}, which {} exports{}", how, origin_of(path),
                        evidence.difference_of_mib(true)));
}

Judgement without_label(Evidence& evidence, const RibEntry& route, const BgpPath& path) {
  if (!route.has_label && path.segment.empty())
    return broken(
        fmt::format("the core's route {} to the next hop {} has no label: BGP does not use the path",
                    route.prefix, path.next_hop),
        "distribute labels in the core (LDP, segment routing, or a static label), then: " +
            look_at(evidence, fmt::format("show mpls table")));
  return broken(fmt::format("BGP considers the next hop {} invalid, although the core has {}",
                            path.resolved(), route.prefix),
                look_at(evidence, "show bgp nexthop"));
}

// Of the path that may be imported; of the VRF's own copy of it, once there is one.
bool is_usable(Evidence& evidence, const BgpPath& path) {
  return evidence.vrf_paths().empty() ? path.is_valid
                                      : std::ranges::any_of(evidence.vrf_paths(), &BgpPath::is_valid);
}

// BGP reaches next hops by a default route only in some versions, and if it has a label.
bool is_unused_default(Evidence& evidence, const RibEntry& of_core) {
  return of_core.prefix.ends_with("/0") && std::ranges::none_of(evidence.vrf_paths(), &BgpPath::is_valid);
}

// What to add to a text of a route that the kernel lacks.
std::string rejection(Evidence& evidence) {
  try {
    const RibEntry* const entry = selected(evidence);
    return entry != nullptr && entry->is_rejected ? ": the kernel rejected it" : "";
  } catch (const Failure&) {  // the link of the source has the reason
    return "";
  }
}

// What the suite has selected is in the kernel, and the route there is the suite's. ok() if the suite has
// selected none, or cannot be asked.
Judgement judge_installed(Evidence& evidence, const std::vector<kernel::KernelRoute>& routes) {
  const RibEntry* entry = nullptr;
  try {
    entry = selected(evidence);
  } catch (const Failure&) {  // the link of the source has the reason
  }
  if (entry == nullptr) return ok("");
  const std::string shown = look_at(evidence, evidence.of_family("show {} route vrf {}"));
  if (!entry->is_installed)
    return broken(
        fmt::format("the suite has selected {}, and {}; table {} has another owner's: {}", entry->protocol,
                    entry->is_rejected ? "the kernel rejected it" : "it is not installed",
                    evidence.device()->table, route_text(evidence, routes.front())),
        shown);
  const auto best = std::ranges::min_element(routes, {}, &kernel::KernelRoute::priority);
  const char* const lost = discarding(best->type);
  if (lost == nullptr || entry->discards) return ok("");
  return broken(fmt::format("a route of another owner in table {} {}, although the suite has installed {}",
                            evidence.device()->table, lost, entry->protocol),
                shown);
}

bool kernel_has_it_without_row(Evidence& evidence) {
  try {
    const auto& routes = evidence.kernel_routes();
    return !routes.empty() && std::ranges::all_of(routes, is_without_row);
  } catch (const Failure&) {  // the link of the kernel has the reason
  } catch (const doctor::NotPossible&) {
  }
  return false;
}

}  // namespace

Judgement judge_source(Evidence& evidence) {
  const std::string prefix = evidence.prefix_name();
  switch (evidence.origin()) {
    case Origin::kVrf:
      return judge_own_source(evidence);
    case Origin::kVpn:
      return ok(fmt::format("BGP has it as VPN route from {}", origins_of(importable_paths(evidence))));
    case Origin::kOtherVpn:
      return ok(
          fmt::format("BGP has it as VPN route of other VPNs, from {}", origins_of(evidence.vpn_paths())));
    case Origin::kInactive:
      return judge_unused(evidence);
    case Origin::kNowhere:
      break;
  }
  return broken(
      fmt::format("neither VRF {} nor the VPN routes of BGP have {}{}", evidence.request.vrf, prefix,
                  evidence.session_problem(evidence.family_name())),
      fmt::format("check that the router that has it announces it, and the sessions: {}",
                  look_at(evidence, fmt::format("show bgp {} vpn summary", evidence.family_name()))));
}

Judgement judge_targets(Evidence& evidence) {
  if (is_of_vrf(evidence)) return not_checked(kOfVrf);
  const Origin origin = evidence.origin();
  if (origin == Origin::kOtherVpn) return judge_other_vpns(evidence);
  if (origin != Origin::kVpn) return not_checked("no route has route targets");
  if (const BgpPath* const path = evidence.importable()) return judge_imported(evidence, *path);
  return ok(fmt::format("the VRF imports from {}", origins_of(evidence.vrf_paths())));
}

Judgement judge_next_hop(Evidence& evidence) {
  if (is_of_vrf(evidence)) return not_checked(kOfVrf);
  const BgpPath* const path = evidence.path();
  if (path == nullptr) return not_checked(kNoPath);
  if (path->is_of_this_router()) return not_checked(fmt::format("the route is of {}", origin_of(*path)));
  const auto& routes = evidence.core_routes();
  const auto used = std::ranges::find_if(routes, &RibEntry::is_selected);
  const std::string& to = path->resolved();
  const bool is_ipv6 = to.find(':') != std::string::npos;
  const std::string shown = look_at(evidence, fmt::format("show {} route {}", is_ipv6 ? "ipv6" : "ip", to));
  if (used == routes.end() || is_unused_default(evidence, *used))
    return broken(fmt::format("the core has no route to the {} {}{}",
                              path->segment.empty() ? "next hop" : "segment identifier", to,
                              used == routes.end() ? "" : " but a default route"),
                  fmt::format("route to it in the core (OSPF, IS-IS, or a static route), then: {}", shown));
  if (!is_usable(evidence, *path)) return without_label(evidence, *used, *path);
  return ok(fmt::format("the core reaches {} by {}, {}: {}", to, used->prefix, used->protocol,
                        used->next_hop.empty() ? "connected" : used->next_hop));
}

Judgement judge_best_path(Evidence& evidence) {
  const Origin origin = evidence.origin();
  const RibEntry* const entry = selected(evidence);
  if (origin == Origin::kVrf && entry != nullptr && entry->protocol != "bgp")
    return ok(fmt::format("the suite has selected {}", entry->protocol));
  const auto& paths = evidence.vrf_paths();
  if (paths.empty() && evidence.path() == nullptr) return not_checked(kNoPath);
  const auto best = std::ranges::find_if(paths, &BgpPath::is_best);
  const std::string shown = look_at(evidence, evidence.of_bgp_vrf());
  if (paths.empty()) return broken("BGP has not imported the path: a route map or filter rejects it", shown);
  if (best == paths.end()) return broken("BGP has selected no path of the VRF as the best", shown);
  if (entry == nullptr)
    return broken("BGP has a best path, and the suite's routing table has not selected it",
                  look_at(evidence, evidence.of_family("show {} route vrf {}")));
  return ok(fmt::format("the best of {} is from {}: {}", paths.size(), origin_of(*best),
                        best->selection.empty() ? "no reason stated" : best->selection));
}

Judgement judge_label(Evidence& evidence) {
  if (is_of_vrf(evidence)) return not_checked(kOfVrf);
  const BgpPath* const path = evidence.path();
  if (path == nullptr) return not_checked(kNoPath);
  if (path->is_of_this_router())
    return not_checked(fmt::format("packets go to {} without a label", origin_of(*path)));
  if (!path->segment.empty())
    return ok(
        fmt::format("packets leave with a segment identifier of {}: {}", origin_of(*path), path->segment));
  if (std::ranges::any_of(evidence.rib(), &RibEntry::has_segment))
    return ok("packets leave with a segment identifier");
  if (path->label)
    return ok(fmt::format("packets leave with label {} of {}", *path->label, origin_of(*path)));
  return broken(fmt::format("the path from {} has neither label nor segment identifier", origin_of(*path)),
                "on that router: label vpn export auto");
}

Judgement judge_kernel(Evidence& evidence) {
  const auto& routes = evidence.kernel_routes();
  const std::string prefix = evidence.prefix_name();
  const std::uint32_t table = evidence.device()->table;
  if (routes.empty())
    return broken(fmt::format("table {} of the kernel has no route {}{}", table, prefix, rejection(evidence)),
                  look_at(evidence, evidence.of_family("show {} route vrf {}")));
  if (Judgement problem = judge_installed(evidence, routes); problem.state == State::kBroken) return problem;
  if (std::ranges::all_of(routes, is_dead))
    return broken(fmt::format("the link of the route {} in table {} is down: {}", prefix, table,
                              route_text(evidence, routes.front())),
                  "ip link set up what is down, or check the cable");
  return ok(fmt::format("table {}: {}", table, route_text(evidence, routes.front())));
}

Judgement judge_row(Evidence& evidence) {
  const std::vector<MibRoute>& rows = evidence.mib_routes();
  if (rows.empty() && kernel_has_it_without_row(evidence))
    return not_checked("the MIB has no rows for addresses of this router and for link-local prefixes");
  if (rows.empty())
    return broken(
        fmt::format("the MIB has no row for {}", evidence.prefix_name()),
        fmt::format("mplsvpn show routes {}; mplsvpn show status", shell_word(evidence.request.vrf)));
  const MibRoute& first = rows.front();
  const std::string next_hop = "next hop " + (first.next_hop.empty() ? "none" : first.next_hop);
  return ok(fmt::format("{} in the MIB: {}, protocol {}",
                        rows.size() == 1 ? "a row" : std::to_string(rows.size()) + " rows",
                        first.discards == nullptr ? next_hop : first.discards, first.protocol));
}

}  // namespace cli::explain

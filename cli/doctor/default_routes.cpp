// Whether the lookup of a packet ends in the table of its VRF. The kernel tries the default routes of the
// table by metric, without those whose paths are all dead; "throw" continues with the next rule, as no route
// does.
#include <fmt/format.h>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>

#include <algorithm>

#include "cli/doctor/facts.h"
#include "cli/doctor/kernel_checks.h"
#include "cli/system/program.h"
#include "platform/core/address/address.h"

namespace cli::doctor {

namespace {

using inet::Family;
using Routes = std::vector<kernel::KernelRoute>;

constexpr std::uint32_t kLastMetric = 4278198272;  // after those of routing protocols

bool is_for_all_packets(const kernel::KernelRoute& route) {
  return route.prefix_length == 0 && route.source_length == 0 && route.tos == 0;
}

// In messages a path whose link has no carrier is dead only if the kernel ignores such paths.
bool is_dead_route(const kernel::KernelRoute& route) {
  return !route.paths.empty() && std::ranges::all_of(route.paths, &kernel::RoutePath::dead);
}

Routes default_routes(const Routes& routes, Family family) {
  Routes defaults;
  std::ranges::copy_if(routes, std::back_inserter(defaults), [family](const auto& route) {
    return route.family == family && !route.cached && is_for_all_packets(route);
  });
  std::ranges::stable_sort(defaults, {}, &kernel::KernelRoute::priority);
  return defaults;
}

bool has_family(const Routes& routes, Family family) {
  return std::ranges::any_of(routes, [family](const auto& route) { return route.family == family; });
}

bool discards(const LookupRule& rule) {
  return rule.action == FR_ACT_UNREACHABLE || rule.action == FR_ACT_BLACKHOLE ||
         rule.action == FR_ACT_PROHIBIT;
}

bool leads_to_main(const LookupRule& rule) {
  return rule.action == FR_ACT_TO_TBL && !rule.is_l3mdev &&
         (rule.table == RT_TABLE_MAIN || rule.table == RT_TABLE_DEFAULT);
}

// A rule may end the lookups of all VRFs before the main table.
bool ends_by_rule(Family family) {
  const std::vector<LookupRule> rules = read_rules(family);
  return std::ranges::any_of(rules, [&rules](const LookupRule& rule) {
    if (!rule.is_l3mdev || rule.has_selector || !discards(rule)) return false;
    return std::ranges::none_of(rules, [&rule](const LookupRule& other) {
      return leads_to_main(other) && other.priority <= rule.priority;
    });
  });
}

Finding leaving(const Vrf& vrf, Family family, const std::string& cause, const char* verb,
                std::uint32_t metric) {
  const bool is_ipv4 = family == Family::kIpv4;
  return {
      Level::kWarning,
      fmt::format("table {} of VRF {} has {}: {} packets that match no {}route of the VRF are looked up in "
                  "the main table",
                  vrf.table, vrf.name, cause, is_ipv4 ? "IPv4" : "IPv6",
                  cause == "no default route" ? "" : "other "),
      fmt::format("ip {} route {} vrf {} unreachable default metric {}", is_ipv4 ? "-4" : "-6", verb,
                  shell_word(vrf.name), metric)};
}

Findings judge_defaults(const Vrf& vrf, Family family, const Routes& defaults) {
  const auto decides = std::ranges::find_if_not(defaults, is_dead_route);
  if (decides != defaults.end() && decides->type != RTN_THROW) return {};
  if (ends_by_rule(family)) return {};
  if (decides != defaults.end())
    return {leaving(vrf, family, "a default route of type throw", "replace", decides->priority)};
  const char* const cause =
      defaults.empty() ? "no default route" : "no default route whose link is up and has a carrier";
  return {leaving(vrf, family, cause, "add", kLastMetric)};
}

}  // namespace

// A family without any route in the table is not used in the VRF.
Findings check_default_routes(Facts& facts) {
  Findings findings;
  for (const Vrf& vrf : facts.vrfs()) {
    const Routes routes = read_routes(vrf.table);
    for (const Family family : {Family::kIpv4, Family::kIpv6}) {
      if (!has_family(routes, family)) continue;
      std::ranges::move(judge_defaults(vrf, family, default_routes(routes, family)),
                        std::back_inserter(findings));
    }
  }
  return findings;
}

}  // namespace cli::doctor

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <thread>

#include "cli/doctor/facts.h"
#include "cli/doctor/suite_checks.h"
#include "cli/system/program.h"
#include "platform/core/address/address.h"

namespace cli::doctor {

namespace {

constexpr std::size_t kShownRoutes = 5;
constexpr std::chrono::seconds kInstallation{1};  // zebra installs a route a moment after it selected it

struct Prefix {
  inet::Family family;
  inet::Octets octets;
  unsigned length;
  auto operator<=>(const Prefix&) const = default;
};

using Prefixes = std::set<std::string>;
using MissingByVrf = std::map<std::string, Prefixes>;

std::set<Prefix> prefixes_of(std::uint32_t table) {
  std::set<Prefix> prefixes;
  for (const kernel::KernelRoute& route : read_routes(table))
    prefixes.insert({route.family, route.destination, route.prefix_length});
  return prefixes;
}

std::optional<Prefix> read_prefix(const std::string& text) {
  const std::optional<inet::Prefix> prefix = inet::parse_prefix(text);
  if (!prefix) return std::nullopt;
  return Prefix{prefix->address.family, prefix->address.octets, prefix->length};
}

bool is_selected(const Json& paths) {
  return std::ranges::any_of(paths, [](const Json& path) {
    return path.is_object() && path.value("selected", false) && path.value("protocol", "") != "kernel";
  });
}

// The prefixes that the suite has selected for the VRF and that are not in the kernel's table.
Prefixes missing_routes(Facts& facts, const Vrf& vrf) {
  const std::set<Prefix> present = prefixes_of(vrf.table);
  Prefixes missing;
  for (const char* command : {"show ip route vrf {} json", "show ipv6 route vrf {} json"}) {
    const Json routes = facts.suite.ask_json(fmt::format(fmt::runtime(command), vrf.name));
    if (!routes.is_object()) continue;
    for (const auto& [text, paths] : routes.items()) {
      const std::optional<Prefix> prefix = read_prefix(text);
      if (prefix && paths.is_array() && is_selected(paths) && !present.contains(*prefix))
        missing.insert(text);
    }
  }
  return missing;
}

// A VRF that cannot be read is a finding of its own.
MissingByVrf look(Facts& facts, const std::vector<Vrf>& vrfs, Findings* findings) {
  MissingByVrf missing;
  for (const Vrf& vrf : vrfs) {
    try {
      if (Prefixes of_vrf = missing_routes(facts, vrf); !of_vrf.empty())
        missing[vrf.name] = std::move(of_vrf);
    } catch (const Failure& failure) {
      findings->push_back({Level::kNotPossible, fmt::format("VRF {}: {}", vrf.name, failure.what()), ""});
    }
  }
  return missing;
}

// What is missing both times; only VRFs with missing routes are read again.
MissingByVrf look_again(Facts& facts, MissingByVrf first, Findings* findings) {
  if (first.empty()) return first;
  std::this_thread::sleep_for(kInstallation);
  std::vector<Vrf> vrfs;
  std::ranges::copy_if(facts.vrfs(), std::back_inserter(vrfs),
                       [&first](const Vrf& vrf) { return first.contains(vrf.name); });
  MissingByVrf second = look(facts, vrfs, findings);
  for (auto& [vrf, prefixes] : second)
    std::erase_if(prefixes, [&of_vrf = first[vrf]](const auto& prefix) { return !of_vrf.contains(prefix); });
  std::erase_if(second, [](const auto& entry) { return entry.second.empty(); });
  return second;
}

std::string shown(const Prefixes& prefixes) {
  std::string text;
  std::size_t count = 0;
  for (const std::string& prefix : prefixes) {
    if (++count > kShownRoutes) break;
    text += (text.empty() ? "" : ", ") + prefix;
  }
  if (prefixes.size() > kShownRoutes) text += fmt::format(" and {} more", prefixes.size() - kShownRoutes);
  return text;
}

}  // namespace

Findings check_suite_routes(Facts& facts) {
  Findings findings;
  const MissingByVrf first = look(facts, facts.vrfs(), &findings);
  for (const auto& [vrf, prefixes] : look_again(facts, first, &findings)) {
    findings.push_back(
        {Level::kError,
         fmt::format("VRF {}: the suite has selected routes that the kernel does not have: {}", vrf,
                     shown(prefixes)),
         fmt::format("{} -c {}", facts.suite.words(), shell_word("show ip route vrf " + vrf))});
  }
  return findings;
}

}  // namespace cli::doctor

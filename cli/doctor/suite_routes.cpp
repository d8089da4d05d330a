#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <thread>

#include "cli/doctor/facts.h"
#include "cli/doctor/names.h"
#include "cli/doctor/suite_checks.h"
#include "cli/system/program.h"
#include "platform/core/address/address.h"

namespace cli::doctor {

namespace {

constexpr std::array kFamilies = {"ip", "ipv6"};
constexpr std::size_t kMostVrfs = 2000;  // in one run of the shell: 200 kB of arguments
constexpr unsigned kMostFailures = 10;
// The time for all VRFs, in times for an answer.
constexpr int kAnswersOfFirstLook = 6;
constexpr int kAnswersOfSecondLook = 2;
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

std::vector<std::string> commands_for(std::span<const Vrf> vrfs) {
  std::vector<std::string> commands;
  for (const Vrf& vrf : vrfs) {
    for (const char* family : kFamilies)
      commands.push_back(fmt::format("show {} route vrf {} json", family, vrf.name));
  }
  return commands;
}

// Compares what the suite has selected with what the kernel has, VRF by VRF while the suite answers.
class RouteLook {
 public:
  RouteLook(const Suite& suite, std::chrono::milliseconds patience)
      : suite_(suite), patience_(patience), deadline_(Clock::now() + patience) {}

  // A VRF that cannot be read is a finding of its own, and does not hide the others.
  void look(std::span<const Vrf> vrfs) {
    unsigned failures = 0;
    for (;;) {
      const auto batch = vrfs.first(std::min(vrfs.size(), kMostVrfs));
      const Suite::Answers answers = ask(batch);
      vrfs = vrfs.subspan(answers.problem.empty() ? batch.size() : answers.count / kFamilies.size());
      if (vrfs.empty()) return;
      if (answers.problem.empty()) continue;
      if (Clock::now() >= deadline_) return end_in_time(vrfs);
      if (++failures == kMostFailures) return leave(vrfs, answers.problem, "");
      refuse(vrfs.front(), answers.problem);
      vrfs = vrfs.subspan(1);
      if (vrfs.empty()) return;
    }
  }
  MissingByVrf missing{};
  Findings findings{};  // what was not looked at

 private:
  using Clock = std::chrono::steady_clock;

  Suite::Answers ask(std::span<const Vrf> batch) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now());
    return suite_.ask_each(commands_for(batch), std::max(left, std::chrono::milliseconds(1)),
                           [this, batch](std::size_t number, const Json& routes) {
                             compare(batch[number / kFamilies.size()], number % kFamilies.size() == 0,
                                     routes);
                           });
  }
  void compare(const Vrf& vrf, bool is_first, const Json& routes) try {
    if (is_first) present_ = prefixes_of(vrf.table);
    if (!routes.is_object()) return refuse(vrf, "the answer is not JSON");
    for (const auto& [text, paths] : routes.items()) {
      const std::optional<Prefix> prefix = read_prefix(text);
      if (prefix && paths.is_array() && is_selected(paths) && !present_.contains(*prefix))
        missing[vrf.name].insert(text);
    }
  } catch (const Failure& failure) {
    refuse(vrf, failure.what());
  }
  void refuse(const Vrf& vrf, const std::string& reason) {
    findings.push_back({Level::kNotPossible, fmt::format("VRF {}: {}", vrf.name, reason), ""});
  }
  void leave(std::span<const Vrf> vrfs, const std::string& reason, const std::string& fix) {
    findings.push_back(
        {Level::kNotPossible,
         fmt::format("{} VRFs, from {} on, were not checked: {}", vrfs.size(), vrfs.front().name, reason),
         fix});
  }
  void end_in_time(std::span<const Vrf> vrfs) {
    leave(vrfs, fmt::format("the suite did not answer for all within {} ms", patience_.count()),
          "mplsvpn doctor --only suite-routes --suite-timeout 10m");
  }

  const Suite& suite_;
  const std::chrono::milliseconds patience_;
  const Clock::time_point deadline_;
  std::set<Prefix> present_;
};

// What is missing both times; only VRFs with missing routes are read again.
MissingByVrf look_again(Facts& facts, const MissingByVrf& first, Findings* findings) {
  if (first.empty()) return first;
  std::this_thread::sleep_for(kInstallation);
  std::vector<Vrf> vrfs;
  std::ranges::copy_if(facts.vrfs(), std::back_inserter(vrfs),
                       [&first](const Vrf& vrf) { return first.contains(vrf.name); });
  RouteLook second(facts.suite, kAnswersOfSecondLook * facts.suite.patience());
  second.look(vrfs);
  std::ranges::move(second.findings, std::back_inserter(*findings));
  for (auto& [vrf, prefixes] : second.missing)
    std::erase_if(prefixes,
                  [&before = first.at(vrf)](const auto& prefix) { return !before.contains(prefix); });
  std::erase_if(second.missing, [](const auto& entry) { return entry.second.empty(); });
  return std::move(second.missing);
}

}  // namespace

Findings check_suite_routes(Facts& facts) {
  const std::vector<Vrf>& vrfs = facts.vrfs();
  if (!facts.suite.runs("zebra")) throw NotPossible("zebra does not run");
  if (vrfs.empty()) return {};
  RouteLook first(facts.suite, kAnswersOfFirstLook * facts.suite.patience());
  first.look(vrfs);
  Findings findings = std::move(first.findings);
  for (const auto& [vrf, prefixes] : look_again(facts, first.missing, &findings)) {
    findings.push_back(
        {Level::kError,
         fmt::format("VRF {}: the suite has selected routes that the kernel does not have: {}", vrf,
                     some_of(prefixes)),
         fmt::format("{} -c {}", facts.suite.words(), shell_word("show ip route vrf " + vrf))});
  }
  return findings;
}

}  // namespace cli::doctor

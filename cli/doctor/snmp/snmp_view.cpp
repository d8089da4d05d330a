// Whether snmpd lets managers see the MIB: by its answer, or by its configuration.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>

#include "cli/doctor/facts.h"
#include "cli/doctor/snmp/snmp_checks.h"
#include "cli/doctor/snmp/snmpd_access.h"
#include "cli/system/program.h"

namespace cli::doctor {

namespace {

const Oid kSubtree = {1, 3, 6, 1, 2, 1, 10, 166, 11};
constexpr char kThenRestart[] = ", then: systemctl restart snmpd";

// An object of the scalars and of each table.
std::vector<Oid> sample_of_the_mib() {
  const Oid objects[] = {{1, 1, 1, 0},       {1, 2, 1, 1, 4, 1}, {1, 2, 2, 1, 4, 1}, {1, 2, 3, 1, 4, 1},
                         {1, 2, 6, 1, 2, 1}, {1, 3, 1, 1, 1, 1}, {1, 4, 1, 1, 7, 1}};
  std::vector<Oid> sample;
  for (const Oid& object : objects) {
    sample.push_back(kSubtree);
    sample.back().insert(sample.back().end(), object.begin(), object.end());
  }
  return sample;
}

Findings judge_answer(const std::string& answer) {
  if (is_hidden(answer)) {
    return {{Level::kError,
             "snmpd answers \"No Such Object\": its view hides the MIB, or no sub-agent is registered",
             fmt::format("add \"view VIEW included {}\" to snmpd.conf{}", oid_text(kSubtree), kThenRestart)}};
  }
  if (("\n" + answer).find("\n" + oid_text(kSubtree)) != std::string::npos) return {};
  return {{Level::kError, "snmpd does not answer: " + last_line(answer), kAskingFix}};
}

// Lines are named by their place: a community is a secret.
std::string places(const std::vector<SnmpdSight>& sights, bool that_show) {
  std::vector<std::string> all;
  for (const SnmpdSight& each : sights) {
    if (each.sight != Sight::kUnknown && (each.sight == Sight::kAll) == that_show)
      all.push_back(each.grant->place);
  }
  return fmt::format("{}", fmt::join(all, ", "));
}

// One for each fix.
Findings obstacles(const std::vector<SnmpdSight>& sights, Sight best) {
  const bool is_partial = best == Sight::kSome;
  Findings findings;
  std::set<std::string> known;
  for (const SnmpdSight& each : sights) {
    if (each.sight != best || !known.insert(each.obstacle).second) continue;
    const std::string fix = each.fix + (each.fix.starts_with("systemctl") ? "" : kThenRestart);
    const auto same = std::ranges::find(findings, fix, &Finding::fix);
    if (same != findings.end() && each.grant->is_for_anyone) {
      same->text += "; " + each.obstacle;
      continue;
    }
    findings.push_back(
        {is_partial ? Level::kWarning : Level::kError,
         fmt::format(
             "{} {}",
             is_partial ? "managers see a part of the MIB only:" : "no manager sees the MIB:", each.obstacle),
         fix});
  }
  return findings;
}

// What this program cannot know makes the check impossible only if it may show the MIB to someone.
void require_knowledge(const std::vector<SnmpdSight>& sights) {
  const auto unknown = std::ranges::find(sights, Sight::kUnknown, &SnmpdSight::sight);
  if (unknown != sights.end()) throw NotPossible(unknown->obstacle, kAskingFix);
}

Findings judge_configuration(const std::string& path) {
  const SnmpdConfiguration configuration = read_snmpd_configuration(path);
  const std::vector<SnmpdSight> sights = judge_access(configuration, kSubtree, sample_of_the_mib());
  if (sights.empty()) {
    return {{Level::kError, path + " lets no manager read anything",
             advise_manager(configuration, kSubtree) + kThenRestart}};
  }
  const Sight best = std::ranges::max_element(sights, {}, &SnmpdSight::sight)->sight;
  if (best != Sight::kAll) {
    require_knowledge(sights);
    return obstacles(sights, best);
  }
  const std::string hiding = places(sights, false);
  if (hiding.empty()) return {};
  return {{Level::kOk, fmt::format("{} shows it; {} does not", places(sights, true), hiding), ""}};
}

}  // namespace

Findings check_view(Facts& facts) {
  if (facts.request.snmp.empty()) {
    require_programs();
    return judge_configuration(facts.request.snmpd_configuration);
  }
  return judge_answer(ask_snmpd(facts, "snmpget", oid_text(sample_of_the_mib().front())));
}

}  // namespace cli::doctor

#include "cli/doctor/route_checks.h"

#include <fmt/format.h>

#include "cli/doctor/facts.h"
#include "cli/output/times.h"
#include "cli/show/watched_vrfs.h"

namespace cli::doctor {

namespace {

using route_watch::WatchedPrefixRecord;
using route_watch::WatchedTableRecord;
using route_watch::WatchedVrfRecord;

std::string since_text(std::uint32_t changed) {
  return changed == 0 ? "" : " since " + local_time_text(changed);
}

Finding finding_of(const std::string& vrf, const WatchedTableRecord& table) {
  return {Level::kWarning,
          fmt::format("VRF {}: {} {} routes, below its low-water mark of {}{}", vrf, table.routes,
                      family_of(table), table.low, since_text(table.changed)),
          fmt::format("mplsvpn show routes {}, and the neighbors that send its routes", vrf)};
}

Finding finding_of(const std::string& vrf, const WatchedPrefixRecord& prefix) {
  const std::string text = text_or_empty(prefix.prefix);
  return {Level::kWarning,
          fmt::format("VRF {}: the watched prefix {} has no route{}", vrf, text, since_text(prefix.changed)),
          fmt::format("mplsvpn show routes {}, and the neighbor that sends {}", vrf, text)};
}

template <typename Take>
void for_each_watched(Facts& facts, Take take) {
  facts.status();  // a daemon that does not answer has its own check
  const auto client = connect_to_daemon(facts.session);
  walk_watched(facts.session, *client, "", take);
}

}  // namespace

Findings check_low_tables(Facts& facts) {
  Findings findings;
  for_each_watched(facts, [&findings](const WatchedVrfRecord& vrf) {
    for (const WatchedTableRecord& table : tables_in(vrf)) {
      if (table.is_low != 0) findings.push_back(finding_of(text_or_empty(vrf.vrf), table));
    }
  });
  return findings;
}

Findings check_watched_prefixes(Facts& facts) {
  Findings findings;
  std::uint64_t not_watched = 0;
  for_each_watched(facts, [&](const WatchedVrfRecord& vrf) {
    for (const WatchedPrefixRecord& prefix : prefixes_in(vrf)) {
      if (prefix.is_watched != 0 && prefix.is_present == 0)
        findings.push_back(finding_of(text_or_empty(vrf.vrf), prefix));
    }
    not_watched += vrf.not_watched;
  });
  if (not_watched > 0)
    findings.push_back({Level::kWarning,
                        fmt::format("{} prefixes beyond the limit are not watched", not_watched),
                        "mplsvpn show thresholds, then mplsvpn config delete vrf VRF watch PREFIX"});
  return findings;
}

}  // namespace cli::doctor

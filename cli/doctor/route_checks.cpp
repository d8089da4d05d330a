#include "cli/doctor/route_checks.h"

#include <fmt/format.h>

#include <utility>

#include "cli/doctor/facts.h"
#include "cli/output/times.h"
#include "cli/show/watched_vrfs.h"
#include "cli/system/program.h"

namespace cli::doctor {

namespace {

using route_watch::WatchedPrefixRecord;
using route_watch::WatchedTableRecord;
using route_watch::WatchedVrfRecord;

std::string since_text(std::uint32_t changed) {
  return changed == 0 ? "" : " since " + local_time_text(changed);
}

Finding finding_of(const std::string& vrf, const WatchedTableRecord& table) {
  if (table.is_unread != 0)
    return {Level::kWarning,
            fmt::format("VRF {}: its {} routes are not read for {} s; until they are, its low-water mark and "
                        "watched prefixes are not compared",
                        vrf, family_of(table), table.unread_for),
            "mplsvpn doctor --only sources; journalctl -u mpls_vpn_mib"};
  return {
      Level::kWarning,
      fmt::format("VRF {}: {} {} routes, below its low-water mark of {}{}", vrf, table.routes,
                  family_of(table), table.low, since_text(table.changed)),
      fmt::format("mplsvpn explain {}; then look at the neighbors that send its routes", shell_word(vrf))};
}

Finding finding_of(const std::string& vrf, const WatchedPrefixRecord& prefix) {
  const std::string text = text_or_empty(prefix.prefix);
  return {
      Level::kWarning,
      fmt::format("VRF {}: the watched prefix {} has no route{}", vrf, text, since_text(prefix.changed)),
      fmt::format("mplsvpn explain {} {}; then look at the neighbor that sends it", shell_word(vrf), text)};
}

bool is_overdue(const WatchedTableRecord& table) {
  return table.unread_for >= route_watch::kLongReading;
}

template <typename Take>
void for_each_watched(Facts& facts, Take take) {
  facts.status();  // a daemon that does not answer has its own check
  const auto client = connect_to_daemon(facts.session);
  walk_watched(facts.session, *client, "", take);
}

// Adds findings up to a number that a reader looks through, and says how many there are beyond it.
class BoundedFindings {
 public:
  // `what` are those beyond it, as text.
  explicit BoundedFindings(const char* what) : what_(what) {}
  template <typename Watched>
  void add(const WatchedVrfRecord& vrf, const Watched& watched) {
    if (++count_ <= kMostFindings) findings_.push_back(finding_of(text_or_empty(vrf.vrf), watched));
  }
  Findings take() {
    if (count_ > kMostFindings)
      findings_.push_back({Level::kWarning, fmt::format("and {} more {}", count_ - kMostFindings, what_),
                           "mplsvpn show thresholds"});
    return std::move(findings_);
  }

 private:
  static constexpr std::size_t kMostFindings = 20;
  const char* what_;
  std::size_t count_ = 0;
  Findings findings_;
};

}  // namespace

Findings check_low_tables(Facts& facts) {
  BoundedFindings findings("tables below their low-water marks or not read");
  for_each_watched(facts, [&findings](const WatchedVrfRecord& vrf) {
    for (const WatchedTableRecord& table : tables_in(vrf)) {
      if (table.is_unread != 0 ? is_overdue(table) : table.is_low != 0) findings.add(vrf, table);
    }
  });
  return findings.take();
}

Findings check_watched_prefixes(Facts& facts) {
  BoundedFindings absent("watched prefixes without a route");
  std::uint64_t not_watched = 0;
  for_each_watched(facts, [&](const WatchedVrfRecord& vrf) {
    for (const WatchedPrefixRecord& prefix : prefixes_in(vrf)) {
      if (is_absent(prefix)) absent.add(vrf, prefix);
    }
    not_watched += vrf.not_watched;
  });
  Findings findings = absent.take();
  if (not_watched > 0)
    findings.push_back({Level::kWarning,
                        fmt::format("{} prefixes beyond the limit are not watched", not_watched),
                        "mplsvpn show thresholds, then mplsvpn config delete vrf VRF watch PREFIX"});
  return findings;
}

}  // namespace cli::doctor

// The VRFs whose routes are watched: low-water marks, thresholds and prefixes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "cli/output/json_list.h"
#include "cli/session.h"
#include "platform/router/route_watch/records.h"

namespace cli {

// Of one VRF, of all when the name is empty. Throws Failure.
void walk_watched(const Session& session, kvtree::Client& client, const std::string& vrf,
                  const std::function<void(const route_watch::WatchedVrfRecord&)>& take);
std::span<const route_watch::WatchedTableRecord> tables_in(const route_watch::WatchedVrfRecord& vrf);
std::span<const route_watch::WatchedPrefixRecord> prefixes_in(const route_watch::WatchedVrfRecord& vrf);
// Whether it is known to have no route.
bool is_absent(const route_watch::WatchedPrefixRecord& prefix);
const char* family_of(const route_watch::WatchedTableRecord& table);  // "ipv4"

// What is missing in all VRFs.
struct MissingRoutes {
  std::uint64_t low_tables = 0;
  std::uint64_t absent_prefixes = 0;
  std::uint64_t watched_prefixes = 0;
  std::uint64_t not_watched = 0;    // prefixes beyond the limit
  std::uint64_t unread_tables = 0;  // of VRFs that are watched: what is missing there is not known yet
};
// None if the daemon does not answer that.
std::optional<MissingRoutes> count_missing_routes(const Session& session, kvtree::Client& client);
std::string missing_routes_text(const std::optional<MissingRoutes>& missing);
Json missing_routes_json(const std::optional<MissingRoutes>& missing);  // null for none

}  // namespace cli

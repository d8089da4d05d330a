#include "cli/show/watched_vrfs.h"

#include <fmt/format.h>

#include "cli/row_walk.h"
#include "platform/store/tree/kvtree.h"

namespace cli {

namespace {

using route_watch::WatchedPrefixRecord;
using route_watch::WatchedTableRecord;
using route_watch::WatchedVrfRecord;

std::string watched_path(const std::string& after) {
  return fmt::format("{}{}/{}", route_watch::kProviderPath, route_watch::kVrfNext,
                     after.empty() ? "-" : kvtree_encode_text(after));
}

const RowTable<WatchedVrfRecord> kWatchedVrfTable = {
    "list of watched VRFs", route_watch::kWatchedVrfParcel,
    [](const std::string&) { return watched_path(""); },
    [](const WatchedVrfRecord& row) { return watched_path(text_or_empty(row.vrf)); }};

void count_in(const WatchedVrfRecord& vrf, MissingRoutes* missing) {
  for (const WatchedTableRecord& table : tables_in(vrf)) {
    missing->low_tables += table.is_low;
    missing->unread_tables += table.is_unread;
  }
  for (const WatchedPrefixRecord& prefix : prefixes_in(vrf)) {
    missing->watched_prefixes += prefix.is_watched;
    missing->absent_prefixes += is_absent(prefix) ? 1 : 0;
  }
  missing->not_watched += vrf.not_watched;
}

}  // namespace

std::span<const WatchedTableRecord> tables_in(const WatchedVrfRecord& vrf) {
  return {static_cast<const WatchedTableRecord*>(vrf.tables.elements),
          static_cast<std::size_t>(vrf.tables.count)};
}

std::span<const WatchedPrefixRecord> prefixes_in(const WatchedVrfRecord& vrf) {
  return {static_cast<const WatchedPrefixRecord*>(vrf.prefixes.elements),
          static_cast<std::size_t>(vrf.prefixes.count)};
}

bool is_absent(const WatchedPrefixRecord& prefix) {
  return prefix.is_watched != 0 && prefix.is_unread == 0 && prefix.is_present == 0;
}

const char* family_of(const WatchedTableRecord& table) {
  return table.afi == 1 ? "ipv4" : "ipv6";
}

void walk_watched(const Session& session, kvtree::Client& client, const std::string& vrf,
                  const std::function<void(const WatchedVrfRecord&)>& take) {
  const auto take_wanted = [&](const WatchedVrfRecord& row) {
    if (vrf.empty() || vrf == text_or_empty(row.vrf)) take(row);
    return true;
  };
  RowWalk<WatchedVrfRecord>(session, client, kWatchedVrfTable, take_wanted)
      .run(kWatchedVrfTable.first_path(vrf));
}

std::optional<MissingRoutes> count_missing_routes(const Session& session, kvtree::Client& client) {
  MissingRoutes missing;
  try {
    walk_watched(session, client, "", [&missing](const WatchedVrfRecord& vrf) { count_in(vrf, &missing); });
  } catch (const Failure&) {
    return std::nullopt;
  }
  return missing;
}

namespace {

template <typename Count>
std::string tables_text(Count count) {
  return fmt::format("{} table{}", count, count == 1 ? "" : "s");
}

}  // namespace

std::string missing_routes_text(const std::optional<MissingRoutes>& missing) {
  if (!missing) return "unknown";
  const std::string beyond =
      missing->not_watched == 0 ? "" : fmt::format(", {} not watched", missing->not_watched);
  const std::string unread = missing->unread_tables == 0
                                 ? ""
                                 : fmt::format(", {} not read yet", tables_text(missing->unread_tables));
  return fmt::format("{} low, {} of {} watched prefixes absent{}{}", tables_text(missing->low_tables),
                     missing->absent_prefixes, missing->watched_prefixes, beyond, unread);
}

Json missing_routes_json(const std::optional<MissingRoutes>& missing) {
  if (!missing) return nullptr;
  return {{"lowTables", missing->low_tables},
          {"absentPrefixes", missing->absent_prefixes},
          {"watchedPrefixes", missing->watched_prefixes},
          {"notWatchedPrefixes", missing->not_watched},
          {"unreadTables", missing->unread_tables}};
}

}  // namespace cli

// "show thresholds": what is configured to be watched of the routes of VRFs, and its state. Prefixes are a
// second table.
#include <fmt/format.h>

#include <span>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/output/columns.h"
#include "cli/output/json_list.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "cli/row_walk.h"
#include "cli/show/tables.h"
#include "platform/router/route_watch/records.h"
#include "platform/store/tree/kvtree.h"

namespace cli {

namespace {

using route_watch::WatchedPrefixRecord;
using route_watch::WatchedTableRecord;
using route_watch::WatchedVrfRecord;

struct WatchedTableView {
  const char* vrf;
  WatchedTableRecord row;
};

struct WatchedPrefixView {
  const char* vrf;
  WatchedPrefixRecord row;
};

const char* state_of(const WatchedTableRecord& table) {
  if (table.is_low != 0) return "low";
  if (table.maximum != 0 && table.routes >= table.maximum) return "maximum";
  return table.mid != 0 && table.routes > table.mid ? "mid" : "ok";
}
const char* state_of(const WatchedPrefixRecord& prefix) {
  return prefix.is_present != 0 ? "present" : "absent";
}
const char* family_of(const WatchedTableRecord& table) {
  return table.afi == 1 ? "ipv4" : "ipv6";
}

template <typename View>
std::string watched_vrf(const View& view) {
  return text_or_dash(view.vrf);
}
template <typename View>
std::string watched_state(const View& view) {
  return state_of(view.row);
}
template <typename View>
std::string watched_since(const View& view) {
  return local_time_text(view.row.changed);
}
std::string watched_family(const WatchedTableView& view) {
  return family_of(view.row);
}
// "-" for what is not configured.
template <std::uint32_t WatchedTableRecord::*kRoutes>
std::string mark_text(const WatchedTableView& view) {
  return view.row.*kRoutes == 0 ? "-" : std::to_string(view.row.*kRoutes);
}
std::string hold_text(const WatchedTableView& view) {
  return view.row.low == 0 ? "-" : duration_text(view.row.hold);
}
std::string routes_text(const WatchedTableView& view) {
  return std::to_string(view.row.routes);
}
std::string prefix_text(const WatchedPrefixView& view) {
  return text_or_dash(view.row.prefix);
}

constexpr Column<WatchedTableView> kWatchedTableColumns[] = {
    {nullptr, nullptr, {"VRF"}, watched_vrf},
    {nullptr, nullptr, {"FAMILY"}, watched_family},
    {nullptr, nullptr, number("ROUTES"), routes_text},
    {nullptr, nullptr, number("LOW"), mark_text<&WatchedTableRecord::low>},
    {nullptr, nullptr, number("FOR"), hold_text},
    {nullptr, nullptr, number("MID"), mark_text<&WatchedTableRecord::mid>},
    {nullptr, nullptr, number("MAXIMUM"), mark_text<&WatchedTableRecord::maximum>},
    {nullptr, nullptr, {"STATE"}, watched_state},
    {nullptr, nullptr, {"LOW CHANGED"}, watched_since},
};

constexpr Column<WatchedPrefixView> kWatchedPrefixColumns[] = {
    {nullptr, nullptr, {"VRF"}, watched_vrf},
    {nullptr, nullptr, {"PREFIX"}, prefix_text},
    {nullptr, nullptr, {"STATE"}, watched_state},
    {nullptr, nullptr, {"CHANGED"}, watched_since},
};

std::span<const WatchedTableRecord> tables_in(const WatchedVrfRecord& vrf) {
  return {static_cast<const WatchedTableRecord*>(vrf.tables.elements),
          static_cast<std::size_t>(vrf.tables.count)};
}
std::span<const WatchedPrefixRecord> prefixes_in(const WatchedVrfRecord& vrf) {
  return {static_cast<const WatchedPrefixRecord*>(vrf.prefixes.elements),
          static_cast<std::size_t>(vrf.prefixes.count)};
}

Json number_or_null(std::uint32_t number, bool is_known) {
  return is_known ? Json(number) : Json(nullptr);
}

Json table_json(const WatchedTableRecord& table) {
  return {{"family", family_of(table)},
          {"routes", table.routes},
          {"low", number_or_null(table.low, table.low != 0)},
          {"lowSeconds", number_or_null(table.hold, table.low != 0)},
          {"mid", number_or_null(table.mid, table.mid != 0)},
          {"maximum", number_or_null(table.maximum, table.maximum != 0)},
          {"state", state_of(table)},
          {"lowChanged", number_or_null(table.changed, table.changed != 0)}};
}

Json watched_prefix_json(const WatchedPrefixRecord& prefix) {
  return {{"prefix", text_or_empty(prefix.prefix)},
          {"present", prefix.is_present != 0},
          {"changed", number_or_null(prefix.changed, prefix.changed != 0)}};
}

Json watched_vrf_json(const WatchedVrfRecord& vrf) {
  Json tables = Json::array();
  for (const WatchedTableRecord& table : tables_in(vrf)) tables.push_back(table_json(table));
  Json prefixes = Json::array();
  for (const WatchedPrefixRecord& prefix : prefixes_in(vrf)) prefixes.push_back(watched_prefix_json(prefix));
  return {{"name", text_or_empty(vrf.vrf)}, {"tables", tables}, {"prefixes", prefixes}};
}

std::string watched_path(const std::string& after) {
  return fmt::format("{}{}/{}", route_watch::kProviderPath, route_watch::kVrfNext,
                     after.empty() ? "-" : kvtree_encode_text(after));
}

const RowTable<WatchedVrfRecord> kWatchedVrfTable = {
    "list of watched VRFs", route_watch::kWatchedVrfParcel,
    [](const std::string&) { return watched_path(""); },
    [](const WatchedVrfRecord& row) { return watched_path(text_or_empty(row.vrf)); }};

// Of one VRF, of all when the name is empty.
template <typename Take>
void walk_watched(const Session& session, kvtree::Client& client, const std::string& vrf, Take take) {
  const auto take_wanted = [&](const WatchedVrfRecord& row) {
    if (vrf.empty() || vrf == text_or_empty(row.vrf)) take(row);
    return true;
  };
  RowWalk<WatchedVrfRecord>(session, client, kWatchedVrfTable, take_wanted)
      .run(kWatchedVrfTable.first_path(vrf));
}

void print_json(const Session& session, kvtree::Client& client, const std::string& vrf) {
  JsonList list(session.out);
  walk_watched(session, client, vrf, [&](const WatchedVrfRecord& row) { list.add(watched_vrf_json(row)); });
  list.end();
}

// The prefixes, at most 1000, are printed after the tables.
void print_text(const Session& session, kvtree::Client& client, const std::string& vrf) {
  RowWriter<WatchedTableView> tables(session, kWatchedTableColumns);
  struct Prefix {
    std::string vrf;
    std::string text;
    WatchedPrefixRecord row;
  };
  std::vector<Prefix> prefixes;
  walk_watched(session, client, vrf, [&](const WatchedVrfRecord& row) {
    for (const WatchedTableRecord& table : tables_in(row)) tables.add({row.vrf, table});
    for (const WatchedPrefixRecord& prefix : prefixes_in(row))
      prefixes.push_back({text_or_empty(row.vrf), text_or_empty(prefix.prefix), prefix});
  });
  tables.end();
  if (prefixes.empty()) return;
  session.out << '\n';
  RowWriter<WatchedPrefixView> writer(session, kWatchedPrefixColumns);
  for (Prefix& prefix : prefixes) {
    prefix.row.prefix = prefix.text.data();
    writer.add({prefix.vrf.c_str(), prefix.row});
  }
  writer.end();
}

bool is_watched(const Session& session, kvtree::Client& client, const std::string& vrf) {
  bool is_found = false;
  walk_watched(session, client, vrf, [&is_found](const WatchedVrfRecord&) { is_found = true; });
  return is_found;
}

}  // namespace

// A VRF that does not exist may be watched: that it has no routes is what a user looks for.
void show_thresholds(const Session& session, const std::string& vrf) {
  const auto client = connect_to_daemon(session);
  if (!vrf.empty() && !is_watched(session, *client, vrf)) require_vrf(session, *client, vrf);
  session.json ? print_json(session, *client, vrf) : print_text(session, *client, vrf);
}

}  // namespace cli

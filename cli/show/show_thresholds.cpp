// "show thresholds": what is configured to be watched of the routes of VRFs, and its state. Prefixes are a
// second table.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/output/columns.h"
#include "cli/output/json_list.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "cli/show/tables.h"
#include "cli/show/watched_vrfs.h"
#include "platform/router/route_watch/records.h"

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
  if (table.is_unread != 0) return "not read";
  if (table.is_low != 0) return "low";
  if (table.maximum != 0 && table.routes >= table.maximum) return "maximum";
  return table.mid != 0 && table.routes > table.mid ? "mid" : "ok";
}
const char* state_of(const WatchedPrefixRecord& prefix) {
  if (prefix.is_watched == 0) return "not watched";
  if (prefix.is_unread != 0) return "not read";
  return prefix.is_present != 0 ? "present" : "absent";
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
          {"state", table.is_unread != 0 ? "notRead" : state_of(table)},
          {"lowChanged", number_or_null(table.changed, table.changed != 0)},
          {"lowChangedText", local_time_json(table.changed)}};
}

Json watched_prefix_json(const WatchedPrefixRecord& prefix) {
  const bool is_known = prefix.is_watched != 0 && prefix.is_unread == 0;
  return {{"prefix", text_or_empty(prefix.prefix)},
          {"watched", prefix.is_watched != 0},
          {"present", is_known ? Json(prefix.is_present != 0) : Json(nullptr)},
          {"changed", number_or_null(prefix.changed, prefix.changed != 0)},
          {"changedText", local_time_json(prefix.changed)}};
}

Json watched_vrf_json(const WatchedVrfRecord& vrf) {
  Json tables = Json::array();
  for (const WatchedTableRecord& table : tables_in(vrf)) tables.push_back(table_json(table));
  Json prefixes = Json::array();
  for (const WatchedPrefixRecord& prefix : prefixes_in(vrf)) prefixes.push_back(watched_prefix_json(prefix));
  return {{"name", text_or_empty(vrf.vrf)},
          {"tables", tables},
          {"prefixes", prefixes},
          {"notWatched", vrf.not_watched}};
}

void print_json(const Session& session, kvtree::Client& client, const std::string& vrf) {
  JsonList list(session.out);
  walk_watched(session, client, vrf, [&](const WatchedVrfRecord& row) { list.add(watched_vrf_json(row)); });
  list.end();
}

// The prefixes are printed after the tables: those that are watched, and of each VRF the first of the others.
void print_text(const Session& session, kvtree::Client& client, const std::string& vrf) {
  RowWriter<WatchedTableView> tables(session, kWatchedTableColumns);
  struct Prefix {
    std::string vrf;
    std::string text;
    WatchedPrefixRecord row;
  };
  std::vector<Prefix> prefixes;
  std::uint64_t not_watched = 0;
  walk_watched(session, client, vrf, [&](const WatchedVrfRecord& row) {
    for (const WatchedTableRecord& table : tables_in(row)) tables.add({row.vrf, table});
    not_watched += row.not_watched;
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
  if (not_watched == 0) return;
  fmt::print(session.out, "\n{} prefixes are not watched: {} of all VRFs are the limit\n", not_watched,
             route_watch::kMostPrefixes);
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

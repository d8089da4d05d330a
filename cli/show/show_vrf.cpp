// "show vrf": a line a VRF from the rows of the VRF table, printed as its batches come; and "show vrf
// invalid". A filter by address family is one more request a VRF: a row does not tell its tables.
#include "cli/datalist_pages.h"
#include "cli/output/names.h"
#include "cli/output/table.h"
#include "cli/output/times.h"
#include "cli/vrf/show_vrf_detail.h"
#include "cli/vrf/vrf_lookup.h"
#include "cli/vrf/vrf_report.h"

namespace cli {

namespace {

using VrfSink = RowSink<mpls_vpn_mib_vrf>;
using VrfRow = Record<mpls_vpn_mib_vrf>;

void walk_named_vrf(const Session& session, kvtree::Client& client, const VrfRequest& request,
                    const VrfSink& sink) {
  const auto octets = find_vrf_row(session, client, request.name);
  if (!octets) require_vrf(session, client, request.name);
  if (!octets) throw Failure(kExitFailed, "VRF " + printable(request.name) + " came just now; ask again");
  if (!passes_filter(session, client, request.name, request)) throw not_in_family(request);
  const VrfRow row(session, provider_path("vrf", request.name), kMibVrfParcel, *octets);
  sink.row(*row);
  sink.batch_end();
}

void walk_all_vrfs(const Session& session, kvtree::Client& client, const VrfRequest& request,
                   const VrfSink& sink) {
  const auto filtered = [&](const mpls_vpn_mib_vrf& row) {
    return !passes_filter(session, client, text_or_empty(row.name), request) || sink.row(row);
  };
  RowWalk<mpls_vpn_mib_vrf>(session, client, kVrfTable, {filtered, sink.batch_end}).run(first_vrf_path(""));
}

void walk_vrfs(const Session& session, kvtree::Client& client, const VrfRequest& request,
               const VrfSink& sink) {
  request.name.empty() ? walk_all_vrfs(session, client, request, sink)
                       : walk_named_vrf(session, client, request, sink);
}

void show_vrfs_as_json(const Session& session, const VrfRequest& request) {
  const auto client = connect_to_daemon(session);
  const bool is_counted = are_routes_counted(*client);
  JsonList list(session.out);
  const auto add = [&](const mpls_vpn_mib_vrf& row) {
    list.add(vrf_row_json(row, is_counted));
    return true;
  };
  walk_vrfs(session, *client, request, {add});
  list.end();
}

void show_vrfs_as_table(const Session& session, const VrfRequest& request) {
  const auto client = connect_to_daemon(session);
  const bool is_counted = are_routes_counted(*client);
  Table table(session.out, {{"VRF"},
                            {"RD"},
                            {"STATE"},
                            {"INTERFACES", true},
                            {"ACTIVE", true},
                            {"ROUTES", true},
                            {"CHANGED", true},
                            {"DESCRIPTION"}});
  const auto add = [&](const mpls_vpn_mib_vrf& row) {
    table.add({text_or_empty(row.name), text_or_dash(row.rd), vrf_status_name(row.operStatus),
               std::to_string(row.associatedInterfaces), std::to_string(row.activeInterfaces),
               route_count(row, is_counted), age_text(row.confLastChanged), text_or_dash(row.description)});
    return true;
  };
  walk_vrfs(session, *client, request, {add, [&table] { table.flush(); }});
}

// --- Invalid VRFs -------------------------------------------------------------------------------

using InvalidVrf = std::function<void(const std::string& name, const std::vector<std::string>& interfaces)>;

void for_each_invalid_vrf(const Session& session, const InvalidVrf& take,
                          const std::function<void()>& page_end) {
  const auto client = connect_to_daemon(session);
  const std::string path = provider_path("vrf-invalid-detail");
  DatalistPages pages(session, *client, path, false);
  for (auto items = pages.next(); !items.empty(); items = pages.next()) {
    for (const kvtree::ListItem& item : items) {
      const Record<mpls_vpn_vrf> shown(session, path, kShowVrfParcel, item.record);
      take(item.key, interface_names(*shown));
    }
    page_end();
  }
}

void show_invalid_as_json(const Session& session) {
  JsonList list(session.out);
  const auto add = [&list](const std::string& name, const std::vector<std::string>& interfaces) {
    list.add({{"name", name}, {"interfaces", interfaces}});
  };
  for_each_invalid_vrf(session, add, [] {});
  list.end();
}

// A line an interface, so that a VRF of many still lines up.
void show_invalid_as_table(const Session& session) {
  Table table(session.out, {{"VRF"}, {"INTERFACE"}});
  const auto add = [&table](const std::string& name, const std::vector<std::string>& interfaces) {
    for (const std::string& interface : interfaces) table.add({name, interface});
    if (interfaces.empty()) table.add({name, "-"});
  };
  for_each_invalid_vrf(session, add, [&table] { table.flush(); });
  table.flush();  // the titles, when there is none
}

}  // namespace

void show_vrf(const Session& session, const VrfRequest& request) {
  if (request.is_invalid) {
    session.json ? show_invalid_as_json(session) : show_invalid_as_table(session);
  } else if (request.detail || request.structured) {
    show_vrf_detail(session, request);
  } else {
    session.json ? show_vrfs_as_json(session, request) : show_vrfs_as_table(session, request);
  }
}

}  // namespace cli

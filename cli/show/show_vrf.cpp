// "show vrf": a line for each row of the VRF table, printed batch by batch; and "show vrf invalid". A filter
// by address family takes one more request for each VRF, as a row does not contain its tables.
#include <optional>

#include "cli/datalist_pages.h"
#include "cli/output/notices.h"
#include "cli/output/row_writer.h"
#include "cli/vrf/show_vrf_detail.h"
#include "cli/vrf/vrf_lookup.h"
#include "cli/vrf/vrf_report.h"
#include "cli/vrf/vrf_selection.h"

namespace cli {

namespace {

using VrfSink = RowSink<mpls_vpn_mib_vrf>;
using VrfRow = Record<mpls_vpn_mib_vrf>;

void walk_named_vrf(const Session& session, kvtree::Client& client, const VrfRequest& request,
                    const VrfSink& sink) {
  const auto octets = find_vrf_row(session, client, request.name);
  if (!octets) require_vrf(session, client, request.name, meant_vrf_words(request));
  if (!octets)
    throw Failure(kExitFailed,
                  "VRF " + printable(request.name) + " was created just now; repeat the command");
  if (!passes_filter(session, client, request.name, request)) throw not_in_family(request);
  const VrfRow row(session, provider_path("vrf", request.name), kMibVrfParcel, *octets);
  sink.row(*row);
  sink.batch_end();
}

void walk_all_vrfs(const Session& session, kvtree::Client& client, const VrfRequest& request,
                   const VrfSink& sink) {
  const auto filtered = [&](const mpls_vpn_mib_vrf& row) {
    if (passes_filter(session, client, text_or_empty(row.name), request)) sink.row(row);
    return true;
  };
  RowWalk<mpls_vpn_mib_vrf>(session, client, kVrfTable, filtered, sink.batch_end)
      .run(kVrfTable.first_path(""));
}

std::string empty_note(const VrfRequest& request) {
  const bool is_any =
      request.state.empty() && request.protocol.empty() && request.afi == 0 && request.safi == 0;
  return is_any ? "there is no VRF; \"mplsvpn doctor\" finds out why" : "no VRF is as requested";
}

void show_vrfs(const Session& session, const VrfRequest& request) {
  const auto client = connect_to_daemon(session);
  const bool is_counted = are_routes_counted(session, *client);
  RowWriter<VrfView> writer(session, request.brief ? brief_vrf_cells() : vrf_cells(), vrf_row_json);
  const VrfSelection selection(session, *client, request);
  std::optional<SortedVrfs> sorted;
  if (!request.sort.empty()) sorted.emplace(request.sort);
  const auto add = [&](const mpls_vpn_mib_vrf& row) { writer.add({row, is_counted}); };
  const auto take = [&](const mpls_vpn_mib_vrf& row) {
    if (!selection.has(row)) return;
    sorted ? sorted->add(row) : add(row);
  };
  const auto walk = request.name.empty() ? walk_all_vrfs : walk_named_vrf;
  walk(session, *client, request, {take, [&] { writer.flush(); }});
  if (sorted) sorted->visit(session, add);
  writer.end();
  if (writer.is_empty_table()) note(session, empty_note(request));
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

// A JSON object for each VRF; a line of a table for each interface, so that VRFs with many stay aligned.
struct InvalidView {
  const std::string& name;
  const std::vector<std::string>& interfaces;
  std::string interface;  // of this line
};

constexpr Column<InvalidView> kInvalidColumns[] = {
    {"name", [](const InvalidView& vrf) -> Json { return vrf.name; }, {"VRF"}},
    {"interfaces",
     [](const InvalidView& vrf) -> Json { return vrf.interfaces; },
     {"INTERFACE"},
     [](const InvalidView& vrf) { return vrf.interface; }},
};

void show_invalid(const Session& session) {
  RowWriter<InvalidView> writer(session, kInvalidColumns);
  const auto add = [&](const std::string& name, const std::vector<std::string>& interfaces) {
    if (session.json || interfaces.empty()) return writer.add({name, interfaces, "-"});
    for (const std::string& interface : interfaces) writer.add({name, interfaces, interface});
  };
  for_each_invalid_vrf(session, add, [&writer] { writer.flush(); });
  writer.end();
  if (writer.is_empty_table()) note(session, "no VRF is invalid");
}

}  // namespace

void show_vrf(const Session& session, const VrfRequest& request) {
  if (request.is_invalid) {
    show_invalid(session);
  } else if (request.detail || request.structured) {
    show_vrf_detail(session, request);
  } else {
    show_vrfs(session, request);
  }
}

}  // namespace cli

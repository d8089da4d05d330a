// "show vrf detail": show records (interfaces, route targets, policies) joined with MIB rows (states, times,
// counters) and with the configured thresholds and origins.
//
// All VRFs: a page of show records, then one walk for the rows of the same names, as both have one order. A
// row that the walk did not find, because VRFs were added or deleted meanwhile, is read by name; a VRF
// without a row is deleted and left out. With a filter each VRF is read by name: the filtered list has no
// continuation.
#include "cli/vrf/show_vrf_detail.h"

#include <map>
#include <memory>

#include "cli/datalist_pages.h"
#include "cli/output/table.h"
#include "cli/vrf/vrf_evpn.h"
#include "cli/vrf/vrf_lookup.h"
#include "cli/vrf/vrf_nodes.h"
#include "cli/vrf/vrf_report.h"

namespace cli {

namespace {

using VrfRow = Record<mpls_vpn_mib_vrf>;
using ShownVrf = Record<mpls_vpn_vrf>;
using Rows = std::map<std::string, std::unique_ptr<VrfRow>>;

class DetailsWriter {
 public:
  DetailsWriter(const Session& session, kvtree::Client& client, const VrfRequest& request)
      : session_(session),
        client_(client),
        request_(request),
        are_routes_counted_(are_routes_counted(session, client)),
        model_rd_owner_(model_rd_owner(session, client)),
        nodes_(session, client),
        list_(session.out) {}

  void add(const mpls_vpn_mib_vrf& row, const kvtree::Octets& record) {
    const ShownVrf shown(session_, provider_path("vrf-detail"), kShowVrfParcel, record);
    const std::string name = text_or_empty(row.name);
    const std::span<const kvtree::Node> nodes = nodes_.of(name);
    const VrfOrigins origins(name, nodes, model_rd_owner_);
    const EvpnTable evpn(session_, client_, name, origins, request_);
    RouterStates states(session_, client_, false);  // of one VRF: their number is not bounded
    VrfDetails details{*shown, thresholds_among(nodes, name, request_), origins,
                       wanted_tables(*shown, request_), session_.json ? nullptr : &states};
    details.tables.insert(details.tables.end(), evpn.tables().begin(), evpn.tables().end());
    const VrfView vrf{row, are_routes_counted_};
    if (session_.json) {
      list_.add(vrf_json(vrf, details));
    } else {
      if (!is_first_) session_.out << '\n';
      print_vrf(session_, vrf, details);
    }
    is_first_ = false;
  }
  void end() {
    if (session_.json) list_.end();
  }

 private:
  const Session& session_;
  kvtree::Client& client_;
  const VrfRequest& request_;
  const bool are_routes_counted_;
  const std::string model_rd_owner_;
  VrfNodes nodes_;
  JsonList list_;
  bool is_first_ = true;
};

std::unique_ptr<VrfRow> decode_row(const Session& session, const kvtree::Octets& octets) {
  return std::make_unique<VrfRow>(session, provider_path("vrf"), kMibVrfParcel, octets);
}

Rows rows_from(const Session& session, kvtree::Client& client, const std::string& name, std::size_t count) {
  Rows rows;
  const auto batch =
      fetch_rows(session, client, kVrfTable.first_path(name), static_cast<std::uint32_t>(count));
  for (const kvtree::Octets& octets : batch.rows) {
    auto row = decode_row(session, octets);
    const std::string row_name = text_or_empty((*row)->name);
    rows[row_name] = std::move(row);
  }
  return rows;
}

void add_page(const Session& session, kvtree::Client& client, const std::vector<kvtree::ListItem>& items,
              DetailsWriter* details) {
  std::vector<std::string> names;
  for (const kvtree::ListItem& item : items) {
    const ShownVrf shown(session, provider_path("vrf-detail"), kShowVrfParcel, item.record);
    names.push_back(text_or_empty(shown->VRFName));
  }
  Rows rows = rows_from(session, client, names[0], names.size());
  for (std::size_t at = 0; at < items.size(); ++at) {
    std::unique_ptr<VrfRow>& row = rows[names[at]];
    if (row == nullptr) {
      const auto octets = find_vrf_row(session, client, names[at]);
      if (!octets) continue;
      row = decode_row(session, *octets);
    }
    details->add(**row, items[at].record);
  }
}

void add_all(const Session& session, kvtree::Client& client, const VrfRequest& request,
             DetailsWriter* details) {
  DatalistPages pages(session, client, provider_path("vrf-detail"), request.structured);
  for (auto items = pages.next(); !items.empty(); items = pages.next()) {
    add_page(session, client, items, details);
  }
}

void add_filtered(const Session& session, kvtree::Client& client, const VrfRequest& request,
                  DetailsWriter* details) {
  const auto add = [&](const mpls_vpn_mib_vrf& row) {
    const auto record = find_show_record(session, client, text_or_empty(row.name), request);
    if (record) details->add(row, *record);
    return true;
  };
  RowWalk<mpls_vpn_mib_vrf>(session, client, kVrfTable, add).run(kVrfTable.first_path(""));
}

void add_named(const Session& session, kvtree::Client& client, const VrfRequest& request,
               DetailsWriter* details) {
  require_vrf(session, client, request.name, meant_vrf_words(request));
  const auto octets = find_vrf_row(session, client, request.name);
  const auto record = find_show_record(session, client, request.name, request);
  if (octets && record) return details->add(**decode_row(session, *octets), *record);
  if (has_filter(request)) throw not_in_family(request);
  throw Failure(kExitFailed, "VRF " + printable(request.name) + " has no details");
}

}  // namespace

void show_vrf_detail(const Session& session, const VrfRequest& request) {
  const auto client = connect_to_daemon(session);
  DetailsWriter details(session, *client, request);
  if (!request.name.empty()) {
    add_named(session, *client, request, &details);
  } else if (has_filter(request)) {
    add_filtered(session, *client, request, &details);
  } else {
    add_all(session, *client, request, &details);
  }
  details.end();
}

}  // namespace cli

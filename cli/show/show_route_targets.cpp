// "show route-targets": the VRF route target table, printed as its batches come.
#include "cli/commands.h"
#include "cli/output/names.h"
#include "cli/output/table.h"
#include "cli/show/tables.h"

namespace cli {

namespace {

using RouteTargetSink = RowSink<mpls_vpn_mib_rt>;

// All rows, or those of one VRF. Route targets may be configured for a VRF that is not there, so only a VRF
// of which nothing is known is a failure.
void walk_route_targets(const Session& session, const std::string& vrf, const RouteTargetSink& sink) {
  const auto client = connect_to_daemon(session);
  bool is_known = vrf.empty();
  const auto wanted = [&](const mpls_vpn_mib_rt& row) {
    if (!vrf.empty() && vrf != text_or_empty(row.vrfName)) return false;
    is_known = true;
    return sink.row(row);
  };
  const auto batch_end = [&] {
    if (!is_known) require_vrf(session, *client, vrf);
    is_known = true;
    sink.batch_end();
  };
  RowWalk<mpls_vpn_mib_rt>(session, *client, kRouteTargetTable, {wanted, batch_end})
      .run(first_route_target_path(vrf));
}

Json row_json(const mpls_vpn_mib_rt& row) {
  return {{"vrfName", text_or_empty(row.vrfName)},
          {"index", row.index},
          {"type", row.type},
          {"typeName", route_target_type_name(row.type)},
          {"rt", text_or_empty(row.rt)},
          {"description", text_or_empty(row.description)},
          {"storageType", row.storageType},
          {"storageTypeName", storage_type_name(row.storageType)},
          {"rowStatus", row.rowStatus},
          {"rowStatusName", row_status_name(row.rowStatus)}};
}

void show_route_targets_as_json(const Session& session, const std::string& vrf) {
  JsonList list(session.out);
  const auto show = [&list](const mpls_vpn_mib_rt& row) {
    list.add(row_json(row));
    return true;
  };
  walk_route_targets(session, vrf, {show});
  list.end();
}

void show_route_targets_as_table(const Session& session, const std::string& vrf) {
  Table table(session.out, {{"VRF"}, {"INDEX", true}, {"TYPE"}, {"ROUTE TARGET"}, {"FAMILY"}});
  const auto show = [&table](const mpls_vpn_mib_rt& row) {
    table.add({text_or_empty(row.vrfName), std::to_string(row.index), route_target_type_name(row.type),
               text_or_dash(row.rt), text_or_dash(row.description)});
    return true;
  };
  walk_route_targets(session, vrf, {show, [&table] { table.flush(); }});
}

}  // namespace

void show_route_targets(const Session& session, const std::string& vrf) {
  session.json ? show_route_targets_as_json(session, vrf) : show_route_targets_as_table(session, vrf);
}

}  // namespace cli

// "show route-targets": the VRF route target table, printed batch by batch.
#include "cli/commands.h"
#include "cli/output/names.h"
#include "cli/output/row_writer.h"
#include "cli/show/tables.h"

namespace cli {

namespace {

using RouteTargetSink = RowSink<mpls_vpn_mib_rt>;

// All rows, or those of one VRF. Route targets may be configured for a VRF that does not exist, so only an
// unknown VRF without route targets is a failure.
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

using TargetRow = mpls_vpn_mib_rt;
using TargetColumns = Columns<TargetRow>;

constexpr Column<TargetRow> kTargetColumns[] = {
    TargetColumns::member<&TargetRow::vrfName>("vrfName").cell(1, "VRF"),
    TargetColumns::member<&TargetRow::index>("index").number(2, "INDEX"),
    TargetColumns::named<&TargetRow::type, route_target_type_name>("type").cell(3, "TYPE"),
    TargetColumns::member<&TargetRow::rt>("rt").cell(4, "ROUTE TARGET",
                                                     member_or_dash<&TargetRow::rt, TargetRow>),
    TargetColumns::member<&TargetRow::description>("description")
        .cell(5, "FAMILY", member_or_dash<&TargetRow::description, TargetRow>),
    TargetColumns::named<&TargetRow::storageType, storage_type_name>("storageType"),
    TargetColumns::named<&TargetRow::rowStatus, row_status_name>("rowStatus"),
};

}  // namespace

void show_route_targets(const Session& session, const std::string& vrf) {
  RowWriter<TargetRow> writer(session, kTargetColumns);
  const auto show = [&writer](const TargetRow& row) {
    writer.add(row);
    return true;
  };
  walk_route_targets(session, vrf, {show, [&writer] { writer.flush(); }});
  writer.end();
}

}  // namespace cli

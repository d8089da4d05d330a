// "show route-targets": the VRF route target table, printed batch by batch.
#include "cli/commands.h"
#include "cli/output/mib_json.h"
#include "cli/output/row_writer.h"
#include "cli/show/tables.h"

namespace cli {

namespace {

using mib::RouteTarget;

constexpr Column<RouteTarget> kTargetCells[] = {
    {.cell = {"VRF"}, .text = member_text<&RouteTarget::vrfName>},
    {.cell = number("INDEX"), .text = member_text<&RouteTarget::index>},
    {.cell = {"TYPE"}, .text = member_name<&RouteTarget::type, mib::kRouteTargetType>},
    {.cell = {"ROUTE TARGET"}, .text = member_or_dash<&RouteTarget::rt>},
    {.cell = {"FAMILY"}, .text = member_or_dash<&RouteTarget::description>},
};

Json target_json(const RouteTarget& row) {
  return mib_json(mib::kRouteTargetColumns, row);
}

}  // namespace

void show_route_targets(const Session& session, const std::string& vrf) {
  RowWriter<RouteTarget> writer(session, kTargetCells, target_json);
  const auto client = connect_to_daemon(session);
  walk_rows_of_known<RouteTarget>(
      session, *client, kRouteTargetTable, vrf,
      {[&](const RouteTarget& row) { writer.add(row); }, [&] { writer.flush(); }});
  writer.end();
}

}  // namespace cli

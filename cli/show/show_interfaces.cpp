// "show interfaces": the VRF interface table, printed batch by batch.
#include "cli/commands.h"
#include "cli/output/names.h"
#include "cli/output/row_writer.h"
#include "cli/show/tables.h"

namespace cli {

namespace {

using InterfaceSink = RowSink<mpls_vpn_mib_interface>;

// All rows, or those of one VRF.
void walk_interfaces(const Session& session, const std::string& vrf, const InterfaceSink& sink) {
  const auto client = connect_to_daemon(session);
  const auto wanted = [&](const mpls_vpn_mib_interface& row) {
    return (vrf.empty() || vrf == text_or_empty(row.vrfName)) && sink.row(row);
  };
  RowWalk<mpls_vpn_mib_interface>(session, *client, kInterfaceTable, {wanted, sink.batch_end})
      .run(first_interface_path(vrf));
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ",") + name;
  return text.empty() ? "-" : text;
}

using InterfaceRow = mpls_vpn_mib_interface;
using InterfaceColumns = Columns<InterfaceRow>;

constexpr Column<InterfaceRow> kInterfaceColumns[] = {
    InterfaceColumns::member<&InterfaceRow::vrfName>("vrfName").cell(1, "VRF"),
    InterfaceColumns::member<&InterfaceRow::ifConfIndex>("ifConfIndex").number(2, "INDEX"),
    InterfaceColumns::member<&InterfaceRow::name>("name").cell(3, "INTERFACE"),
    InterfaceColumns::named<&InterfaceRow::vpnClassification, classification_name>("vpnClassification")
        .cell(5, "CLASS"),
    InterfaceColumns::named<&InterfaceRow::protocol, protocol_names>("protocol", "Names")
        .cell(4, "PROTOCOLS", [](const InterfaceRow& row) { return joined(protocol_names(row.protocol)); }),
    InterfaceColumns::named<&InterfaceRow::storageType, storage_type_name>("storageType").cell(6, "STORAGE"),
    InterfaceColumns::named<&InterfaceRow::rowStatus, row_status_name>("rowStatus").cell(7, "STATUS"),
};

}  // namespace

void show_interfaces(const Session& session, const std::string& vrf) {
  RowWriter<InterfaceRow> writer(session, kInterfaceColumns);
  const auto show = [&writer](const InterfaceRow& row) {
    writer.add(row);
    return true;
  };
  walk_interfaces(session, vrf, {show, [&writer] { writer.flush(); }});
  writer.end();
}

}  // namespace cli

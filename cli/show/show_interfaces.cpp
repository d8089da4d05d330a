// "show interfaces": the VRF interface table, printed as its batches come.
#include "cli/commands.h"
#include "cli/output/names.h"
#include "cli/output/table.h"
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

Json row_json(const mpls_vpn_mib_interface& row) {
  return {{"vrfName", text_or_empty(row.vrfName)},
          {"ifConfIndex", row.ifConfIndex},
          {"name", text_or_empty(row.name)},
          {"vpnClassification", row.vpnClassification},
          {"vpnClassificationName", classification_name(row.vpnClassification)},
          {"protocol", row.protocol},
          {"protocolNames", protocol_names(row.protocol)},
          {"storageType", row.storageType},
          {"storageTypeName", storage_type_name(row.storageType)},
          {"rowStatus", row.rowStatus},
          {"rowStatusName", row_status_name(row.rowStatus)}};
}

void show_interfaces_as_json(const Session& session, const std::string& vrf) {
  JsonList list(session.out);
  const auto show = [&list](const mpls_vpn_mib_interface& row) {
    list.add(row_json(row));
    return true;
  };
  walk_interfaces(session, vrf, {show});
  list.end();
}

void show_interfaces_as_table(const Session& session, const std::string& vrf) {
  Table table(session.out,
              {{"VRF"}, {"INDEX", true}, {"INTERFACE"}, {"PROTOCOLS"}, {"CLASS"}, {"STORAGE"}, {"STATUS"}});
  const auto show = [&table](const mpls_vpn_mib_interface& row) {
    table.add({text_or_empty(row.vrfName), std::to_string(row.ifConfIndex), text_or_empty(row.name),
               joined(protocol_names(row.protocol)), classification_name(row.vpnClassification),
               storage_type_name(row.storageType), row_status_name(row.rowStatus)});
    return true;
  };
  walk_interfaces(session, vrf, {show, [&table] { table.flush(); }});
}

}  // namespace

void show_interfaces(const Session& session, const std::string& vrf) {
  session.json ? show_interfaces_as_json(session, vrf) : show_interfaces_as_table(session, vrf);
}

}  // namespace cli

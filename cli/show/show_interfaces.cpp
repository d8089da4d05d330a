// "show interfaces": the VRF interface table, printed batch by batch.
#include "cli/commands.h"
#include "cli/output/mib_json.h"
#include "cli/output/row_writer.h"
#include "cli/show/tables.h"

namespace cli {

namespace {

using mib::Interface;

std::string protocols_text(const Interface& row) {
  std::string text;
  for (const std::string& name : bit_names(mib::kProtocols, row.protocol)) {
    text += (text.empty() ? "" : ",") + name;
  }
  return text.empty() ? "-" : text;
}

constexpr Column<Interface> kInterfaceCells[] = {
    {.cell = {"VRF"}, .text = member_text<&Interface::vrfName>},
    {.cell = number("INDEX"), .text = member_text<&Interface::ifConfIndex>},
    {.cell = {"INTERFACE"}, .text = member_text<&Interface::name>},
    {.cell = {"PROTOCOLS"}, .text = protocols_text},
    {.cell = {"CLASS"}, .text = member_name<&Interface::vpnClassification, mib::kClassification>},
    {.cell = {"STORAGE"}, .text = member_name<&Interface::storageType, mib::kStorageType>},
    {.cell = {"STATUS"}, .text = member_name<&Interface::rowStatus, mib::kRowStatus>},
};

Json interface_json(const Interface& row) {
  return mib_json(mib::kInterfaceColumns, row);
}

}  // namespace

void show_interfaces(const Session& session, const std::string& vrf) {
  RowWriter<Interface> writer(session, kInterfaceCells, interface_json);
  const auto client = connect_to_daemon(session);
  walk_rows_of(session, *client, kInterfaceTable, vrf,
               {[&](const Interface& row) { writer.add(row); }, [&] { writer.flush(); }});
  writer.end();
}

}  // namespace cli

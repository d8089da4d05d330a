// "show interfaces": the VRF interface table, printed batch by batch, with the state and the addresses that
// the router has of each interface.
#include <fmt/format.h>

#include "cli/commands.h"
#include "cli/output/mib_json.h"
#include "cli/output/notices.h"
#include "cli/output/row_writer.h"
#include "cli/show/router_states.h"
#include "cli/show/tables.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

using mib::Interface;

// A row with the state of its interface; null for one that was removed just now.
struct InterfaceView {
  const Interface& row;
  const RouterState* state;
};

std::string state_text(const InterfaceView& view) {
  return view.state == nullptr ? "-" : view.state->text();
}

std::string addresses_text(const InterfaceView& view) {
  return view.state == nullptr || view.state->addresses.empty() ? "-" : view.state->addresses;
}

std::string protocols_text(const InterfaceView& view) {
  std::string text;
  for (const std::string& name : bit_names(mib::kProtocols, view.row.protocol)) {
    text += (text.empty() ? "" : ",") + name;
  }
  return text.empty() ? "-" : text;
}

constexpr Column<InterfaceView> kInterfaceCells[] = {
    {.cell = {"VRF"}, .text = member_text<&Interface::vrfName>},
    {.cell = {"INTERFACE"}, .text = member_text<&Interface::name>},
    {.cell = state("STATE"), .text = state_text},
    {.cell = {"ADDRESSES"}, .text = addresses_text},
    {.cell = {"PROTOCOLS"}, .text = protocols_text},
    {.cell = number("INDEX"), .text = member_text<&Interface::ifConfIndex>},
};

Json addresses_json(const RouterState& state) {
  Json list = Json::array();
  for (const std::string_view address : text::split(state.addresses, ' ')) list.push_back(address);
  return list;
}

// The columns of the MIB, then what the router knows.
Json interface_json(const InterfaceView& view) {
  Json json = mib_json(mib::kInterfaceColumns, view);
  json["state"] = view.state == nullptr ? Json() : Json(state_text(view));
  json["addresses"] = view.state == nullptr ? Json() : addresses_json(*view.state);
  json["description"] = view.state == nullptr ? Json() : Json(view.state->description);
  return json;
}

}  // namespace

void show_interfaces(const Session& session, const std::string& vrf) {
  RowWriter<InterfaceView> writer(session, kInterfaceCells, interface_json);
  const auto client = connect_to_daemon(session);
  RouterStates states(session, *client, vrf.empty());
  const auto add = [&](const Interface& row) { writer.add({row, states.find(row.ifConfIndex)}); };
  walk_rows_of_known<Interface>(session, *client, kInterfaceTable, vrf, {add, [&] { writer.flush(); }});
  writer.end();
  if (!writer.is_empty_table()) return;
  note(session, vrf.empty() ? "no interface is in a VRF; \"mplsvpn doctor\" finds out why"
                            : fmt::format("no interface is in VRF {}", printable(vrf)));
}

}  // namespace cli

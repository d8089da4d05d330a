// "show interfaces": the VRF interface table, printed batch by batch, with the state and the addresses that
// the router has of each interface. A daemon that does not state them is of an earlier version.
#include <map>

#include "cli/commands.h"
#include "cli/output/mib_json.h"
#include "cli/output/row_writer.h"
#include "cli/show/interface_states.h"
#include "cli/show/tables.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

using interface_states::InterfaceState;
using mib::Interface;

struct RouterState {
  bool is_up = false;
  std::string addresses;  // separated by blanks
  std::string description;
};

// A row with the state of its interface; null for one that was removed just now.
struct InterfaceView {
  const Interface& row;
  const RouterState* state;
};

// The states by ifIndex: of all interfaces in one walk, or of those of one VRF, each when it is needed.
class RouterStates {
 public:
  RouterStates(const Session& session, kvtree::Client& client, bool all)
      : session_(session), client_(client), is_complete_(all) {
    if (all) walk_interface_states(session, client, [this](const InterfaceState& state) { add(state); });
  }

  const RouterState* find(std::int32_t index) {
    const auto key = static_cast<std::uint32_t>(index);
    if (!states_.contains(key) && !is_complete_)
      read_interface_state(session_, client_, key, [this](const InterfaceState& state) { add(state); });
    const auto found = states_.find(key);
    return found == states_.end() ? nullptr : &found->second;
  }

 private:
  void add(const InterfaceState& state) {
    states_[state.index] = {state.up != 0, text_or_empty(state.addresses), text_or_empty(state.description)};
  }

  const Session& session_;
  kvtree::Client& client_;
  const bool is_complete_;
  std::map<std::uint32_t, RouterState> states_;
};

std::string state_text(const InterfaceView& view) {
  if (view.state == nullptr) return "-";
  return view.state->is_up ? "up" : "down";
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
}

}  // namespace cli

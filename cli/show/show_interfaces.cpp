// "show interfaces": the VRF interface table, printed batch by batch, with the state and the addresses that
// the router has of each interface. A daemon that does not state them is of an earlier version.
#include <fmt/format.h>

#include <map>

#include "cli/commands.h"
#include "cli/output/mib_json.h"
#include "cli/output/row_writer.h"
#include "cli/show/tables.h"
#include "platform/core/text/words.h"
#include "platform/router/interface_states/records.h"

namespace cli {

namespace {

using interface_states::InterfaceState;
using interface_states::kInterfaceStateParcel;
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
      : session_(session), client_(client) {
    if (all) walk();
  }

  const RouterState* find(std::int32_t index) {
    const auto found = states_.find(static_cast<std::uint32_t>(index));
    if (found != states_.end()) return &found->second;
    return is_complete_ ? nullptr : read(static_cast<std::uint32_t>(index));
  }

 private:
  static std::string path_of(const char* read, std::uint32_t key) {
    return fmt::format("{}{}/{}", interface_states::kProviderPath, read, key);
  }

  void walk() {
    is_complete_ = true;
    for (std::uint32_t handle = 0;;) {
      const std::string path = path_of(interface_states::kNext, handle);
      const kvtree::WalkResult rows = client_.walk(path, kRowBatch);
      if (rows.status == kStatusUnknownPath || rows.status == kStatusNoSuchRow) return;
      if (rows.status) throw request_failure(session_, path, rows.status);
      for (const kvtree::Octets& octets : rows.rows) handle = add(path, octets);
      if (rows.end || rows.rows.empty()) return;
    }
  }

  const RouterState* read(std::uint32_t index) {
    const std::string path = path_of(interface_states::kIndex, index);
    const kvtree::GetResult result = client_.get(path);
    if (result.status == kStatusUnknownPath || result.status == kStatusNoSuchRow) return nullptr;
    if (result.status) throw request_failure(session_, path, result.status);
    add(path, result.record);
    return &states_.at(index);
  }

  // The interface's handle.
  std::uint32_t add(const std::string& path, const kvtree::Octets& octets) {
    const Record<InterfaceState> state(session_, path, kInterfaceStateParcel, octets);
    states_[state->index] = {state->up != 0, text_or_empty(state->addresses),
                             text_or_empty(state->description)};
    return state->handle;
  }

  const Session& session_;
  kvtree::Client& client_;
  bool is_complete_ = false;
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

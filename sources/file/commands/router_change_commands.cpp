// The commands of the action "router" that change the model. Each checks its words, makes one change and
// reports it. The model accepts or refuses the change, so a command cannot do what a source cannot do.
#include "sources/file/commands/router_commands.h"

#include <algorithm>

#include "platform/config/vrf_config.h"
#include "platform/store/tree/action_warning.h"
#include "sources/file/commands/router_words.h"
#include "sources/file/reader/router_file.h"

namespace {

using router::Address;
using router::Interface;
using router::kDefaultVrf;
using router::Vrf;
using router_words::apply_options;
using router_words::Option;
using router_words::parse_number;
using router_words::quoted;
using router_words::refuse;
using router_words::report;
using router_words::take_number;
using router_words::take_text;

Status unknown_interface(const RouterCommandContext& context, const std::string& name) {
  *context.text = "there is no interface " + quoted(name);
  return kStatusNoSuchRow;
}

bool is_description(std::string_view text) {
  const auto is_control = [](char octet) {
    return static_cast<unsigned char>(octet) < 0x20 || octet == 0x7f;
  };
  return text.size() <= router_file::kDescriptionMax && std::ranges::none_of(text, is_control);
}
bool is_route_distinguisher(std::string_view text) {
  return vrf_config::parse_target(text).has_value();
}

bool take_table(const std::string& value, Vrf* vrf) {
  if (!parse_number(value, 1, UINT32_MAX, &vrf->ipv4_table)) return false;
  vrf->ipv6_table = vrf->ipv4_table;
  return true;
}
bool take_big(const std::string&, Vrf* vrf) {
  vrf->flags |= router::kVrfFlagBig;
  return true;
}
bool take_address(const std::string& value, Interface* interface) {
  Address address;
  if (!router::parse_address(value, &address)) return false;
  interface->addresses.push_back(address);
  return true;
}
template <bool kUp>
bool take_state(const std::string&, Interface* interface) {
  interface->up = kUp;
  return true;
}

constexpr Option<Vrf> kVrfOptions[] = {
    {"id", true, take_number<Vrf, &Vrf::id, router_file::kFirstVrfId, UINT32_MAX>},
    {"table", true, take_table},
    {"rd", true, take_text<Vrf, &Vrf::rd, is_route_distinguisher>},
    {"description", true, take_text<Vrf, &Vrf::description, is_description>},
    {"big", false, take_big},
};

constexpr Option<Interface> kInterfaceOptions[] = {
    {"index", true, take_number<Interface, &Interface::index, 1, router_file::kIndexMax>},
    {"vrf", true, take_text<Interface, &Interface::vrf, router::valid_vrf_name>},
    {"address", true, take_address},
    {"description", true, take_text<Interface, &Interface::description, is_description>},
    {"up", false, take_state<true>},
    {"down", false, take_state<false>},
};

// "--help" in place of a name asks for help. A router file may use such names.
bool is_like_an_option(const std::string& name) {
  return name.starts_with('-') && name.size() > 1;
}

Status bad_name(const RouterCommandContext& context, const char* kind) {
  const std::string& name = context.arguments[0];
  return refuse(context,
                quoted(name) + " is not " + kind + " name" +
                    (is_like_an_option(name) ? "; a name in a command does not begin with \"-\"" : ""));
}

// --- VRFs

// One above the largest in use; 0 when there is none.
std::uint32_t free_vrf_id(const router::Router& model) {
  std::uint32_t largest = router_file::kFirstVrfId - 1;
  model.for_each_vrf([&](const Vrf& vrf) { largest = std::max(largest, vrf.id); });
  return largest + 1;
}

void complete_vrf(const router::Router& model, Vrf* vrf) {
  if (vrf->id == 0 && vrf->ipv4_table >= router_file::kFirstVrfId) vrf->id = vrf->ipv4_table;
  if (vrf->id == 0) vrf->id = free_vrf_id(model);
  if (vrf->ipv4_table == 0) vrf->ipv4_table = vrf->ipv6_table = vrf->id;
}

std::string vrf_conflict(const router::Router& model, const Vrf& vrf) {
  if (model.find_vrf(vrf.name) != nullptr) return "VRF " + vrf.name + " exists";
  const Vrf* other = model.find_vrf_by_id(vrf.id);
  return other == nullptr ? std::string()
                          : "the VRF id " + std::to_string(vrf.id) + " is that of VRF " + other->name;
}

std::string no_vrf(const std::string& name) {
  return "VRF " + name + " does not exist";
}

Status add_vrf(const RouterCommandContext& context) {
  Vrf vrf;
  vrf.name = context.arguments[0];
  if (!router::valid_vrf_name(vrf.name) || is_like_an_option(vrf.name)) return bad_name(context, "a VRF");
  if (const Status status = apply_options(context, 1, kVrfOptions, &vrf)) return status;
  complete_vrf(*context.model, &vrf);
  const std::string conflict = vrf_conflict(*context.model, vrf);
  return report(context, context.model->create_vrf(vrf),
                "VRF " + vrf.name + " created with id " + std::to_string(vrf.id), conflict);
}

Status delete_vrf(const RouterCommandContext& context) {
  const std::string& name = context.arguments[0];
  if (context.model->find_vrf(name) == nullptr) {
    *context.text = no_vrf(name);
    return kStatusNoSuchRow;
  }
  return report(context, context.model->delete_vrf(name), "VRF " + name + " deleted");
}

Status reference_vrf(const RouterCommandContext& context) {
  const std::string& name = context.arguments[0];
  if (is_like_an_option(name)) return bad_name(context, "a VRF");
  return report(context, context.model->reference_vrf(name), "VRF " + name + " is named");
}

Status unreference_vrf(const RouterCommandContext& context) {
  const std::string& name = context.arguments[0];
  return report(context, context.model->unreference_vrf(name), "VRF " + name + " is not named any more",
                "nothing references VRF " + name);
}

// --- Interfaces

std::string interface_conflict(const router::Router& model, const Interface& interface) {
  if (model.find_interface_by_name(interface.name) != nullptr)
    return "interface " + interface.name + " exists";
  const Interface* other = model.find_interface_by_index(interface.index);
  return other == nullptr
             ? std::string()
             : "the index " + std::to_string(interface.index) + " is that of interface " + other->name;
}

Status add_interface(const RouterCommandContext& context) {
  Interface interface;
  interface.name = context.arguments[0];
  interface.up = true;
  if (!router::valid_interface_name(interface.name) || is_like_an_option(interface.name))
    return bad_name(context, "an interface");
  if (const Status status = apply_options(context, 1, kInterfaceOptions, &interface)) return status;
  if (interface.index == 0) return refuse(context, "an interface needs an index");
  const std::string conflict = interface_conflict(*context.model, interface);
  return report(context, context.model->add_interface(interface), "interface " + interface.name + " added",
                conflict);
}

Status delete_interface(const RouterCommandContext& context) {
  const std::string name = context.arguments[0];
  const Interface* interface = context.model->find_interface_by_name(name);
  if (interface == nullptr) return unknown_interface(context, name);
  return report(context, context.model->remove_interface(interface->handle),
                "interface " + name + " removed");
}

// Changes a copy of the named interface and passes it to the model.
template <typename Change>
Status change_interface(const RouterCommandContext& context, const std::string& done, Change change) {
  const Interface* interface = context.model->find_interface_by_name(context.arguments[0]);
  if (interface == nullptr) return unknown_interface(context, context.arguments[0]);
  Interface changed = *interface;
  if (const Status status = change(&changed)) return status;
  return report(context, context.model->change_interface(changed), "interface " + changed.name + done);
}

template <bool kUp>
Status set_state(const RouterCommandContext& context) {
  return change_interface(context, kUp ? " is up" : " is down", [](Interface* interface) {
    interface->up = kUp;
    return kStatusOk;
  });
}

Status move_interface(const RouterCommandContext& context, const std::string& vrf) {
  const std::string& name = context.arguments[0];
  const Interface* interface = context.model->find_interface_by_name(name);
  if (interface == nullptr) return unknown_interface(context, name);
  std::string done =
      vrf == kDefaultVrf ? "interface " + name + " is in no VRF" : "interface " + name + " is in VRF " + vrf;
  if (context.model->find_vrf(vrf) == nullptr)
    done += std::string(kKvActionWarning) + "VRF " + vrf + " does not exist; \"router add-vrf " + vrf +
            "\" creates it";
  return report(context, context.model->move_interface(interface->handle, vrf), done);
}

Status join_vrf(const RouterCommandContext& context) {
  return move_interface(context, context.arguments[1]);
}
Status leave_vrf(const RouterCommandContext& context) {
  return move_interface(context, std::string(kDefaultVrf));
}

auto is_same_address(const Address& address) {
  return [address](const Address& other) {
    return other.family == address.family && other.octets == address.octets;
  };
}

Status add_address(const RouterCommandContext& context) {
  const std::string& text = context.arguments[1];
  return change_interface(context, " has address " + text, [&](Interface* interface) {
    Address address;
    if (!router::parse_address(text, &address)) return refuse(context, quoted(text) + " is not an address");
    if (std::ranges::any_of(interface->addresses, is_same_address(address))) {
      *context.text = "interface " + interface->name + " has this address already";
      return kStatusExists;
    }
    interface->addresses.push_back(address);
    return kStatusOk;
  });
}

Status delete_address(const RouterCommandContext& context) {
  const std::string& text = context.arguments[1];
  return change_interface(context, " has no address " + text + " any more", [&](Interface* interface) {
    Address address;
    if (!router::parse_address(text, &address)) return refuse(context, quoted(text) + " is not an address");
    std::vector<Address> remaining = interface->addresses.values();
    if (std::erase_if(remaining, is_same_address(address)) == 0) {
      *context.text = "interface " + interface->name + " has no such address";
      return kStatusNoSuchRow;
    }
    interface->addresses = remaining;
    return kStatusOk;
  });
}

Status reload(const RouterCommandContext& context) {
  context.reload(context.end);
  return kStatusInProgress;
}

}  // namespace

const std::vector<RouterCommand>& router_commands() {
  static const std::vector<RouterCommand> commands = {
      {"show", "[NAME] [--json]", "the router, one VRF with its interfaces, or one interface", false, 0, 2,
       router_show},
      {"add-vrf", "NAME [id N] [table N] [rd RD] [description TEXT] [big]",
       "creates a VRF; without an id it gets its table's number or the next free one", true, 1,
       kAnyNumberOfArguments, add_vrf},
      {"delete-vrf", "NAME", "deletes a VRF; its interfaces still name it", true, 1, 1, delete_vrf},
      {"reference", "NAME", "names a VRF without creating it", true, 1, 1, reference_vrf},
      {"unreference", "NAME", "removes the reference", true, 1, 1, unreference_vrf},
      {"add-interface", "NAME index N [vrf VRF] [up|down] [address A]... [description TEXT]",
       "adds an interface; it is up unless `down` is given", true, 1, kAnyNumberOfArguments, add_interface},
      {"delete-interface", "NAME", "removes an interface", true, 1, 1, delete_interface},
      {"up", "NAME", "sets the interface up", true, 1, 1, set_state<true>},
      {"down", "NAME", "sets the interface down", true, 1, 1, set_state<false>},
      {"join", "NAME VRF", "moves the interface to the VRF", true, 2, 2, join_vrf},
      {"move", "NAME VRF", "the same as join", true, 2, 2, join_vrf},
      {"leave", "NAME", "the interface leaves its VRF", true, 1, 1, leave_vrf},
      {"add-address", "NAME ADDRESS[/LENGTH]", "adds an address after those the interface has", true, 2, 2,
       add_address},
      {"delete-address", "NAME ADDRESS", "removes an address", true, 2, 2, delete_address},
      {"add-route", "VRF PREFIX [via ADDRESS] [interface NAME] [type T] [protocol P] [metric N] [label N]...",
       "adds a path, or replaces the one with this prefix and next hop", true, 2, kAnyNumberOfArguments,
       router_add_route},
      {"delete-route", "VRF PREFIX [via ADDRESS]", "removes a path", true, 2, 4, router_delete_route},
      {"reload", "", "loads the file again; what these commands changed is lost", true, 0, 0, reload},
  };
  return commands;
}

#include <utility>

#include "sources/file/reader/router_entries.h"

namespace router_file {

namespace {

void read_address(const Node& value, InterfaceEntry* entry) {
  const std::string text = read_text(value, "an address");
  router::Address address;
  if (!router::parse_address(text, &address)) {
    refuse(value.mark(), quoted(text) + " is not an address such as 192.0.2.1/24 or 2001:db8::1/64");
  }
  for (const router::Address& other : entry->addresses) {
    if (other.family == address.family && other.octets == address.octets) {
      refuse(value.mark(), "the address " + quoted(text) + " is written twice");
    }
  }
  entry->addresses.push_back(address);
}

constexpr Key<InterfaceEntry> kInterfaceKeys[] = {
    {"name",
     [](const Node& value, InterfaceEntry* entry) {
       entry->interface.name = read_line(value, "an interface's name", router::kInterfaceNameMax);
       entry->name_mark = value.mark();
       if (!router::valid_interface_name(entry->interface.name)) {
         refuse(value.mark(), quoted(entry->interface.name) + " is not an interface name");
       }
     }},
    {"index",
     [](const Node& value, InterfaceEntry* entry) {
       entry->interface.index = read_number(value, "an interface's index", 1, kIndexMax);
       entry->index_mark = value.mark();
     }},
    {"description",
     [](const Node& value, InterfaceEntry* entry) {
       entry->interface.description = read_line(value, "a description", kDescriptionMax);
     }},
    {"state",
     [](const Node& value, InterfaceEntry* entry) {
       entry->interface.up = read_choice(value, "an interface's state", {"down", "up"}) == 1;
     }},
    {"addresses",
     [](const Node& value, InterfaceEntry* entry) {
       read_sequence(value, "addresses", [&](const Node& item) { read_address(item, entry); });
     }},
    {"vrf", [](const Node& value, InterfaceEntry* entry) { entry->interface.vrf = read_vrf_name(value); }},
};

}  // namespace

void read_interface(const Node& item, Document* document) {
  InterfaceEntry entry;
  entry.interface.up = true;
  read_map(item, "an interface", kInterfaceKeys, &entry);
  if (entry.interface.name.empty()) refuse(item.mark(), "an interface needs a name");
  if (entry.interface.index == 0) {
    refuse(item.mark(), "the interface " + quoted(entry.interface.name) + " needs an index");
  }
  entry.interface.addresses = std::exchange(entry.addresses, {});
  document->interfaces.push_back(std::move(entry));
}

}  // namespace router_file

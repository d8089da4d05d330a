// The first pass reads the keys of each entry and remembers the position of its identifying values. The
// second pass checks the entries against each other (a name, id or index is used once) and makes the lists.
// Both throw Misreading, which parse() turns into a ParseError.
//
// Generated entries are checked against the written ones too; a clash is reported at the `generate` key.
#include "sources/file/reader/router_file.h"

#include <unordered_map>
#include <utility>

#include "sources/file/reader/configuration_reader.h"
#include "sources/file/reader/generator.h"
#include "sources/file/reader/route_reader.h"
#include "sources/file/reader/yaml_reader.h"

namespace router_file {

namespace {

struct VrfEntry {
  router::Vrf vrf;
  bool referenced = false;
  bool has_details = false;  // what only a VRF that is created has
  std::vector<RouteEntry> routes;
  ConfiguredItems configuration;
  Mark name_mark;
  Mark id_mark;
  bool id_is_of_table = false;
  Mark table_mark;  // of table or tables
  Mark rd_mark;
};

struct InterfaceEntry {
  router::Interface interface;  // without `addresses`
  std::vector<router::Address> addresses;
  Mark name_mark;
  Mark index_mark;
};

struct GeneratorEntry : Generator {
  std::uint32_t routes_per_vrf = 0;
  bool has_vrfs = false;
  bool has_interfaces = false;
  Mark mark;
};

struct Document {
  std::vector<VrfEntry> vrfs;
  std::vector<InterfaceEntry> interfaces;
  GeneratorEntry generate;
  std::vector<KvConfigNode> settings;  // of no VRF
};

std::string read_vrf_name(const Node& value) {
  std::string name = read_line(value, "a VRF's name", router::kVrfNameMax);
  if (!router::valid_vrf_name(name)) refuse(value.mark(), quoted(name) + " is not a VRF name");
  return name;
}

// --- A VRF's keys

void read_id(const Node& value, VrfEntry* entry) {
  entry->vrf.id = read_number(value, "a VRF's id", kFirstVrfId, UINT32_MAX);
  entry->id_mark = value.mark();
  entry->has_details = true;
}

void begin_tables(const Node& value, VrfEntry* entry) {
  if (!entry->table_mark.is_null()) refuse(value.mark(), "a VRF has a table or tables, not both");
  entry->table_mark = value.mark();
  entry->has_details = true;
}

void read_table(const Node& value, VrfEntry* entry) {
  begin_tables(value, entry);
  entry->vrf.ipv4_table = read_number(value, "a table", 1, UINT32_MAX);
  entry->vrf.ipv6_table = entry->vrf.ipv4_table;
}

template <std::uint32_t router::Vrf::*kTable>
void read_family_table(const Node& value, VrfEntry* entry) {
  entry->vrf.*kTable = read_number(value, "a table", 1, UINT32_MAX);
}

constexpr Key<VrfEntry> kTableKeys[] = {
    {"ipv4", read_family_table<&router::Vrf::ipv4_table>},
    {"ipv6", read_family_table<&router::Vrf::ipv6_table>},
    {"ipv4-multicast", read_family_table<&router::Vrf::ipv4_multicast_table>},
    {"ipv6-multicast", read_family_table<&router::Vrf::ipv6_multicast_table>},
};

void read_tables(const Node& value, VrfEntry* entry) {
  begin_tables(value, entry);
  read_map(value, "tables", kTableKeys, entry);
}

void read_rd(const Node& value, VrfEntry* entry) {
  entry->vrf.rd = read_text(value, "a route distinguisher");
  if (!vrf_config::parse_target(entry->vrf.rd)) {
    refuse(value.mark(),
           quoted(entry->vrf.rd) + " is not a route distinguisher such as 65000:100 or 192.0.2.1:100");
  }
  entry->rd_mark = value.mark();
}

// An empty description means none.
void read_description(const Node& value, VrfEntry* entry) {
  entry->vrf.description = read_line(value, "a description", kDescriptionMax);
  if (entry->vrf.description.empty()) return;
  entry->configuration.push_back(
      {value.mark(), vrf_config::Kind::kDescription, {.text = entry->vrf.description}});
}

template <void (*read_items)(const Node&, ConfiguredItems*)>
void read_configuration(const Node& value, VrfEntry* entry) {
  read_items(value, &entry->configuration);
}

constexpr Key<VrfEntry> kVrfKeys[] = {
    {"name",
     [](const Node& value, VrfEntry* entry) {
       entry->vrf.name = read_vrf_name(value);
       entry->name_mark = value.mark();
       if (entry->vrf.name == router::kDefaultVrf) refuse(value.mark(), "the VRF \"default\" exists always");
     }},
    {"id", read_id},
    {"table", read_table},
    {"tables", read_tables},
    {"description", read_description},
    {"rd", read_rd},
    {"big",
     [](const Node& value, VrfEntry* entry) {
       entry->vrf.flags = read_switch(value, "big") ? router::kVrfFlagBig : 0;
       entry->has_details = true;
     }},
    {"state",
     [](const Node& value, VrfEntry* entry) {
       entry->referenced = read_choice(value, "a VRF's state", {"created", "referenced"}) == 1;
     }},
    {"routes",
     [](const Node& value, VrfEntry* entry) {
       read_routes(value, &entry->routes);
       entry->has_details = true;
     }},
    {"route_targets", read_configuration<read_route_targets>},
    {"policies", read_configuration<read_policies>},
    {"thresholds", read_configuration<read_thresholds>},
    {"bgp", read_configuration<read_bgp>},
    {"ospf", read_configuration<read_ospf>},
    {"rip", read_configuration<read_rip>},
    {"eigrp", read_configuration<read_eigrp>},
    {"static", read_configuration<read_static_routes>},
};

std::uint32_t first_table(const router::Vrf& vrf) {
  for (const std::uint32_t table :
       {vrf.ipv4_table, vrf.ipv6_table, vrf.ipv4_multicast_table, vrf.ipv6_multicast_table}) {
    if (table != 0) return table;
  }
  return 0;
}

void complete_identity(const Node& item, VrfEntry* entry) {
  router::Vrf& vrf = entry->vrf;
  if (vrf.id == 0) {
    vrf.id = first_table(vrf);
    entry->id_mark = entry->table_mark;
    entry->id_is_of_table = true;
    if (vrf.id == 0) refuse(item.mark(), "the VRF " + quoted(vrf.name) + " needs an id or a table");
    if (vrf.id < kFirstVrfId)
      refuse(entry->id_mark, "table 1 gives no id (1 is the id of \"default\"): write an id");
  }
  if (entry->table_mark.is_null()) vrf.ipv4_table = vrf.ipv6_table = vrf.id;
}

// The RD of a referenced VRF is configuration; that of a created VRF is an attribute of the VRF.
void complete_reference(const Node& item, VrfEntry* entry) {
  if (entry->has_details) {
    refuse(item.mark(), "the VRF " + quoted(entry->vrf.name) +
                            " is only named: it has configuration, but no id, no tables and no routes");
  }
  if (entry->vrf.rd.empty()) return;
  const vrf_config::Target rd = vrf_config::parse_target(entry->vrf.rd).value();
  entry->configuration.push_back(
      {entry->rd_mark, vrf_config::Kind::kRouteDistinguisher, {.text = vrf_config::target_text(rd)}});
}

void read_vrf(const Node& item, Document* document) {
  VrfEntry entry;
  read_map(item, "a VRF", kVrfKeys, &entry);
  if (entry.vrf.name.empty()) refuse(item.mark(), "a VRF needs a name");
  if (!entry.referenced) {
    complete_identity(item, &entry);
  } else {
    complete_reference(item, &entry);
  }
  document->vrfs.push_back(std::move(entry));
}

// --- An interface's keys

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

// --- The generator's keys and the document's

constexpr Key<GeneratorEntry> kGeneratorKeys[] = {
    {"vrfs",
     [](const Node& value, GeneratorEntry* entry) {
       entry->vrfs = read_number(value, "the number of generated VRFs", 0, kGeneratedVrfsMax);
       entry->has_vrfs = true;
     }},
    {"interfaces_per_vrf",
     [](const Node& value, GeneratorEntry* entry) {
       entry->interfaces_per_vrf =
           read_number(value, "the number of interfaces per VRF", 0, kGeneratedInterfacesPerVrfMax);
       entry->has_interfaces = true;
     }},
    {"first_id",
     [](const Node& value, GeneratorEntry* entry) {
       entry->first_id = read_number(value, "the first id", kFirstVrfId, kIndexMax);
     }},
    {"first_index",
     [](const Node& value, GeneratorEntry* entry) {
       entry->first_index = read_number(value, "the first index", 1, kIndexMax);
     }},
    {"routes_per_vrf",
     [](const Node& value, GeneratorEntry* entry) {
       entry->routes_per_vrf = read_number(value, "the number of routes per VRF", 0, kGeneratedRoutesMax);
     }},
};

void read_generator(const Node& value, Document* document) {
  GeneratorEntry& entry = document->generate;
  entry.mark = value.mark();
  read_map(value, "generate", kGeneratorKeys, &entry);
  if (!entry.has_vrfs || !entry.has_interfaces)
    refuse(entry.mark, "generate needs vrfs and interfaces_per_vrf");
  const std::uint32_t interfaces = entry.vrfs * entry.interfaces_per_vrf;
  if (interfaces > kGeneratedInterfacesMax) {
    refuse(entry.mark, "generate makes " + std::to_string(interfaces) + " interfaces, more than " +
                           std::to_string(kGeneratedInterfacesMax));
  }
  if (interfaces > kIndexMax - entry.first_index) refuse(entry.mark, "generate passes the largest index");
}

constexpr Key<Document> kDocumentKeys[] = {
    {"vrfs",
     [](const Node& value, Document* document) {
       read_sequence(value, "VRFs", [&](const Node& item) { read_vrf(item, document); });
     }},
    {"interfaces",
     [](const Node& value, Document* document) {
       read_sequence(value, "interfaces", [&](const Node& item) { read_interface(item, document); });
     }},
    {"generate", read_generator},
    {"as_format", [](const Node& value, Document* document) { read_as_format(value, &document->settings); }},
    {"traps", [](const Node& value, Document* document) { read_traps(value, &document->settings); }},
};

// --- The entries against each other

// Values that may be used once. Line 0 means "generated".
template <typename T>
class Once {
 public:
  // `shown` is what messages call the value, `advice` what they end with.
  void take(const T& value, const std::string& shown, const Mark& mark, bool generated,
            const char* advice = "") {
    const auto [used, is_new] = lines_.try_emplace(value, generated ? 0 : mark.line);
    if (is_new) return;
    refuse(mark, shown + " is used already" +
                     (used->second == 0 ? std::string() : ", in line " + std::to_string(used->second)) +
                     advice);
  }

 private:
  std::unordered_map<T, int> lines_;
};

class Checker {
 public:
  void vrf_name(const std::string& name, const Mark& mark, bool generated = false) {
    vrf_names_.take(name, "the VRF name " + quoted(name), mark, generated);
  }
  void vrf_id(std::uint32_t id, const Mark& mark, bool generated = false, bool of_table = false) {
    vrf_ids_.take(id, "the VRF id " + std::to_string(id) + (of_table ? " (taken from the table)" : ""), mark,
                  generated, of_table ? "; write an id" : "");
  }
  void interface(const router::Interface& interface, const Mark& name_mark, const Mark& index_mark,
                 bool generated = false) {
    interface_names_.take(interface.name, "the interface name " + quoted(interface.name), name_mark,
                          generated);
    indexes_.take(interface.index, "the interface index " + std::to_string(interface.index), index_mark,
                  generated);
  }

 private:
  Once<std::string> vrf_names_;
  Once<std::uint32_t> vrf_ids_;
  Once<std::string> interface_names_;
  Once<std::uint32_t> indexes_;
};

void add_configuration(const Document& document, RouterFile* file) {
  ConfigurationCollector collector;
  for (const VrfEntry& entry : document.vrfs) {
    collector.add(entry.vrf, entry.referenced, entry.configuration);
  }
  file->configuration = collector.take();
  file->configuration.insert(file->configuration.end(), document.settings.begin(), document.settings.end());
}

void add_written(Document* document, Checker* checker, RouterFile* file) {
  for (const VrfEntry& entry : document->vrfs) {
    checker->vrf_name(entry.vrf.name, entry.name_mark);
    if (entry.referenced) {
      file->references.push_back(entry.vrf.name);
      continue;
    }
    checker->vrf_id(entry.vrf.id, entry.id_mark, false, entry.id_is_of_table);
    file->vrfs.push_back(entry.vrf);
  }
  for (InterfaceEntry& entry : document->interfaces) {
    checker->interface(entry.interface, entry.name_mark, entry.index_mark);
    file->interfaces.push_back(std::move(entry.interface));
  }
}

void add_generated(const GeneratorEntry& entry, Checker* checker, RouterFile* file) {
  RouterFile generated;
  generate(entry, &generated);
  for (router::Vrf& vrf : generated.vrfs) {
    checker->vrf_name(vrf.name, entry.mark, true);
    checker->vrf_id(vrf.id, entry.mark, true);
    file->vrfs.push_back(std::move(vrf));
  }
  for (router::Interface& interface : generated.interfaces) {
    checker->interface(interface, entry.mark, entry.mark, true);
    file->interfaces.push_back(std::move(interface));
  }
}

void add_routes(const Document& document, RouterFile* file) {
  RouteCollector collector(file->interfaces);
  for (const VrfEntry& entry : document.vrfs) {
    for (const RouteEntry& route : entry.routes) collector.add(entry.vrf, route);
  }
  if (document.generate.routes_per_vrf > 0) {
    const RouteEntry routes = generated_routes(document.generate.routes_per_vrf, document.generate.mark);
    const std::size_t first = file->vrfs.size() - document.generate.vrfs;
    for (std::size_t at = first; at < file->vrfs.size(); ++at) collector.add(file->vrfs[at], routes);
  }
  file->routes = collector.finish();
}

// Also "vrfs:" alone, which is what remains of a file that was cut: loading it would delete every VRF.
bool is_empty(const Node* root) {
  if (root == nullptr || root->is_null()) return true;
  if (!root->is_map() || root->items().empty()) return false;
  for (std::size_t value = 1; value < root->items().size(); value += 2) {
    if (!root->items()[value]->is_null()) return false;
  }
  return true;
}

RouterFile read_document(const std::string& text) {
  const YamlDocument yaml = parse_yaml(text);
  if (is_empty(yaml.root)) {
    refuse(Mark{1, 1}, "the file is empty; a router without anything is written \"vrfs: []\"");
  }
  Document document;
  read_map(*yaml.root, "a router file", kDocumentKeys, &document);
  RouterFile file;
  Checker checker;
  add_written(&document, &checker, &file);
  add_configuration(document, &file);
  add_generated(document.generate, &checker, &file);
  add_routes(document, &file);
  return file;
}

void set_error(const Mark& mark, const std::string& what, ParseError* error) {
  *error = mark.is_null() ? ParseError{1, 1, what} : ParseError{mark.line, mark.column, what};
}

}  // namespace

bool parse(const std::string& text, RouterFile* file, ParseError* error) {
  try {
    *file = read_document(text);
    return true;
  } catch (const Misreading& misreading) {
    set_error(misreading.mark(), misreading.what(), error);
  }
  return false;
}

}  // namespace router_file

// What the keys of a router file's entries say, with the positions of their identifying values. Only for this
// folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/file/reader/configuration_reader.h"
#include "sources/file/reader/generator.h"
#include "sources/file/reader/route_reader.h"
#include "sources/file/reader/router_file.h"
#include "sources/file/reader/yaml_reader.h"

namespace router_file {

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

// All throw Misreading.
std::string read_vrf_name(const Node& value);
void read_vrf(const Node& item, Document* document);
void read_interface(const Node& item, Document* document);
// Checks the entries against each other, and moves out of the document what the file has.
RouterFile combine_entries(Document* document);

}  // namespace router_file

#include <utility>

#include "platform/config/target_fault.h"
#include "sources/file/reader/router_entries.h"

namespace router_file {

namespace {

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
    refuse(value.mark(), vrf_config::target_fault(
                             entry->vrf.rd, "a route distinguisher such as 65000:100 or 192.0.2.1:100"));
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

}  // namespace

std::string read_vrf_name(const Node& value) {
  std::string name = read_line(value, "a VRF's name", router::kVrfNameMax);
  if (!router::valid_vrf_name(name)) refuse(value.mark(), quoted(name) + " is not a VRF name");
  return name;
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

}  // namespace router_file

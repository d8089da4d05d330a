#include "platform/config/paths.h"
#include "platform/config/vrf_config.h"

namespace vrf_config {

namespace {

Kind by_direction(Direction direction, Kind import_kind, Kind export_kind) {
  return direction == Direction::kImport ? import_kind : export_kind;
}

// Fields of an interface of a VRF.
Fields interface_fields(std::string_view vrf, std::string_view interface) {
  Fields fields;
  fields.vrf = vrf;
  fields.interface = interface;
  return fields;
}

Fields family_fields(std::string_view vrf, Family family) {
  Fields fields;
  fields.vrf = vrf;
  fields.family = family;
  return fields;
}

}  // namespace

KvConfigNode description(std::string_view vrf, std::string_view text) {
  Fields fields;
  fields.vrf = vrf;
  fields.text = text;
  return node_of(item_of(Kind::kDescription), fields);
}

KvConfigNode vni(std::string_view vrf, std::uint32_t number) {
  Fields fields;
  fields.vrf = vrf;
  fields.number = number;
  return node_of(item_of(Kind::kVni), fields);
}

KvConfigNode route_distinguisher(std::string_view vrf, Family family, const Target& rd) {
  Fields fields = family_fields(vrf, family);
  fields.text = target_text(rd);
  return node_of(item_of(Kind::kRouteDistinguisher), fields);
}

std::vector<std::string> rd_paths(std::string_view vrf) {
  std::vector<std::string> paths;
  for (const Family family : kFamiliesOfTargets) paths.push_back(route_distinguisher(vrf, family, {}).path);
  return paths;
}

KvConfigNode route_target(std::string_view vrf, Family family, Direction direction, const Target& target) {
  Fields fields = family_fields(vrf, family);
  fields.target = target;
  return node_of(item_of(by_direction(direction, Kind::kImportTarget, Kind::kExportTarget)), fields);
}

KvConfigNode route_policy(std::string_view vrf, Family family, Direction direction, std::string_view policy) {
  Fields fields = family_fields(vrf, family);
  fields.text = policy;
  return node_of(item_of(by_direction(direction, Kind::kImportPolicy, Kind::kExportPolicy)), fields);
}

KvConfigNode route_threshold(std::string_view vrf, Family family, std::uint32_t maximum, std::uint32_t mid) {
  Fields fields = family_fields(vrf, family);
  fields.number = maximum;
  fields.mid = mid;
  return node_of(item_of(Kind::kThreshold), fields);
}

KvConfigNode bgp_neighbor(std::string_view vrf, std::uint32_t as_number, std::string_view neighbor,
                          Family family) {
  Fields fields = family_fields(vrf, family);
  fields.as_number = as_number;
  fields.neighbor = neighbor;
  return node_of(item_of(Kind::kBgp), fields);
}

KvConfigNode rip_interface(std::string_view vrf, std::string_view interface) {
  return node_of(item_of(Kind::kRip), interface_fields(vrf, interface));
}

KvConfigNode ripng_interface(std::string_view vrf, std::string_view interface) {
  return node_of(item_of(Kind::kRipng), interface_fields(vrf, interface));
}

KvConfigNode ospf_interface(std::string_view vrf, std::string_view process, std::uint32_t area,
                            std::string_view interface) {
  Fields fields = interface_fields(vrf, interface);
  fields.process = process;
  fields.area = area;
  return node_of(item_of(Kind::kOspf), fields);
}

KvConfigNode eigrp_interface(std::string_view vrf, std::uint32_t as_number, std::string_view interface) {
  Fields fields = interface_fields(vrf, interface);
  fields.as_number = as_number;
  return node_of(item_of(Kind::kEigrp), fields);
}

KvConfigNode static_route(std::string_view vrf, const StaticRoute& route) {
  Fields fields = interface_fields(vrf, route.interface);
  fields.family = route.family;
  fields.prefix = route.prefix;
  fields.next_hop = route.next_hop;
  return node_of(item_of(Kind::kStatic), fields);
}

KvConfigNode as_format(std::string_view format) {
  Fields fields;
  fields.text = format;
  return node_of(item_of(Kind::kAsFormat), fields);
}

KvConfigNode trap_switch(std::string_view item, std::int64_t value) {
  const bool is_time = item == kTrapReissueTime;
  Fields fields;
  fields.text = item;
  KvConfigNode node = node_of(item_of(is_time ? Kind::kReissueTime : Kind::kTrap), fields);
  node.value.number = value;
  return node;
}

}  // namespace vrf_config

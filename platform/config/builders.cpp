#include "platform/config/paths.h"
#include "platform/config/vrf_config.h"

namespace vrf_config {

namespace {

Kind by_direction(Direction direction, Kind import_kind, Kind export_kind) {
  return direction == Direction::kImport ? import_kind : export_kind;
}

std::string text_of(std::string_view view) {
  return std::string(view);
}

}  // namespace

KvConfigNode node_of(Kind kind, const Fields& fields) {
  return node_of(item_of(kind), fields);
}

KvConfigNode description(std::string_view vrf, std::string_view text) {
  return node_of(Kind::kDescription, {.vrf = text_of(vrf), .text = text_of(text)});
}

KvConfigNode vni(std::string_view vrf, std::uint32_t number) {
  return node_of(Kind::kVni, {.vrf = text_of(vrf), .number = number});
}

KvConfigNode route_distinguisher(std::string_view vrf, Family family, const Target& rd) {
  return node_of(Kind::kRouteDistinguisher, {.vrf = text_of(vrf), .family = family, .text = target_text(rd)});
}

std::vector<std::string> rd_paths(std::string_view vrf) {
  std::vector<std::string> paths;
  for (const Family family : kFamiliesOfTargets) paths.push_back(route_distinguisher(vrf, family, {}).path);
  return paths;
}

KvConfigNode route_target(std::string_view vrf, Family family, Direction direction, const Target& target) {
  return node_of(by_direction(direction, Kind::kImportTarget, Kind::kExportTarget),
                 {.vrf = text_of(vrf), .family = family, .target = target});
}

KvConfigNode route_policy(std::string_view vrf, Family family, Direction direction, std::string_view policy) {
  return node_of(by_direction(direction, Kind::kImportPolicy, Kind::kExportPolicy),
                 {.vrf = text_of(vrf), .family = family, .text = text_of(policy)});
}

KvConfigNode route_threshold(std::string_view vrf, Family family, std::uint32_t maximum, std::uint32_t mid) {
  return node_of(Kind::kThreshold, {.vrf = text_of(vrf), .family = family, .number = maximum, .mid = mid});
}

KvConfigNode bgp_neighbor(std::string_view vrf, std::uint32_t as_number, std::string_view neighbor,
                          Family family) {
  return node_of(
      Kind::kBgp,
      {.vrf = text_of(vrf), .family = family, .as_number = as_number, .neighbor = text_of(neighbor)});
}

KvConfigNode rip_interface(std::string_view vrf, std::string_view interface) {
  return node_of(Kind::kRip, {.vrf = text_of(vrf), .interface = text_of(interface)});
}

KvConfigNode ripng_interface(std::string_view vrf, std::string_view interface) {
  return node_of(Kind::kRipng, {.vrf = text_of(vrf), .interface = text_of(interface)});
}

KvConfigNode ospf_interface(std::string_view vrf, std::string_view process, std::uint32_t area,
                            std::string_view interface) {
  return node_of(
      Kind::kOspf,
      {.vrf = text_of(vrf), .process = text_of(process), .area = area, .interface = text_of(interface)});
}

KvConfigNode eigrp_interface(std::string_view vrf, std::uint32_t as_number, std::string_view interface) {
  return node_of(Kind::kEigrp,
                 {.vrf = text_of(vrf), .as_number = as_number, .interface = text_of(interface)});
}

KvConfigNode static_route(std::string_view vrf, const StaticRoute& route) {
  return node_of(Kind::kStatic, {.vrf = text_of(vrf),
                                 .family = route.family,
                                 .interface = route.interface,
                                 .prefix = route.prefix,
                                 .next_hop = route.next_hop});
}

KvConfigNode as_format(std::string_view format) {
  return node_of(Kind::kAsFormat, {.text = text_of(format)});
}

KvConfigNode trap_switch(std::string_view item, std::int64_t value) {
  const bool is_time = item == kTrapReissueTime;
  KvConfigNode made = node_of(is_time ? Kind::kReissueTime : Kind::kTrap, {.text = text_of(item)});
  made.value.number = value;
  return made;
}

}  // namespace vrf_config

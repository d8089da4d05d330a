#include "cli/output/names.h"

#include <array>
#include <span>

#include "platform/core/address/address.h"

namespace cli {

namespace {

constexpr std::array kProtocols = {"none", "bgp", "ospf", "rip", "isis", "static", "other", "bit7"};
constexpr std::array kClassifications = {"carrierOfCarrier", "enterprise", "interProvider"};
constexpr std::array kStorageTypes = {"other", "volatile", "nonVolatile", "permanent", "readOnly"};
constexpr std::array kRowStatuses = {"active",      "notInService",  "notReady",
                                     "createAndGo", "createAndWait", "destroy"};
constexpr std::array kVrfStatuses = {"up", "down", "testing"};
constexpr std::array kRouteTargetTypes = {"import", "export", "both"};
constexpr std::array kAddressTypes = {"unknown", "ipv4", "ipv6", "ipv4z", "ipv6z"};
constexpr std::array kRouteTypes = {"other", "reject", "local", "remote", "blackhole"};
constexpr std::array kRouteProtocols = {"other", "local", "static", "icmp", "egp",     "ggp",  "hello",
                                        "rip",   "isis",  "esis",   "igrp", "bbn-spf", "ospf", "bgp",
                                        "idpr",  "eigrp", "dvmrp",  "rpl",  "dhcp",    "ttdp"};
constexpr std::array kAfis = {"ipv4", "ipv6"};
constexpr std::array kSafis = {"unicast", "multicast"};
constexpr std::array kSwitch = {"disabled", "enabled"};

// The name of `value` in a list that starts with the name of `first`.
std::string name_of(std::span<const char* const> names, std::int64_t first, std::int64_t value) {
  const std::int64_t position = value - first;
  if (position < 0 || position >= static_cast<std::int64_t>(names.size())) return std::to_string(value);
  return names[static_cast<std::size_t>(position)];
}

}  // namespace

std::vector<std::string> protocol_names(std::uint8_t bits) {
  std::vector<std::string> names;
  for (std::size_t bit = 0; bit < kProtocols.size(); ++bit) {
    if ((bits & (0x80U >> bit)) != 0) names.emplace_back(kProtocols[bit]);
  }
  return names;
}

std::string classification_name(std::int32_t value) {
  return name_of(kClassifications, 1, value);
}
std::string storage_type_name(std::int32_t value) {
  return name_of(kStorageTypes, 1, value);
}
std::string row_status_name(std::int32_t value) {
  return name_of(kRowStatuses, 1, value);
}
std::string notification_switch_name(std::int32_t value) {
  return name_of(kSwitch, 0, value);
}
std::string vrf_status_name(std::int32_t value) {
  return name_of(kVrfStatuses, 1, value);
}
std::string route_target_type_name(std::int32_t value) {
  return name_of(kRouteTargetTypes, 1, value);
}
std::string address_type_name(std::int32_t value) {
  return name_of(kAddressTypes, 0, value);
}
std::string route_type_name(std::int32_t value) {
  return name_of(kRouteTypes, 1, value);
}
std::string route_protocol_name(std::int32_t value) {
  return name_of(kRouteProtocols, 1, value);
}
std::string afi_name(std::uint32_t value) {
  return value == inet::kL2VpnAfi ? "l2vpn" : name_of(kAfis, 1, value);
}
std::string safi_name(std::uint32_t value) {
  if (value == inet::kEvpnSafi) return "evpn";
  return value == inet::kFlowSafi ? "flow" : name_of(kSafis, 1, value);
}

}  // namespace cli

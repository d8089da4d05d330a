// Paths and values of VRF configuration.
//
// Keys that hold nothing in a path are "-"; the last component of a path is always a literal or a key that is
// there, so that one item has one path.
#include "platform/config/vrf_config.h"

#include "platform/config/addresses.h"
#include "platform/config/paths.h"
#include "platform/store/tree/kvtree.h"

namespace vrf_config {

const char* family_word(Family family) {
  switch (family) {
    case Family::kIpv4:
      return "ipv4";
    case Family::kIpv6:
      return "ipv6";
    case Family::kEvpn:
      return "evpn";
  }
  return "";
}

namespace {

constexpr char kUnicast[] = "1";
constexpr char kEvpnSafi[] = "70";

std::string key(std::string_view text) {
  return kvtree_encode_text(text);
}

std::string key_or_none(std::string_view text) {
  return text.empty() ? "-" : kvtree_encode_text(text);
}

std::string number(Family family) {
  return std::to_string(static_cast<std::uint32_t>(family));
}

// The text of an address in its shortest form; what is no address stays as it is.
std::string shortest(std::string_view text) {
  const std::optional<Address> address = parse_address(text);
  return address ? address_text(*address) : std::string(text);
}

std::string table_path(std::string_view vrf, Family family) {
  return std::string(kVrfScope) + "vrf/" + key(vrf) + "/ord_z/afi_safi/" + number(family) + "/" +
         (family == Family::kEvpn ? kEvpnSafi : kUnicast) + "/default/";
}

// Every octet as %XX.
std::string escaped(std::string_view text) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  std::string all;
  for (const char octet : text) {
    const auto value = static_cast<unsigned char>(octet);
    all.append({'%', kHexDigits[value >> 4], kHexDigits[value & 15]});
  }
  return all;
}

std::string rip_path(std::string_view vrf, const std::string& interface_key) {
  return std::string(kRipScope) + key(vrf) + "/ord_t/if/" + interface_key + "/ord_d/enabled";
}

KvConfigNode text_node(std::string path, std::string_view text) {
  KvConfigNode node;
  node.path = std::move(path);
  node.value.type = KvValueType::kText;
  node.value.text = text;
  return node;
}

KvConfigNode number_node(std::string path, std::int64_t value) {
  KvConfigNode node;
  node.path = std::move(path);
  node.value.type = KvValueType::kNumber;
  node.value.number = value;
  return node;
}

}  // namespace

KvConfigNode description(std::string_view vrf, std::string_view text) {
  return text_node(std::string(kVrfScope) + "vrf/" + key(vrf) + "/ord_a/vmap/ord_k/vmap/descr", text);
}

KvConfigNode vni(std::string_view vrf, std::uint32_t number) {
  return number_node(std::string(kVrfScope) + "vrf/" + key(vrf) + "/ord_a/vmap/ord_l/evpn/vni", number);
}

KvConfigNode route_distinguisher(std::string_view vrf, Family family, const Target& rd) {
  return text_node(table_path(vrf, family) + "ord_b/bgp/ord_a/rd", target_text(rd));
}

KvConfigNode route_target(std::string_view vrf, Family family, Direction direction, const Target& target) {
  const bool address = target.type == Target::Type::kIpv4Address;
  std::string path = table_path(vrf, family);
  path += direction == Direction::kImport ? "ord_b/bgp/ord_c/import-rt/" : "ord_b/bgp/ord_e/export-rt/";
  path += std::to_string(static_cast<std::uint32_t>(target.type)) + "/";
  path += address
              ? "0/0/0/" + dotted_quad(target.administrator) + "/" + std::to_string(target.assigned) + "/0"
              : std::to_string(target.administrator >> 16) + "/" +
                    std::to_string(target.administrator & 0xffff) + "/" + std::to_string(target.assigned) +
                    "/0.0.0.0/0/0";
  return number_node(std::move(path), 1);
}

KvConfigNode route_policy(std::string_view vrf, Family family, Direction direction, std::string_view policy) {
  const char* place =
      direction == Direction::kImport ? "ord_b/bgp/ord_b/import-policy" : "ord_b/bgp/ord_d/export-policy";
  return text_node(table_path(vrf, family) + place, policy);
}

KvConfigNode route_threshold(std::string_view vrf, Family family, std::uint32_t maximum, std::uint32_t mid) {
  KvConfigNode node;
  node.path = table_path(vrf, family) + "ord_e/rib/table-prefix-limit";
  node.value.type = KvValueType::kTuple;
  node.value.tuple = {maximum, mid};
  return node;
}

// .../INSTANCE/<x>/AS/ord_a/VRF/nbr/4/prov/default/AFI/NEIGHBOUR/FAMILY; a neighbour that is no address
// stands in the text key before it.
KvConfigNode bgp_neighbour(std::string_view vrf, std::uint32_t as_number, std::string_view neighbour,
                           Family family) {
  const std::string where = parse_address(neighbour)
                                ? "default/" + number(family) + "/" + key(shortest(neighbour))
                                : key(neighbour) + "/" + number(family) + "/-";
  return number_node(std::string(kBgpScope) + "default/0/" + std::to_string(as_number) + "/ord_a/" +
                         key(vrf) + "/nbr/4/prov/" + where + "/" + family_word(family),
                     1);
}

KvConfigNode rip_interface(std::string_view vrf, std::string_view interface) {
  return number_node(rip_path(vrf, key(interface)), 1);
}

KvConfigNode ripng_interface(std::string_view vrf, std::string_view interface) {
  return number_node(rip_path(vrf, escaped(interface)), 1);
}

bool is_ripng(std::string_view path) {
  const std::optional<ParsedPath> parsed = parse_path(path);
  if (!parsed || parsed->kind != Kind::kRip) return false;
  const std::string_view written = parsed->keys.at(*parsed->interface);
  const std::optional<std::string> interface = decode_key(written);
  return interface && escaped(*interface) == written && key(*interface) != written;
}

KvConfigNode ospf_interface(std::string_view vrf, std::string_view process, std::uint32_t area,
                            std::string_view interface) {
  return number_node(std::string(kOspfScope) + key(process) + "/ord_a/" + key(vrf) + "/ord_v/area/" +
                         dotted_quad(area) + "/int/ord_i/name_scope/" + key(interface) + "/ord_A/running",
                     1);
}

KvConfigNode eigrp_interface(std::string_view vrf, std::uint32_t as_number, std::string_view interface) {
  return number_node(std::string(kEigrpScope) + std::to_string(as_number) + "/" + key(vrf) +
                         "/ord_a/ord_m/af/ipv4/ord_t/if/" + key(interface) + "/ord_a/enabled",
                     1);
}

KvConfigNode static_route(std::string_view vrf, const StaticRoute& route) {
  std::optional<Prefix> prefix = parse_prefix(route.prefix);
  if (prefix) clear_host_bits(&*prefix);
  const std::string address = prefix ? address_text(prefix->address) : route.prefix;
  const std::string length = prefix ? std::to_string(prefix->length) : "-";
  return number_node(std::string(kStaticScope) + key(vrf) + "/address/" + family_word(route.family) +
                         "/unicast/ord_c/topology/route/" + key(address) + "/" + length + "/-/-/nexthop/" +
                         key_or_none(route.interface) + "/" + key_or_none(shortest(route.next_hop)),
                     1);
}

KvConfigNode as_format(std::string_view format) {
  return text_node(std::string(kBgpCommonScope) + "as-format", format);
}

KvConfigNode trap_switch(std::string_view item, std::int64_t value) {
  return number_node(std::string(kTrapScope) + std::string(item), value);
}

}  // namespace vrf_config

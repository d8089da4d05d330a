#include "platform/config/path_keys.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "platform/core/address/address.h"
#include "platform/core/text/numbers.h"
#include "platform/store/tree/kvtree.h"

namespace vrf_config {

namespace {

using inet::dotted_quad;
using inet::parse_dotted_quad;
using text::parse_number;

constexpr std::string_view kAbsent = "-";
constexpr char kDefaultPlace[] = "default";  // before the family of a neighbor that is an address
constexpr std::uint32_t kMost16Bits = 0xffff;

std::string encode_key(std::string_view text) {
  return text.empty() ? std::string(kAbsent) : kvtree_encode_text(text);
}

// The text of an address in its shortest form; another text as it is.
std::string shortest(std::string_view text) {
  const std::optional<inet::Address> address = inet::parse_address(text);
  return address ? inet::address_text(*address) : std::string(text);
}

// Stores what was read, if anything was.
template <typename T, typename Value>
bool store(const std::optional<T>& value, Value* place) {
  if (value) *place = *value;
  return value.has_value();
}

template <std::string Fields::*kText>
std::string write_text(const Fields& fields) {
  return encode_key(fields.*kText);
}
template <std::string Fields::*kText>
bool read_text(Components components, Fields* fields) {
  return store(decode_key(components[0]), &(fields->*kText));
}
template <std::string Fields::*kText>
bool read_optional_text(Components components, Fields* fields) {
  return components[0] == kAbsent || read_text<kText>(components, fields);
}

std::string afi_of(const Fields& fields) {
  return std::to_string(static_cast<std::uint32_t>(fields.family));
}

bool read_afi(std::string_view component, Fields* fields) {
  const std::optional<std::uint32_t> number = parse_number(component);
  const auto* const family =
      std::find_if(kFamiliesOfTargets.begin(), kFamiliesOfTargets.end(),
                   [&](Family each) { return number == static_cast<std::uint32_t>(each); });
  if (family != kFamiliesOfTargets.end()) fields->family = *family;
  return family != kFamiliesOfTargets.end();
}

std::string write_afi_safi(const Fields& fields) {
  const std::uint32_t safi = fields.family == Family::kEvpn ? inet::kEvpnSafi : inet::kUnicastSafi;
  return afi_of(fields) + "/" + std::to_string(safi);
}
bool read_afi_safi(Components components, Fields* fields) {
  return read_afi(components[0], fields);
}

std::string write_family(const Fields& fields) {
  return family_word(fields.family);
}
bool read_family(Components components, Fields* fields) {
  return store(parse_family(components[0]), &fields->family);
}

// TYPE/UPPER/LOWER/NUMBER/0.0.0.0/0/0 for an AS number, TYPE/0/0/0/ADDRESS/NUMBER/0 for an address.
std::string write_target(const Fields& fields) {
  const Target& target = fields.target;
  const std::string type = std::to_string(static_cast<std::uint32_t>(target.type)) + "/";
  const std::string assigned = std::to_string(target.assigned);
  if (target.type == Target::Type::kIpv4Address) {
    return type + "0/0/0/" + dotted_quad(target.administrator) + "/" + assigned + "/0";
  }
  return type + std::to_string(target.administrator >> 16) + "/" +
         std::to_string(target.administrator & kMost16Bits) + "/" + assigned + "/0.0.0.0/0/0";
}

std::optional<Target> read_address_target(Components components) {
  const std::optional<std::uint32_t> address = parse_dotted_quad(components[4]);
  const std::optional<std::uint32_t> assigned = parse_number(components[5], kMost16Bits);
  if (!address || !assigned) return std::nullopt;
  return Target{Target::Type::kIpv4Address, *address, *assigned};
}

std::optional<Target> read_as_target(Components components, Target::Type type) {
  const bool is_short = type == Target::Type::kTwoOctetAs;
  const std::optional<std::uint32_t> upper = parse_number(components[1], is_short ? 0 : kMost16Bits);
  const std::optional<std::uint32_t> lower = parse_number(components[2], kMost16Bits);
  const std::optional<std::uint32_t> assigned =
      parse_number(components[3], is_short ? UINT32_MAX : kMost16Bits);
  if (!upper || !lower || !assigned) return std::nullopt;
  return Target{type, *upper << 16 | *lower, *assigned};
}

bool read_target(Components components, Fields* fields) {
  const std::optional<std::uint32_t> type = parse_number(components[0], 2);
  if (!type) return false;
  const bool is_address = Target::Type{*type} == Target::Type::kIpv4Address;
  return store(is_address ? read_address_target(components) : read_as_target(components, Target::Type{*type}),
               &fields->target);
}

std::string write_as_number(const Fields& fields) {
  return std::to_string(fields.as_number);
}
bool read_as_number(Components components, Fields* fields) {
  return store(parse_number(components[0]), &fields->as_number);
}

// "default", AFI, ADDRESS; of a neighbor without an address NAME, AFI, absent.
std::string write_neighbor(const Fields& fields) {
  const std::string afi = "/" + afi_of(fields) + "/";
  if (!inet::parse_address(fields.neighbor)) return encode_key(fields.neighbor) + afi + std::string(kAbsent);
  return kDefaultPlace + afi + encode_key(shortest(fields.neighbor));
}
bool read_neighbor(Components components, Fields* fields) {
  return store(decode_key(components[components[2] == kAbsent ? 0 : 2]), &fields->neighbor);
}

std::string write_area(const Fields& fields) {
  return dotted_quad(fields.area);
}
bool read_area(Components components, Fields* fields) {
  return store(parse_dotted_quad(components[0]), &fields->area);
}

// RIPng interfaces are written with every octet as %XX, which distinguishes them from RIP interfaces.
std::string escape_all(std::string_view text) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  std::string all;
  for (const char octet : text) {
    const auto value = static_cast<unsigned char>(octet);
    all.append({'%', kHexDigits[value >> 4], kHexDigits[value & 15]});
  }
  return all;
}
std::string write_ripng_interface(const Fields& fields) {
  return escape_all(fields.interface);
}
bool is_ripng_interface(std::string_view component) {
  if (!component.starts_with('%')) return false;
  const std::optional<std::string> interface = decode_key(component);
  return interface && escape_all(*interface) == component && kvtree_encode_text(*interface) != component;
}
bool is_rip_interface(std::string_view component) {
  return !is_ripng_interface(component);
}

// ADDRESS, LENGTH. Host bits do not count.
std::string write_prefix(const Fields& fields) {
  std::optional<inet::Prefix> prefix = inet::parse_prefix(fields.prefix);
  if (!prefix) return encode_key(fields.prefix) + "/" + std::string(kAbsent);
  inet::clear_host_bits(&prefix->address.octets, prefix->length);
  return encode_key(inet::address_text(prefix->address)) + "/" + std::to_string(prefix->length);
}
bool read_prefix(Components components, Fields* fields) {
  const std::optional<std::string> address = decode_key(components[0]);
  const std::optional<std::string> length = decode_key(components[1]);
  if (!address || !length) return false;
  fields->prefix = *address + "/" + *length;
  return true;
}

std::string write_next_hop(const Fields& fields) {
  return encode_key(shortest(fields.next_hop));
}

bool is_trap_switch(std::string_view component) {
  return component != kTrapReissueTime;
}

constexpr Key kKeys[] = {
    {"vrf", 1, write_text<&Fields::vrf>, read_text<&Fields::vrf>},
    {"afi_safi", 2, write_afi_safi, read_afi_safi},
    {"family", 1, write_family, read_family},
    {"target", 7, write_target, read_target},
    {"as_number", 1, write_as_number, read_as_number},
    {"neighbor", 3, write_neighbor, read_neighbor},
    {"process", 1, write_text<&Fields::process>, read_text<&Fields::process>},
    {"area", 1, write_area, read_area},
    {"interface", 1, write_text<&Fields::interface>, read_optional_text<&Fields::interface>},
    {"rip_interface", 1, write_text<&Fields::interface>, read_text<&Fields::interface>, is_rip_interface},
    {"ripng_interface", 1, write_ripng_interface, read_text<&Fields::interface>, is_ripng_interface},
    {"prefix", 2, write_prefix, read_prefix},
    {"next_hop", 1, write_next_hop, read_optional_text<&Fields::next_hop>},
    {"trap", 1, write_text<&Fields::text>, read_text<&Fields::text>, is_trap_switch},
};

}  // namespace

const Key* find_key(std::string_view name) {
  const auto* const found =
      std::find_if(std::begin(kKeys), std::end(kKeys), [=](const Key& key) { return key.name == name; });
  return found == std::end(kKeys) ? nullptr : found;
}

std::optional<std::string> decode_key(std::string_view component) {
  if (component.empty() || component == kAbsent) return std::nullopt;
  char* text = nullptr;
  const Status status = kvtree_string_decode(std::string(component).c_str(), &text);
  const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
  if (status || text == nullptr) return std::nullopt;
  return text;
}

}  // namespace vrf_config

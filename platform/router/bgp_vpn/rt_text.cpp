// Route targets as text (RFC 4364 section 4.3.1, RFC 4360 sections 3.1 and 3.2, RFC 5668) from the keys of a
// configuration path.
//
// Only the keys of the route target's own type are read. A number that does not fit its field of the eight
// octets is rejected, not truncated.
#include <cstring>

#include "platform/core/base/fault.h"
#include "platform/router/bgp_vpn/asn_format.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"

namespace {

// Arguments of the path, see bgp_vpn.h.
enum Key : unsigned { kAfi = 1, kSafi, kType, kAsHigh, kAsLow, kAsNumber, kAddress, kAddressNumber };

constexpr std::uint32_t kTwoOctetAs = 0;
constexpr std::uint32_t kIpv4Address = 1;
constexpr std::uint32_t kFourOctetAs = 2;

// The number of an argument, at most `largest`.
Status take_number(const RequestArgs* args, Key key, std::uint32_t largest, std::uint32_t* number) {
  if (kvtree_absent(args, key)) return kStatusArgumentMissing;
  if (args->arg[key].number == nullptr || *args->arg[key].number > largest) return kStatusInvalid;
  *number = *args->arg[key].number;
  return kStatusOk;
}

Status make_as_target(const RequestArgs* args, bool four_octets, std::string* text) {
  std::uint32_t high = 0;
  std::uint32_t low = 0;
  std::uint32_t number = 0;
  const std::uint32_t largest_high = four_octets ? UINT16_MAX : 0;
  const std::uint32_t largest_number = four_octets ? UINT16_MAX : UINT32_MAX;
  if (const Status status = take_number(args, kAsHigh, largest_high, &high)) return status;
  if (const Status status = take_number(args, kAsLow, UINT16_MAX, &low)) return status;
  if (const Status status = take_number(args, kAsNumber, largest_number, &number)) return status;
  using Type = vrf_config::Target::Type;
  const vrf_config::Target target{four_octets ? Type::kFourOctetAs : Type::kTwoOctetAs, high << 16 | low,
                                  number};
  *text = bgp_vpn::format_target(target, bgp_vpn::route_target_format());
  return kStatusOk;
}

Status make_address_target(const RequestArgs* args, std::string* text) {
  if (kvtree_absent(args, kAddress)) return kStatusArgumentMissing;
  if (args->arg[kAddress].text == nullptr) return kStatusInvalid;
  std::uint32_t number = 0;
  if (const Status status = take_number(args, kAddressNumber, UINT16_MAX, &number)) return status;
  *text = std::string(args->arg[kAddress].text) + ":" + std::to_string(number);
  return kStatusOk;
}

Status make_target(const RequestArgs* args, std::string* text) {
  std::uint32_t type = 0;
  if (const Status status = take_number(args, kType, kFourOctetAs, &type)) return status;
  return type == kIpv4Address ? make_address_target(args, text)
                              : make_as_target(args, type != kTwoOctetAs, text);
}

}  // namespace

Status bgp_vpn_extract_rt(const RequestArgs* args, std::uint32_t size, char* text, std::uint32_t* afi,
                          std::uint32_t* safi) {
  if (const Status status = fault_check("bgp_vpn_extract_rt")) return status;
  if (args == nullptr || text == nullptr || afi == nullptr || safi == nullptr) return kStatusInvalid;
  std::uint32_t family = 0;
  std::uint32_t subsequent_family = 0;
  std::string target;
  if (const Status status = take_number(args, kAfi, UINT32_MAX, &family)) return status;
  if (const Status status = take_number(args, kSafi, UINT32_MAX, &subsequent_family)) return status;
  if (const Status status = make_target(args, &target)) return status;
  if (target.size() >= size) return kStatusInvalid;
  std::memcpy(text, target.c_str(), target.size() + 1);
  *afi = family;
  *safi = subsequent_family;
  return kStatusOk;
}

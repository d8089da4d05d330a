// The walk rule of routes (path forms in walk.h).
//
// A "next" read of routes answers the first row greater than its key, so a row's own key is the path of the
// following read, with three exceptions:
//
// Without a next hop. A read with next-hop type 0 passes over the other rows of its prefix. So a row without
// next hop is followed by its key with the address family's next-hop type and an all-zero next hop.
//
// The default route without next hop. Its key is all zero, and an all-zero key is the start of a table: the
// read answers that row again. The only key that could be in between is the default route by way of 0.0.0.1
// (or ::1), which is read exactly; if there is no such row, the walk continues after it.
//
// A VRF that was deleted meanwhile. The read uses the following VRF instead, with the given key, and skips
// rows. An answer from another VRF, and no answer, is redirected to the start of the VRFs that follow. A read
// of a start is complete and is not redirected.
#include <algorithm>

#include "mpls/vpn/mib/src/walk/internal.h"
#include "mpls/vpn/mib/src/walk/walk.h"

namespace {

constexpr std::size_t kRouteComponents = 7;
constexpr char kNoAddress[] = "0";

struct AskedRoute {
  std::string_view component[kRouteComponents];
  std::string vrf_name;

  std::string_view path() const { return component[0]; }
  std::string_view type() const { return component[2]; }
  std::string_view length() const { return component[3]; }
  std::string_view hop_type() const { return component[4]; }
  std::string_view destination() const { return component[5]; }
  std::string_view next_hop() const { return component[6]; }
};

bool parse(std::string_view asked, AskedRoute* route) {
  return split_path(asked, route->component, kRouteComponents) &&
         decode_vrf_name(route->component[1], &route->vrf_name);
}

bool is_all_zero(std::string_view digits) {
  return digits.find_first_not_of('0') == std::string_view::npos;
}

bool is_start(const AskedRoute& asked) {
  return asked.type() == "1" && asked.length() == "0" && asked.hop_type() == "1" &&
         asked.destination() == kNoAddress && asked.next_hop() == kNoAddress;
}

// Digits of an address of this type; 0 for an invalid type.
std::size_t digits_of(std::string_view type) {
  if (type == "1") return 8;
  return type == "2" ? 32 : 0;
}

// The key of a default route without next hop, and not a start.
bool is_default_key(const AskedRoute& asked) {
  return digits_of(asked.type()) != 0 && asked.destination().size() == digits_of(asked.type()) &&
         is_all_zero(asked.destination()) && asked.length() == "0" && is_all_zero(asked.next_hop());
}

bool is_zero(const ParcelOctets& octets) {
  return std::all_of(octets.octets, octets.octets + octets.length, [](std::uint8_t one) { return one == 0; });
}

bool is_default_row(const mpls_vpn_mib_route& row, std::string_view type) {
  return std::to_string(row.destType) == type && row.mask == 0 && is_zero(row.dest) && is_zero(row.nextHop);
}

std::string route_path(std::string_view path, const std::string& vrf_name, const std::string& type,
                       const std::string& length, const std::string& destination,
                       const std::string& next_hop) {
  return std::string(path) + "/" + kvtree_encode_text(vrf_name) + "/" + type + "/" + length + "/" + type +
         "/" + destination + "/" + next_hop;
}

// The key that could follow the default route without next hop, to be read exactly.
std::string probe_path(const AskedRoute& asked) {
  const std::size_t digits = digits_of(asked.type());
  return route_path("route", asked.vrf_name, std::string(asked.type()), "0", std::string(digits, '0'),
                    std::string(digits - 1, '0') + "1");
}

bool redirect_to_following_vrfs(const AskedRoute& asked, std::string* path) {
  if (is_start(asked)) return false;
  const std::string following = following_vrf_name(asked.vrf_name);
  if (following.empty()) return false;
  *path = route_path("route-next", following, "1", "0", kNoAddress, kNoAddress);
  return true;
}

std::string hexadecimal(const ParcelOctets& octets) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::uint64_t i = 0; i < octets.length; ++i) {
    text += kDigits[octets.octets[i] >> 4];
    text += kDigits[octets.octets[i] & 0xf];
  }
  return text;
}

}  // namespace

Status route_following_path(const KvReply* row, std::string* path) {
  DecodedRow<mpls_vpn_mib_route> decoded(&kMibRouteParcel);
  if (const Status rc = decoded.decode(row, &mpls_vpn_mib_route::vrfName)) return rc;
  const mpls_vpn_mib_route& route = decoded.row;
  const std::string type = std::to_string(route.destType);
  if (digits_of(type) == 0 || route.dest.length != digits_of(type) / 2) return kStatusBadEncoding;
  const std::string next_hop =
      route.nextHop.length == 0 ? std::string(digits_of(type), '0') : hexadecimal(route.nextHop);
  *path = route_path("route-next", route.vrfName, type, std::to_string(route.mask), hexadecimal(route.dest),
                     next_hop);
  return kStatusOk;
}

bool route_redirect(std::string_view asked, const KvReply* row, std::string* path) {
  AskedRoute route;
  if (!parse(asked, &route)) return false;
  if (route.path() == "route") {  // the probe below
    if (row != nullptr) return false;
    *path = "route-next" + std::string(asked.substr(route.path().size()));
    return true;
  }
  if (row == nullptr) return redirect_to_following_vrfs(route, path);
  DecodedRow<mpls_vpn_mib_route> decoded(&kMibRouteParcel);
  if (decoded.decode(row, &mpls_vpn_mib_route::vrfName) != kStatusOk) return false;
  if (route.vrf_name != decoded.row.vrfName) return redirect_to_following_vrfs(route, path);
  if (!is_default_key(route) || !is_default_row(decoded.row, route.type())) return false;
  *path = probe_path(route);
  return true;
}

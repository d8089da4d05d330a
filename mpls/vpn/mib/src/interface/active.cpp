// An interface is active when it can carry packets of a family, and a VRF is operationally up while one of
// its interfaces is (RFC 4382, mplsL3VpnVrfOperStatus). IPv4 decides first; IPv6 is tested only if IPv4
// does not suffice, and only its first address.
#include "mpls/vpn/mib/src/interface/active.h"

#include <algorithm>
#include <array>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"

namespace {

const char* state_text(std::uint32_t state) {
  return state == kVtabStateUp ? "UP" : "DN";
}
const char* address_text(bool has_address) {
  return has_address ? "ADDR" : "NOADDR";
}

bool has_ipv4_address(const VtabIfRecord* record) {
  std::uint32_t address = 0;
  return vtab_get_if_primary_ipv4_address(record, &address) == kStatusOk && address != 0;
}

bool has_ipv6_address(const VtabIfRecord* record) {
  std::uint32_t cursor = 0;
  std::array<std::uint32_t, 4> words{};
  if (vtab_get_if_next_ipv6_address(record, &cursor, words.data()) != kStatusOk) return false;
  return std::any_of(words.begin(), words.end(), [](std::uint32_t word) { return word != 0; });
}

}  // namespace

bool interface_is_active_silently(const VtabIfRecord* record) {
  if (record->ipv4_state == kVtabStateUp && has_ipv4_address(record)) return true;
  return record->ipv6_state == kVtabStateUp && has_ipv6_address(record);
}

bool interface_is_active(const VtabIfRecord* record) {
  const bool ipv4 = has_ipv4_address(record);
  mpls_vpn_debug(DBASE, "%s/%s: IPv4=%s/%s", record->vrf_name.c_str(), record->if_name.c_str(),
                 state_text(record->ipv4_state), address_text(ipv4));
  if (ipv4 && record->ipv4_state == kVtabStateUp) return true;
  const bool ipv6 = has_ipv6_address(record);
  mpls_vpn_debug(DBASE, "%s/%s: IPv6=%s/%s", record->vrf_name.c_str(), record->if_name.c_str(),
                 state_text(record->ipv6_state), address_text(ipv6));
  return ipv6 && record->ipv6_state == kVtabStateUp;
}

// The tables of MPLS-L3VPN-STD-MIB (RFC 4382). Each is a description: its row set (which walk, which index,
// how to decode a record) and its columns.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "agent/oid/oid.h"
#include "agent/tables/mib.h"

namespace tables {

// The OID of an object below mplsL3VpnObjects (1.3.6.1.2.1.10.166.11.1).
template <typename... Numbers>
constexpr auto l3vpn_oid(Numbers... numbers) {
  return std::array<std::uint32_t, 10 + sizeof...(Numbers)>{
      1, 3, 6, 1, 2, 1, 10, 166, 11, 1, static_cast<std::uint32_t>(numbers)...};
}

// mplsL3VpnObjects: the subtree to register with the master agent.
oid::View l3vpn_subtree();
// Every accessible object of the module.
std::span<const Table> l3vpn_tables();

// Parts of the module, one file each.
std::span<const Table> vrf_tables();  // with the tables that augment it: security and performance
std::span<const Table> route_target_tables();
std::span<const Table> route_tables();

}  // namespace tables

// The tables of MPLS-L3VPN-STD-MIB (RFC 4382), each over a row set (which walk, which index).
#pragma once

#include <span>

#include "agent/tables/mib.h"

namespace tables {

// Every accessible object of the module.
std::span<const Table> l3vpn_tables();

}  // namespace tables

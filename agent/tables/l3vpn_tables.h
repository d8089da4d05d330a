// The tables of MPLS-L3VPN-STD-MIB (RFC 4382) that this sub-agent serves. A further table is a further entry
// here: its row set (which walk, what index, how a record is taken apart) and its columns.
#pragma once

#include <span>

#include "agent/oid/oid.h"
#include "agent/tables/mib.h"

namespace tables {

// mplsL3VpnObjects, 1.3.6.1.2.1.10.166.11.1: what is registered with the master agent.
oid::View l3vpn_subtree();
std::span<const Table> l3vpn_tables();

}  // namespace tables

// Which routing tables of a VRF are worth showing in the structured (XML) form: those for whose address
// family route policies or route targets exist.
#pragma once

#include <cstdint>

#include "platform/router/vtab/vtab.h"

// Number of tables to put into the show record: 0, 1 or 2. *afi_index is the requested address family (0 all,
// 1 IPv4, 2 IPv6) and on return the one to show: if one of all tables passes, that table's. Main thread.
// REQUIRES: record is not null.
std::uint32_t mpls_vpn_mib_prov_xml_filter(const VtabVrfRecord* record, std::uint32_t* afi_index);

// True, with *afi the table's AFI (1 or 2), when the table is worth showing. False if either is null.
bool mpls_vpn_mib_prov_xml_filter_route_info(const VtabVrfRecord* record, const VtabTableRecord* table,
                                             std::uint32_t* afi);

// Rows of the VRF interface table (RFC 4382, mplsL3VpnIfConfTable).
#pragma once

#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

// Get handler of "interface" and "interface-next": argument 0 the VRF name, argument 1 the interface index.
// A next read (is_next_read) answers the first row whose key is not smaller than the arguments, in the order
// of the interface database; any other the row of exactly these arguments.
//
// 0 with a mpls_vpn_mib_interface record, kStatusNoSuchRow, kStatusArgumentMissing, kStatusNoMemory, or the
// encoding's status. An exact read answers kStatusNoSuchRow for every VRF in the VRF database: rows
// of those are read by "next" alone. Main thread.
Status mpls_vpn_mib_prov_get_interface(KvReply* reply, const RequestArgs* args);

// The row of a node. Texts are heap copies; a text that the node lacks is reported and stays null. When a
// text cannot be copied: kStatusNoMemory, reported, and an empty row. A row without its VRF name would send a
// reader that continues from it to the beginning of the table.
[[nodiscard]] Status fill_interface_parcel(mpls_vpn_mib_interface* row, const IfNode* node);

// The same without copies: the texts are the node's. Without protocols the record of the VRF is not needed.
mpls_vpn_mib_interface mpls_vpn_mib_interface_row(const IfNode* node, bool with_protocols);

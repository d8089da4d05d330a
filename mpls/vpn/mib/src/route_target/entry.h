// Rows of the VRF route-target table (RFC 4382, mplsL3VpnVrfRTTable).
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/route_target/database.h"
#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

// Get handler of "rt" and "rt-next": argument 0 the VRF name, 1 the number within the VRF, 2 the type. A next
// read (is_next_read) asks for the next row, any other for exactly this one: see mpls_vpn_mib_get_rt.
//
// 0 with a mpls_vpn_mib_rt record, kStatusNoSuchRow, kStatusArgumentMissing, kStatusNoMemory, or the
// encoding's status. Main thread.
Status mpls_vpn_mib_prov_get_rt(KvReply* reply, const RequestArgs* args);

// The row with the node's own texts, for batches of columns.
mpls_vpn_mib_rt mpls_vpn_mib_rt_row(const RtNode* node, std::uint32_t index);

// The row of a node under this number. Texts are heap copies; one that the node lacks is reported and stays
// null. kStatusNoMemory, reported, with nothing in the row, when the name or the value cannot be copied.
[[nodiscard]] Status fill_rt_parcel(mpls_vpn_mib_rt* row, const RtNode* node, std::uint32_t index);

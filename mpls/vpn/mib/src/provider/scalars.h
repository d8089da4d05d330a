// The scalar group of the MIB (RFC 4382, mplsL3VpnScalars).
#pragma once

#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

// Get handler of "scalars": a mpls_vpn_mib_scalars record. The encoding's status. No arguments. Main thread.
Status mpls_vpn_mib_prov_get_scalars(KvReply* reply, const RequestArgs* args);

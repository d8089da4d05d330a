// Rows of the VRF table as batches of columns: what a walk of "vrf-next" shows, in the same order, without a
// record and a textual path for each row. Main thread.
#pragma once

#include "platform/store/tree/kvtree.h"

// A KvColumnRule's function. kStatusBadKey for a path without a name, else the statuses of
// mpls_vpn_mib_prov_get_vrf().
Status mpls_vpn_mib_read_vrf_columns(const KvRequest* request, KvColumnBatch* batch);

// Rows of the VRF route table as batches of columns: what a walk of "route-next" shows, in the same order,
// without a record and a textual path for each row. Main thread.
#pragma once

#include "platform/store/tree/kvtree.h"

// A KvColumnRule's function. The key of the request is one that walk/walk.h has for routes, or kStatusBadKey.
// Otherwise the statuses of mpls_vpn_mib_prov_get_route().
Status mpls_vpn_mib_read_route_columns(const KvRequest* request, KvColumnBatch* batch);

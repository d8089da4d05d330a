// Rows of the route-target table as batches of columns: what a walk of "rt-next" shows, in the same order,
// without a record and a textual path for each row. Main thread.
#pragma once

#include "platform/store/tree/kvtree.h"

// A KvColumnRule's function. kStatusBadKey for a path without a name, a number and a type, else the statuses
// of mpls_vpn_mib_prov_get_rt().
Status mpls_vpn_mib_read_rt_columns(const KvRequest* request, KvColumnBatch* batch);

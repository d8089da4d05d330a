// Rows of the VRF interface table as batches of columns: what a walk of "interface-next" shows, in the same
// order, without a record and a textual path for each row. Main thread.
#pragma once

#include "platform/store/tree/kvtree.h"

// A KvColumnRule's function. kStatusBadKey for a path without a name and an index, else the statuses of
// mpls_vpn_mib_prov_get_interface().
Status mpls_vpn_mib_read_interface_columns(const KvRequest* request, KvColumnBatch* batch);

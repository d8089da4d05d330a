// Connections to the data store, and the provider's own.
//
// Each function first checks that the data store's library is installed, until it was found once, so that a
// missing data store differs from one that refuses. kStatusUnavailable when its file cannot be read. Main
// thread only.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

// The provider's connection, on which the daemon's notifications are sent; null until it is bound.
extern KvConnection* prov_kvtree_conn_h;

[[nodiscard]] Status mpls_vpn_mib_check_data_store();
[[nodiscard]] Status mpls_vpn_mib_bind(KvConnection** connection, const char* path, std::uint32_t mode);

// Unbinds and sets the connection to null. A failure is printed under the name `function`.
void mpls_vpn_mib_unbind(KvConnection** connection, const char* function);

// Makes the next call look for the library again. For tests that start the daemon again.
void mpls_vpn_mib_forget_data_store();

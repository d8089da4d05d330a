// Interface-index service: the ifIndex (RFC 2863, that of IF-MIB on the same host) of an interface by name.
// Main thread.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/kvtree.h"

// The router model that the service answers from; null takes it away. Called once by the process.
void ifindex_attach(router::Router* model);
// Says on whose loop the caller will ask. The service answers every look-up at once, in the caller's own
// call, and so keeps nothing of it. kStatusInvalid for null. Fault point "ifindex_initialize_evm".
[[nodiscard]] Status ifindex_initialize_evm(EventManager* manager);
// kStatusNoSuchRow for an unknown name, kStatusUnavailable without a model; *index is written on success
// only. Fault point "ifname_to_index".
[[nodiscard]] Status ifname_to_index(const char* name, std::uint32_t* index);
// A data list with one item an interface: key the name, value the 4 octets of the index in host order. The
// caller frees it with kvtree_datalist_free. In handle order. While the caller keeps it, an item whose
// interface is removed, renamed or has another index loses its value. kStatusUnavailable without a model.
// Fault points "ifindex_get_index_list" and, once for each item, "ifindex_list_entry", which leaves the item
// without its value.
[[nodiscard]] Status ifindex_get_index_list(KvDatalist** list);

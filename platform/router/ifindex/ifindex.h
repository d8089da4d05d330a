// Interface-index service: the ifIndex (RFC 2863, that of IF-MIB on the same host) of an interface by name.
// Main thread.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/kvtree.h"

// The router model that the service answers from; null detaches it. Called once by the process.
void ifindex_attach(router::Router* model);
// Part of the interface; every look-up is answered inside the caller's own call, so the manager is not used.
// kStatusInvalid for null. Fault point "ifindex_initialize_evm".
[[nodiscard]] Status ifindex_initialize_evm(EventManager* manager);
// kStatusNoSuchRow for an unknown name, kStatusUnavailable without a model; *index is written on success
// only. Fault point "ifname_to_index".
[[nodiscard]] Status ifname_to_index(const char* name, std::uint32_t* index);
// A data list with one item per interface, in handle order: the key is the name, the value is the 4 octets of
// the index in host order. The caller frees it with kvtree_datalist_free. Until then an item whose interface
// is removed, renamed or has another index loses its value. kStatusUnavailable without a model. Fault points
// "ifindex_get_index_list" and, once for each item, "ifindex_list_entry", which leaves the item without its
// value.
[[nodiscard]] Status ifindex_get_index_list(KvDatalist** list);

// The interface-index service: ifIndex by interface name, read from the router model.
//
// The model's index is the host's, so an answer agrees with IF-MIB (RFC 2863) on the same host. Every look-up
// goes to the model; there is nothing to become stale but the lists that callers keep.
#include "platform/ifindex/ifindex.h"

#include <memory>

#include "platform/base/fault.h"

namespace {

constexpr std::uint32_t kKvKindText = 1;  // as the data store numbers value types
router::Router* attached_model = nullptr;

struct FreeDatalist {
  void operator()(KvDatalist* list) const { kvtree_datalist_free(list); }
};

Status add_all(const router::Router& model, KvDatalist* list) {
  Status status = kStatusOk;
  model.for_each_interface([&](const router::Interface& interface) {
    if (status != kStatusOk) return;
    // An interface whose index cannot be read is in the list all the same, without a value.
    const bool has_index = fault_check("ifindex_list_entry") == kStatusOk;
    status =
        kvtree_datalist_add(list, interface.name.c_str(), kKvKindText, 0,
                            has_index ? &interface.index : nullptr, has_index ? sizeof interface.index : 0);
  });
  return status;
}

}  // namespace

void ifindex_attach(router::Router* model) {
  attached_model = model;
}

Status ifindex_initialize_evm(EventManager* manager) {
  if (Status status = fault_check("ifindex_initialize_evm")) return status;
  return manager == nullptr ? kStatusInvalid : kStatusOk;
}

Status ifname_to_index(const char* name, std::uint32_t* index) {
  if (Status status = fault_check("ifname_to_index")) return status;
  if (name == nullptr || index == nullptr) return kStatusInvalid;
  if (attached_model == nullptr) return kStatusUnavailable;
  const router::Interface* interface = attached_model->find_interface_by_name(name);
  if (interface == nullptr) return kStatusNoSuchRow;
  *index = interface->index;
  return kStatusOk;
}

Status ifindex_get_index_list(KvDatalist** list) {
  if (Status status = fault_check("ifindex_get_index_list")) return status;
  if (list == nullptr) return kStatusInvalid;
  if (attached_model == nullptr) return kStatusUnavailable;
  KvDatalist* made = nullptr;
  if (Status status = kvtree_datalist_create(&made)) return status;
  std::unique_ptr<KvDatalist, FreeDatalist> owned(made);
  if (Status status = add_all(*attached_model, owned.get())) return status;
  *list = owned.release();
  return kStatusOk;
}

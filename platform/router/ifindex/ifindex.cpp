// Every look-up reads the model; only the lists that callers hold can become stale. The service remembers
// these lists and observes the model: when an interface is removed, renamed or gets another index, its
// entry loses its value. Entries never get a new value, and an added interface has no entry in an older
// list.
#include "platform/router/ifindex/ifindex.h"

#include <memory>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/store/tree/datalist_filler.h"

namespace {

constexpr std::uint32_t kKvKindText = 1;  // as the data store numbers value types
router::Router* attached_model = nullptr;

class GivenLists : public router::Observer {
 public:
  void add(KvDatalist* list) {
    lists_.push_back(list);
    kvtree_datalist_on_free(list, [this](KvDatalist* freed) { std::erase(lists_, freed); });
  }
  void clear_values() {
    for (KvDatalist* list : lists_) kvtree_datalist_clear_values(list);
  }
  void interface_changed(const router::Interface& before, const router::Interface& now) override {
    if (before.name != now.name || before.index != now.index) clear_value_of(before);
  }
  void interface_removed(const router::Interface& interface) override { clear_value_of(interface); }

 private:
  void clear_value_of(const router::Interface& interface) {
    for (KvDatalist* list : lists_) kvtree_datalist_clear_value(list, interface.name.c_str());
  }

  std::vector<KvDatalist*> lists_;
};

// Never destroyed: a caller may free its list at the very end of the process.
GivenLists& given_lists() {
  static auto* const the_lists = new GivenLists;
  return *the_lists;
}

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
  if (attached_model != nullptr) attached_model->stop_observing(&given_lists());
  given_lists().clear_values();
  attached_model = model;
  if (model != nullptr) model->observe(router::ObserverRank::kRecords, &given_lists());
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
  given_lists().add(*list);
  return kStatusOk;
}

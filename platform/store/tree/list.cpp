// Lists and datalists: list handlers fill them, readers iterate over them. Items never move (a deque), so
// that a reader's items remain valid while the list grows.
#include <algorithm>
#include <cstdint>
#include <deque>
#include <new>
#include <numeric>
#include <string>
#include <string_view>

#include "platform/core/base/fault.h"
#include "platform/store/tree/datalist_filler.h"
#include "platform/store/tree/kvtree.h"
#include "platform/store/tree/lists.h"

Status kvtree_list_create(KvList** list) {
  if (list == nullptr) return kStatusInvalid;
  *list = nullptr;
  if (const Status status = fault_check("kvtree_list_create")) return status;
  *list = new (std::nothrow) KvList;
  return *list == nullptr ? kStatusNoMemory : kStatusOk;
}

Status kvtree_list_add(KvList* list, const char* key, std::uint32_t kind, std::uint32_t flags) {
  if (const Status status = fault_check("kvtree_list_add")) return status;
  if (list == nullptr || key == nullptr) return kStatusInvalid;
  list->items.push_back({key, kind, flags});
  return kStatusOk;
}

void kvtree_list_free(KvList* list) {
  delete list;
}

Status kvtree_datalist_create(KvDatalist** list) {
  if (list == nullptr) return kStatusInvalid;
  *list = nullptr;
  if (const Status status = fault_check("kvtree_datalist_create")) return status;
  *list = new (std::nothrow) KvDatalist;
  return *list == nullptr ? kStatusNoMemory : kStatusOk;
}

Status kvtree_datalist_add(KvDatalist* list, const char* key, std::uint32_t kind, std::uint32_t flags,
                           const void* value, std::size_t length) {
  if (const Status status = fault_check("kvtree_datalist_add")) return status;
  if (list == nullptr || key == nullptr || (value == nullptr && length != 0)) return kStatusInvalid;
  if (length == 0 && list->first_without_value == SIZE_MAX) list->first_without_value = list->items.size();
  const auto* octets = static_cast<const std::uint8_t*>(value);
  list->items.push_back({{key, kind, flags}, {octets, octets + length}});
  return kStatusOk;
}

Status kvtree_datalist_start(KvDatalist* list) {
  if (const Status status = fault_check("kvtree_datalist_start")) return status;
  if (list == nullptr) return kStatusInvalid;
  list->next = 0;
  return kStatusOk;
}

Status kvtree_datalist_next(KvDatalist* list, const char** key, const void** value, std::size_t* length) {
  if (const Status status = fault_check("kvtree_datalist_next")) return status;
  if (list == nullptr) return kStatusInvalid;
  if (list->next >= list->items.size()) return kStatusEndOfList;
  const KvDatalistItem& item = list->items[list->next++];
  if (key != nullptr) *key = item.key.c_str();
  if (value != nullptr) *value = item.value.data();
  if (length != nullptr) *length = item.value.size();
  return kStatusOk;
}

namespace {

void index_items(KvDatalist* list) {
  list->by_key.resize(list->items.size());
  std::iota(list->by_key.begin(), list->by_key.end(), std::uint32_t{0});
  std::ranges::stable_sort(
      list->by_key, {}, [list](std::uint32_t place) -> const std::string& { return list->items[place].key; });
}

// The place of the first item with this key; SIZE_MAX when there is none. Lists are complete before the first
// look-up.
std::size_t find_place(KvDatalist* list, std::string_view key) {
  if (list->by_key.size() != list->items.size()) index_items(list);
  const auto key_of = [list](std::uint32_t place) -> std::string_view { return list->items[place].key; };
  const auto found = std::ranges::lower_bound(list->by_key, key, {}, key_of);
  return found == list->by_key.end() || key_of(*found) != key ? SIZE_MAX : *found;
}

}  // namespace

Status kvtree_datalist_find(KvDatalist* list, const char* wanted, const char** key, const void** value,
                            std::size_t* length) {
  if (list == nullptr || wanted == nullptr) return kStatusInvalid;
  list->next = std::min({find_place(list, wanted), list->first_without_value, list->items.size()});
  return kvtree_datalist_next(list, key, value, length);
}

void kvtree_datalist_free(KvDatalist* list) {
  if (list != nullptr && list->on_free) list->on_free(list);
  delete list;
}

void kvtree_datalist_on_free(KvDatalist* list, std::function<void(KvDatalist*)> function) {
  list->on_free = std::move(function);
}

void kvtree_datalist_clear_value(KvDatalist* list, const char* key) {
  const std::size_t place = find_place(list, key);
  if (place == SIZE_MAX) return;
  list->items[place].value.clear();
  list->first_without_value = std::min(list->first_without_value, place);
}

void kvtree_datalist_clear_values(KvDatalist* list) {
  for (KvDatalistItem& item : list->items) item.value.clear();
  if (!list->items.empty()) list->first_without_value = 0;
}

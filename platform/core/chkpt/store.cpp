// The tables of the checkpoint store, in memory; commits.cpp writes them to the database.
//
// One store per process, main thread only. The store owns the table handles, callers own their iterators.
#include "platform/core/chkpt/store.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/files/directories.h"

struct ChkptIterator {
  ChkptTable* table;
  std::uint64_t last = 0;  // object id of the last record returned
  // Its place, if the table has deleted no record since.
  std::map<std::uint64_t, chkpt::Record>::const_iterator at{};
  std::uint64_t deletions = 0;
};

namespace chkpt {

std::unique_ptr<Store>& the_store() {
  static std::unique_ptr<Store> store;
  return store;
}

Status& opening_failure() {
  static Status failure = kStatusOk;
  return failure;
}

}  // namespace chkpt

namespace {

using chkpt::Store;
using chkpt::the_store;

bool is_valid(const ChkptTableDescriptor& descriptor) {
  return descriptor.key_kind == 1 && descriptor.versioned <= 1 && descriptor.persistent == 1 &&
         descriptor.reserved == 0 && descriptor.record_size <= kChkptDataMax;
}

bool takes_key(const ChkptTable* table, const void* key, std::size_t size) {
  if (key == nullptr || size == 0 || size > kChkptKeyMax) return false;
  const auto& records = table->records.by_id;
  return records.empty() || records.begin()->second.key.size() == size;
}

// Adds the records of the database. Returns whether there are any.
bool restore_records(Store* store, ChkptTable* table) {
  table->records = std::move(store->contents.records[table->name]);
  store->contents.records.erase(table->name);
  return !table->records.by_id.empty();
}

void report_corrected_name(const std::string& directory, const ChkptApplication& application,
                           const chkpt::Contents& contents) {
  const auto known = contents.applications.find(application.number);
  if (known == contents.applications.end() || known->second == application.name) return;
  log_warning("chkpt",
              "the name of application %u in %s is not \"%s\": it is corrected, the records are used",
              application.number, chkpt::Database::file_name(directory).c_str(), application.name);
}

std::map<std::uint64_t, chkpt::Record>::const_iterator next_record(const ChkptIterator& iterator) {
  const chkpt::Records& records = iterator.table->records;
  const bool has_place = iterator.last != 0 && iterator.deletions == records.deletions;
  return has_place ? std::next(iterator.at) : records.by_id.upper_bound(iterator.last);
}

Store* registered_store(const void* table) {
  return table == nullptr ? nullptr : the_store().get();
}

}  // namespace

void chkpt_application_init(ChkptApplication* application, std::uint32_t number, const char* name) {
  *application = ChkptApplication{};
  application->number = number;
  const std::size_t size = name == nullptr ? 0 : std::strlen(name);
  if (size <= kChkptNameMax && size > 0) std::memcpy(application->name, name, size);
}

void chkpt_table_init(ChkptTableDescriptor* descriptor, std::uint32_t key_kind, std::uint32_t versioned,
                      std::uint32_t record_size, std::uint32_t persistent, std::uint32_t reserved) {
  *descriptor = ChkptTableDescriptor{key_kind, versioned, record_size, persistent, reserved};
}

Status chkpt_init(const ChkptApplication* application, EventManager* manager) {
  if (const Status status = fault_check("chkpt_init")) return status;
  if (application == nullptr || manager == nullptr || application->name[0] == '\0') return kStatusInvalid;
  if (the_store() != nullptr) return kStatusExists;
  auto store = std::make_unique<Store>(manager);
  const std::string directory = state_directory();
  chkpt::opening_failure() = chkpt::Database::open(directory, &store->database, &store->contents);
  if (chkpt::opening_failure() != kStatusOk) return chkpt::opening_failure();
  store->application = application->number;
  store->next_object_id = store->contents.last_object_id + 1;
  if (const Status status = store->database->put_application(application->number, application->name)) {
    log_error("chkpt", "%s cannot be written: %s", store->database->name(), err_text(status));
    return status;
  }
  report_corrected_name(directory, *application, store->contents);
  store->database->checkpoint_log_on_close();
  the_store() = std::move(store);
  return kStatusOk;
}

Status chkpt_register(const ChkptTableDescriptor* descriptor, std::uint32_t table_id, ChkptTable** table,
                      bool* had_contents) {
  if (const Status status = fault_check("chkpt_register")) return status;
  Store* const store = registered_store(descriptor);
  if (store == nullptr || table == nullptr || had_contents == nullptr || !is_valid(*descriptor)) {
    return kStatusInvalid;
  }
  for (const auto& other : store->tables) {
    if (other->name.table_id == table_id) return kStatusExists;
  }
  auto made = std::make_unique<ChkptTable>();
  made->name = {store->application, table_id};
  made->descriptor = *descriptor;
  *had_contents = restore_records(store, made.get());
  *table = made.get();
  store->tables.push_back(std::move(made));
  return kStatusOk;
}

Status chkpt_mapkey(ChkptTable* table, const void* key, std::size_t key_size, std::uint64_t* object_id) {
  if (const Status status = fault_check("chkpt_mapkey")) return status;
  if (registered_store(table) == nullptr || object_id == nullptr || !takes_key(table, key, key_size)) {
    return kStatusChkptMapping;
  }
  const auto found = table->records.ids.find({static_cast<const char*>(key), key_size});
  *object_id = found == table->records.ids.end() ? 0 : found->second;
  return *object_id == 0 ? kStatusChkptKeyNotFound : kStatusOk;
}

Status chkpt_create(ChkptTable* table, const void* key, std::size_t key_size, std::uint64_t* object_id) {
  if (const Status status = fault_check("chkpt_create")) return status;
  Store* const store = registered_store(table);
  if (store == nullptr || object_id == nullptr || !takes_key(table, key, key_size)) return kStatusInvalid;
  if (store->failure != kStatusOk) return store->failure;
  chkpt::Record* const record =
      chkpt::add(&table->records, store->next_object_id, {static_cast<const char*>(key), key_size});
  if (record == nullptr) return kStatusExists;
  *object_id = store->next_object_id++;
  chkpt::mark_unwritten(store, {table, *object_id}, record);
  return kStatusOk;
}

Status chkpt_save(ChkptTable* table, std::uint64_t object_id, const void* data, std::size_t size) {
  if (const Status status = fault_check("chkpt_save")) return status;
  Store* const store = registered_store(table);
  if (store == nullptr || data == nullptr || size > kChkptDataMax) return kStatusInvalid;
  if (table->descriptor.record_size != 0 && size != table->descriptor.record_size) return kStatusInvalid;
  const auto found = table->records.by_id.find(object_id);
  if (found == table->records.by_id.end()) return kStatusNoSuchRow;
  found->second.data.assign(static_cast<const char*>(data), size);
  chkpt::mark_unwritten(store, {table, object_id}, &found->second);
  return store->failure;
}

Status chkpt_delete(ChkptTable* table, std::uint64_t object_id) {
  if (const Status status = fault_check("chkpt_delete")) return status;
  Store* const store = registered_store(table);
  if (store == nullptr) return kStatusInvalid;
  const auto found = table->records.by_id.find(object_id);
  if (found == table->records.by_id.end()) return kStatusNoSuchRow;
  chkpt::mark_deleted(store, object_id);
  table->records.ids.erase(found->second.key);
  table->records.by_id.erase(found);
  ++table->records.deletions;
  return store->failure;
}

Status chkpt_iterate_start(ChkptTable* table, ChkptIterator** iterator) {
  if (const Status status = fault_check("chkpt_iterate_start")) return status;
  if (registered_store(table) == nullptr || iterator == nullptr) return kStatusInvalid;
  *iterator = std::make_unique<ChkptIterator>(ChkptIterator{table}).release();
  return kStatusOk;
}

Status chkpt_iterate_next(ChkptIterator* iterator, void* key, std::size_t* key_size, void* data,
                          std::size_t* size, std::uint64_t* object_id) {
  if (const Status status = fault_check("chkpt_iterate_next")) return status;
  if (iterator == nullptr || key == nullptr || key_size == nullptr || data == nullptr || size == nullptr ||
      object_id == nullptr) {
    return kStatusInvalid;
  }
  const auto next = next_record(*iterator);
  *object_id = 0;
  if (next == iterator->table->records.by_id.end()) return kStatusOk;
  const auto copy = [](const std::string& from, void* to, std::size_t* room) {
    std::memcpy(to, from.data(), std::min(*room, from.size()));
    *room = from.size();
  };
  copy(next->second.key, key, key_size);
  copy(next->second.data, data, size);
  *object_id = iterator->last = next->first;
  iterator->at = next;
  iterator->deletions = iterator->table->records.deletions;
  return kStatusOk;
}

Status chkpt_iterate_end(ChkptIterator* iterator) {
  const std::unique_ptr<ChkptIterator> released(iterator);
  if (const Status status = fault_check("chkpt_iterate_end")) return status;
  return iterator == nullptr ? kStatusInvalid : kStatusOk;
}

// Registration of descriptions in batches, and the process's own registry.
//
// A batch collects definitions. Closing it compares them with the registry file, replaces the file if any of
// them is new, and only then makes the descriptions known to the process. A batch is therefore registered as
// a whole or not at all, and a definition that differs from the file's is reported exactly once: afterwards
// the file has the new one.
//
// The process's registry holds the caller's descriptions themselves, which must stay where they are (they are
// constants). Main thread only.
#include "platform/core/parcel/registry.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/parcel/parcel.h"
#include "platform/core/parcel/schema.h"

struct ParcelBatch {
  std::string set_name;
  std::vector<const ParcelDescription*> descriptions;
};

namespace {

using parcel_detail::Definition;
using parcel_detail::Definitions;

std::map<std::string, const ParcelDescription*, std::less<>>& process_registry() {
  static std::map<std::string, const ParcelDescription*, std::less<>> registry;
  return registry;
}

bool is_set_name(const char* name) {
  return name != nullptr && *name != '\0' && std::strpbrk(name, "\t\n") == nullptr;
}

struct Difference {
  bool anything = false;  // a definition is new or changed
  bool changed = false;   // a known definition changed
};

// Enters the batch into the definitions.
Difference merge(const ParcelBatch& batch, Definitions* definitions) {
  Difference difference;
  for (const ParcelDescription* one : batch.descriptions) {
    Definition own{one->version, one->reader_version, batch.set_name, one->annotated_schema};
    const auto [known, added] = definitions->try_emplace(one->type_name, own);
    if (!added && known->second.same_record(own)) continue;
    difference.anything = true;
    if (added) continue;
    difference.changed = true;
    known->second = std::move(own);
  }
  return difference;
}

}  // namespace

Status parcel_batch_open(const char* set_name, ParcelBatch** batch) {
  if (Status s = fault_check("parcel_batch_open")) return s;
  if (batch == nullptr || !is_set_name(set_name)) return kStatusInvalid;
  *batch = new (std::nothrow) ParcelBatch{set_name, {}};
  return *batch == nullptr ? kStatusNoMemory : kStatusOk;
}

Status parcel_register(ParcelBatch* batch, const ParcelDescription* description) {
  if (Status s = fault_check("parcel_register")) return s;
  if (batch == nullptr || description == nullptr) return kStatusInvalid;
  parcel_detail::Schema schema;
  if (Status s = parcel_detail::parse_schema(description->annotated_schema, &schema)) return s;
  const auto same_type = [&](const ParcelDescription* one) {
    return std::strcmp(one->type_name, description->type_name) == 0;
  };
  if (std::any_of(batch->descriptions.begin(), batch->descriptions.end(), same_type)) return kStatusExists;
  batch->descriptions.push_back(description);
  return kStatusOk;
}

Status parcel_batch_close(ParcelBatch* batch) {
  const std::unique_ptr<ParcelBatch> owned(batch);
  if (Status s = fault_check("parcel_batch_close")) return s;
  if (batch == nullptr) return kStatusInvalid;
  Definitions definitions = parcel_detail::read_registry_file();
  const Difference difference = merge(*batch, &definitions);
  if (difference.anything) {
    if (Status s = parcel_detail::write_registry_file(definitions)) return s;
  }
  for (const ParcelDescription* one : batch->descriptions) process_registry()[one->type_name] = one;
  return difference.changed ? kStatusDefinitionChanged : kStatusOk;
}

void parcel_batch_abort(ParcelBatch* batch) {
  delete batch;
}

const ParcelDescription* parcel_find(const char* type_name) {
  if (type_name == nullptr) return nullptr;
  const auto found = process_registry().find(type_name);
  return found == process_registry().end() ? nullptr : found->second;
}

void parcel_registry_reset() {
  process_registry().clear();
}

// Plans: a description's schema text, parsed, with the offsets of its layout. Text and layout are generated
// from one field table, so they agree.
//
// Each thread has its own cache, so that no lock is needed; the key is the description's address.
#include "platform/core/parcel/plan.h"

#include <string_view>
#include <unordered_map>

namespace parcel_detail {
namespace {

PlanStructure plan_structure(const SchemaStructure& structure, const ParcelStructLayout& layout) {
  PlanStructure plan{layout.size, 0, {}};
  const std::uint32_t* offset = layout.offsets;
  for (const SchemaField& field : structure.fields) {
    const FieldSlots slots = slots_of(field.kind);
    plan.fields.push_back({field.kind, *offset, field.nested, field.max});
    plan.encoded_size += slots.encoded_size;
    offset += slots.count;
  }
  return plan;
}

void append_u32(std::vector<std::uint8_t>* octets, std::uint32_t value) {
  for (unsigned shift = 0; shift < 32; shift += 8)
    octets->push_back(static_cast<std::uint8_t>(value >> shift));
}

std::vector<std::uint8_t> make_prefix(const ParcelDescription& description) {
  const std::string_view type_name = description.type_name;
  std::vector<std::uint8_t> prefix{static_cast<std::uint8_t>(description.format)};
  append_u32(&prefix, static_cast<std::uint32_t>(type_name.size() + 1));
  prefix.insert(prefix.end(), type_name.begin(), type_name.end());
  append_u32(&prefix, description.version);
  append_u32(&prefix, description.reader_version);
  append_u32(&prefix, schema_hash(description.annotated_schema));
  return prefix;
}

// Without structures for a text that is not a schema.
Plan make_plan(const ParcelDescription& description) {
  Plan plan;
  Schema schema;
  if (parse_schema(description.annotated_schema, &schema) != kStatusOk) return plan;
  plan.prefix = make_prefix(description);
  for (std::size_t i = 0; i < schema.structures.size(); ++i)
    plan.structures.push_back(plan_structure(schema.structures[i], description.layout->structures[i]));
  return plan;
}

}  // namespace

const Plan* plan_for(const ParcelDescription* description) {
  thread_local std::unordered_map<const ParcelDescription*, Plan> plans;
  if (description == nullptr) return nullptr;
  auto found = plans.find(description);
  if (found == plans.end()) found = plans.emplace(description, make_plan(*description)).first;
  return found->second.structures.empty() ? nullptr : &found->second;
}

}  // namespace parcel_detail

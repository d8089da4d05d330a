// Checks descriptions and caches their plans.
//
// A description states the same three times (annotated schema, compact schema, layout table). It is valid if
// the three agree and the layout is the natural one: fields in order, each at its own alignment, the
// structure padded to the largest alignment in it.
//
// Each thread has its own cache, so that no lock is needed; the key is the description's address. A cached
// plan is compared with the description at that address, because a test or a reader may build another
// description there; the comparison costs some tens of nanoseconds. A thread caches at most kMaxPlans plans.
#include "platform/core/parcel/plan.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace parcel_detail {
namespace {

constexpr std::size_t kMaxPlans = 256;
constexpr std::size_t kMaxTypeName = 255;

bool names_and_types_agree(const SchemaField& annotated, const SchemaField& compact) {
  if (annotated.name.empty() || !compact.name.empty() || !compact.enumeration.empty()) return false;
  return annotated.kind == compact.kind && annotated.nested == compact.nested && annotated.max == compact.max;
}

bool structures_agree(const SchemaStructure& annotated, const SchemaStructure& compact) {
  return annotated.number == compact.number &&
         std::equal(annotated.fields.begin(), annotated.fields.end(), compact.fields.begin(),
                    compact.fields.end(), names_and_types_agree);
}

const ParcelStructLayout* find_layout(const ParcelLayout& layout, std::uint32_t number) {
  const ParcelStructLayout* end = layout.structures + layout.structure_count;
  const ParcelStructLayout* found = std::find_if(
      layout.structures, end, [&](const ParcelStructLayout& one) { return one.number == number; });
  return found == end || found->offsets == nullptr ? nullptr : found;
}

// The structure's plan when the stated layout is its natural one.
std::optional<PlanStructure> plan_structure(const SchemaStructure& structure,
                                            const ParcelStructLayout& layout) {
  PlanStructure plan{layout.size, 0, {}};
  std::uint32_t end = 0;
  std::uint32_t alignment = 1;
  std::uint32_t slot = 0;
  for (const SchemaField& field : structure.fields) {
    const FieldSlots slots = slots_of(field.kind);
    plan.fields.push_back({field.kind, align_slot(end, slots.width), field.nested, field.max});
    plan.encoded_size += slots.encoded_size;
    alignment = std::max(alignment, slots.width);
    for (std::uint32_t i = 0; i < slots.count; ++i, ++slot) {
      const std::uint32_t offset = align_slot(end, slots.width);
      if (slot >= layout.offset_count || layout.offsets[slot] != offset) return std::nullopt;
      end = offset + slots.width;
    }
  }
  if (slot != layout.offset_count || layout.size != align_slot(end, alignment)) return std::nullopt;
  return plan;
}

bool plan_structures(const Schema& schema, const ParcelLayout& layout,
                     std::vector<PlanStructure>* structures) {
  if (layout.structures == nullptr || layout.structure_count != schema.structures.size()) return false;
  if (layout.structures[0].number != schema.structures[0].number) return false;
  for (const SchemaStructure& structure : schema.structures) {
    const ParcelStructLayout* found = find_layout(layout, structure.number);
    if (found == nullptr) return false;
    std::optional<PlanStructure> plan = plan_structure(structure, *found);
    if (!plan) return false;
    structures->push_back(std::move(*plan));
  }
  return true;
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

// Type names have no spaces: they are written to a line of the registry and to JSON.
bool is_type_name(std::string_view name) {
  return !name.empty() && name.size() <= kMaxTypeName &&
         std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

bool is_complete(const ParcelDescription* description) {
  return description != nullptr && description->format == 1 && description->type_name != nullptr &&
         description->layout != nullptr && description->annotated_schema != nullptr &&
         description->compact_schema != nullptr && is_type_name(description->type_name);
}

Status make_plan(const ParcelDescription* description, Plan* plan) {
  if (!is_complete(description)) return kStatusBadDescription;
  Schema annotated;
  Schema compact;
  if (Status s = parse_schema(description->annotated_schema, &annotated)) return s;
  if (Status s = parse_schema(description->compact_schema, &compact)) return s;
  if (!std::equal(annotated.structures.begin(), annotated.structures.end(), compact.structures.begin(),
                  compact.structures.end(), structures_agree)) {
    return kStatusBadDescription;
  }
  if (!plan_structures(annotated, *description->layout, &plan->structures)) return kStatusBadDescription;
  plan->prefix = make_prefix(*description);
  return kStatusOk;
}

// A plan and a copy of everything that it was made from.
struct CachedPlan {
  std::string type_name;
  std::string annotated_schema;
  std::string compact_schema;
  std::uint32_t version;
  std::uint32_t reader_version;
  std::vector<std::uint32_t> layout;  // number, size and offsets of each structure, one after the other
  Plan plan;
};

bool layout_is(const ParcelLayout& layout, const std::vector<std::uint32_t>& cached) {
  const std::uint32_t* at = cached.data();
  const std::uint32_t* const end = at + cached.size();
  for (std::uint32_t i = 0; i < layout.structure_count; ++i) {
    const ParcelStructLayout& one = layout.structures[i];
    if (static_cast<std::size_t>(end - at) < one.offset_count + std::size_t{2}) return false;
    if (at[0] != one.number || at[1] != one.size) return false;
    if (std::memcmp(at + 2, one.offsets, one.offset_count * sizeof(std::uint32_t)) != 0) return false;
    at += 2 + one.offset_count;
  }
  return at == end;
}

std::vector<std::uint32_t> copy_layout(const ParcelLayout& layout) {
  std::vector<std::uint32_t> copy;
  for (std::uint32_t i = 0; i < layout.structure_count; ++i) {
    const ParcelStructLayout& one = layout.structures[i];
    copy.push_back(one.number);
    copy.push_back(one.size);
    copy.insert(copy.end(), one.offsets, one.offsets + one.offset_count);
  }
  return copy;
}

bool made_from(const CachedPlan& cached, const ParcelDescription& description) {
  return is_complete(&description) && cached.version == description.version &&
         cached.reader_version == description.reader_version && cached.type_name == description.type_name &&
         cached.annotated_schema == description.annotated_schema &&
         cached.compact_schema == description.compact_schema && layout_is(*description.layout, cached.layout);
}

using PlanCache = std::unordered_map<const ParcelDescription*, CachedPlan>;

const Plan* cache_plan(PlanCache* plans, const ParcelDescription* description) {
  Plan plan;
  if (make_plan(description, &plan) != kStatusOk) return nullptr;
  if (plans->size() >= kMaxPlans) plans->clear();
  CachedPlan cached{description->type_name, description->annotated_schema, description->compact_schema,
                    description->version,   description->reader_version,   copy_layout(*description->layout),
                    std::move(plan)};
  return &plans->insert_or_assign(description, std::move(cached)).first->second.plan;
}

}  // namespace

const Plan* plan_for(const ParcelDescription* description) {
  thread_local PlanCache plans;
  if (description == nullptr) return nullptr;
  const auto found = plans.find(description);
  if (found != plans.end() && made_from(found->second, *description)) return &found->second.plan;
  return cache_plan(&plans, description);
}

}  // namespace parcel_detail

Status parcel_check_description(const ParcelDescription* description) {
  parcel_detail::Plan plan;
  return parcel_detail::make_plan(description, &plan);
}

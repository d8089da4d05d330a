// What encoding, decoding and releasing of one record type need: every field with its place in memory, and
// the octets with which an encoded record of the type begins. Made once from a description and cached.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/parcel/parcel.h"
#include "platform/core/parcel/schema.h"

namespace parcel_detail {

struct PlanField {
  FieldKind kind;
  std::uint32_t offset;  // of the first slot, in octets from the structure's beginning
  std::uint32_t nested;  // kStructures: index into Plan::structures
  std::uint32_t max;     // kOctetArray
};

struct PlanStructure {
  std::uint32_t size;          // in memory
  std::uint32_t encoded_size;  // least octets of one encoded structure, at least 1
  std::vector<PlanField> fields;
};

struct Plan {
  std::vector<std::uint8_t> prefix;       // format octet, type name, versions, schema hash
  std::vector<PlanStructure> structures;  // the top structure first
};

// The plan of a description, which must not change afterwards; null for a null description and for one whose
// text is not a schema. Valid as long as the calling thread lives. Any thread.
const Plan* plan_for(const ParcelDescription* description);

}  // namespace parcel_detail

// For the tests of this folder: records of every field kind with their descriptions.
#pragma once

#include <array>
#include <cstdlib>
#include <vector>

#include "platform/core/parcel/description.h"
#include "platform/core/parcel/field_table.h"
#include "platform/core/parcel/parcel.h"

namespace test_records {

using Octets = std::vector<std::uint8_t>;

// None if the record does not encode; a record never encodes to nothing.
inline Octets encode(const ParcelDescription& description, const void* record) {
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  const Status status = parcel_encode(&description, record, &data, &length);
  const Octets octets(data, data + (status == kStatusOk ? length : 0));
  std::free(data);
  return octets;
}

struct Leaf {
  std::uint32_t kind;
  char* value;
};

struct Branch {
  std::uint32_t family;
  ParcelArray leaves;  // of Leaf
  char* policy;
};

struct Everything {
  char* text;
  std::int32_t number;
  std::uint32_t count;
  std::uint8_t octet;
  std::uint32_t flag;
  std::uint32_t enumeration;
  ParcelOctets octets;
  ParcelArray branches;  // of Branch
  ParcelArray pointer;   // at most 4 octets
  char* last;
};

inline constexpr std::array kLeafFields = {
    PARCEL_FIELD(Leaf, kind, parcel_enumeration("kind")),
    PARCEL_FIELD(Leaf, value),
};
inline constexpr auto kLeaf = parcel_structure<Leaf>(1, kLeafFields);

inline constexpr std::array kBranchFields = {
    PARCEL_FIELD(Branch, family),
    PARCEL_FIELD(Branch, leaves, parcel_array_of(kLeaf)),
    PARCEL_FIELD(Branch, policy),
};
inline constexpr auto kBranch = parcel_structure<Branch>(2, kBranchFields);

inline constexpr std::array kEverythingFields = {
    PARCEL_FIELD(Everything, text),
    PARCEL_FIELD(Everything, number),
    PARCEL_FIELD(Everything, count),
    PARCEL_FIELD(Everything, octet),
    PARCEL_FIELD(Everything, flag, kParcelBoolean),
    PARCEL_FIELD(Everything, enumeration, parcel_enumeration("kind")),
    PARCEL_FIELD(Everything, octets),
    PARCEL_FIELD(Everything, branches, parcel_array_of(kBranch)),
    PARCEL_FIELD(Everything, pointer, parcel_octet_array(4)),
    PARCEL_FIELD(Everything, last),
};
inline constexpr auto kEverythingStructure = parcel_structure<Everything>(7, kEverythingFields);
inline constexpr ParcelDescription kEverything =
    parcel_description<kEverythingStructure, kLeaf, kBranch>("test_everything", 3, 2, "none");

// A row of the common shape: seven fields, two texts.
struct Row {
  char* name;
  std::int32_t index;
  std::int32_t classification;
  std::uint8_t protocol;
  std::int32_t storage;
  std::int32_t status;
  char* vrf;
};
inline constexpr std::array kRowFields = {
    PARCEL_FIELD(Row, name),     PARCEL_FIELD(Row, index),   PARCEL_FIELD(Row, classification),
    PARCEL_FIELD(Row, protocol), PARCEL_FIELD(Row, storage), PARCEL_FIELD(Row, status),
    PARCEL_FIELD(Row, vrf),
};
inline constexpr auto kRowStructure = parcel_structure<Row>(1, kRowFields);
inline constexpr ParcelDescription kRow = parcel_description<kRowStructure>("test_row", 1, 0, "none");

}  // namespace test_records

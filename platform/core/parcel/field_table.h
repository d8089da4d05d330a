// The field table of a structure: one line per member.
//
//   struct Route {
//     char* prefix;
//     std::uint32_t family;
//     ParcelArray paths;  // of Path
//   };
//   constexpr std::array kRouteFields = {
//       PARCEL_FIELD(Route, prefix),
//       PARCEL_FIELD(Route, family, parcel_enumeration("family")),
//       PARCEL_FIELD(Route, paths, parcel_array_of(kPath)),
//   };
//   constexpr auto kRoute = parcel_structure<Route>(2, kRouteFields);
//
// parcel_description() generates the description from such tables (description.h). The kind of a field
// follows from its member's type: char* is a text, ParcelOctets an octet string. A third argument states what
// the type leaves open: a boolean, an enumeration, or the elements of an array. A table that lacks a member,
// or lists members in another order than the structure, does not compile.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/core/parcel/field_kind.h"
#include "platform/core/parcel/parcel.h"

// What a field is, apart from its name and its offset.
struct ParcelFieldType {
  parcel_detail::FieldKind kind;
  std::string_view enumeration;  // kEnumeration: name of the type
  std::uint32_t number;          // kStructures: the structure's; kOctetArray: most octets
};

struct ParcelField {
  std::string_view name;
  std::uint32_t offset;
  ParcelFieldType type;
};

template <std::size_t kFields>
struct ParcelStructure {
  std::uint32_t number;
  std::uint32_t size;
  std::array<ParcelField, kFields> fields;
};

inline constexpr ParcelFieldType kParcelBoolean = {parcel_detail::FieldKind::kBoolean, {}, 0};

constexpr ParcelFieldType parcel_enumeration(std::string_view type_name) {
  return {parcel_detail::FieldKind::kEnumeration, type_name, 0};
}

constexpr ParcelFieldType parcel_octet_array(std::uint32_t max) {
  return {parcel_detail::FieldKind::kOctetArray, {}, max};
}

template <std::size_t kFields>
constexpr ParcelFieldType parcel_array_of(const ParcelStructure<kFields>& element) {
  return {parcel_detail::FieldKind::kStructures, {}, element.number};
}

namespace parcel_detail {

template <typename Member>
constexpr FieldKind kind_of() {
  if constexpr (std::is_same_v<Member, char*>) {
    return FieldKind::kText;
  } else if constexpr (std::is_same_v<Member, std::int32_t>) {
    return FieldKind::kSigned;
  } else if constexpr (std::is_same_v<Member, std::uint32_t>) {
    return FieldKind::kUnsigned;
  } else if constexpr (std::is_same_v<Member, std::uint8_t>) {
    return FieldKind::kOctet;
  } else {
    static_assert(std::is_same_v<Member, ParcelOctets>, "the field needs a type");
    return FieldKind::kOctets;
  }
}

template <typename Member>
constexpr bool fits(const ParcelFieldType& type) {
  switch (type.kind) {
    case FieldKind::kBoolean:
    case FieldKind::kEnumeration:
      return std::is_same_v<Member, std::uint32_t>;
    case FieldKind::kStructures:
    case FieldKind::kOctetArray:
      return std::is_same_v<Member, ParcelArray>;
    default:
      return true;
  }
}

template <typename Member>
constexpr ParcelField make_field(std::string_view name, std::size_t offset,
                                 const ParcelFieldType& type = {kind_of<Member>(), {}, 0}) {
  if (!fits<Member>(type)) throw "the member has another type than its field";
  return {name, static_cast<std::uint32_t>(offset), type};
}

struct AnyMember {
  template <typename Member>
  operator Member() const;
};

// True when the record has at least kMembers members.
template <typename Record, std::size_t kMembers>
constexpr bool has_members() {
  return []<std::size_t... kIndexes>(std::index_sequence<kIndexes...>) {
    return requires {
      Record{(static_cast<void>(kIndexes), AnyMember{})...};
    };
  }
  (std::make_index_sequence<kMembers>());
}

template <std::size_t kFields>
constexpr bool covers(const std::array<ParcelField, kFields>& fields, std::size_t size) {
  std::uint32_t end = 0;
  std::uint32_t alignment = 1;
  for (const ParcelField& field : fields) {
    const FieldSlots slots = slots_of(field.type.kind);
    if (field.offset != align_slot(end, slots.width)) return false;
    end = field.offset + slots.width * slots.count;
    alignment = std::max(alignment, slots.width);
  }
  return size == align_slot(end, alignment);
}

}  // namespace parcel_detail

// A field of a table: the record's type, the member and, where its type leaves it open, the field's type.
#define PARCEL_FIELD(Record, member, ...)                      \
  parcel_detail::make_field<decltype(Record::member)>(#member, \
                                                      offsetof(Record, member) __VA_OPT__(, ) __VA_ARGS__)

// The structure `number` of a schema. REQUIRES: the table lists all members of the record, in their order.
template <typename Record, std::size_t kFields>
constexpr ParcelStructure<kFields> parcel_structure(std::uint32_t number,
                                                    const std::array<ParcelField, kFields>& fields) {
  static_assert(parcel_detail::has_members<Record, kFields>(), "the table has more fields than the record");
  static_assert(!parcel_detail::has_members<Record, kFields + 1>(), "the table lacks fields of the record");
  if (!parcel_detail::covers(fields, sizeof(Record))) throw "the fields are not in the order of the record";
  return {number, sizeof(Record), fields};
}

// Schema texts, parsed: which structures a record type has, and which fields they have in which order.
//
//   schema    := structure+                      the first one is the top structure
//   structure := "$" number "=" field+ ";"
//   field     := ["{" name "}"] type
//   type      := "s" | "d" | "D" | "C" | "b" | ["[" name "]"] "e" | "y" | "a($" number ")" | number "a(C)"
//
// A text may be read from a file and is as untrusted as a message: lengths, counts and nesting are
// bounded and a structure cannot contain itself.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/parcel/field_kind.h"

namespace parcel_detail {

inline constexpr std::size_t kMaxSchemaText = 16U << 10;  // octets
inline constexpr std::size_t kMaxStructures = 64;
inline constexpr unsigned kMaxNesting = 8;  // levels of structures

struct SchemaField {
  FieldKind kind = FieldKind::kText;
  std::uint32_t nested = 0;  // kStructures: index into Schema::structures
  std::uint32_t max = 0;     // kOctetArray: most elements
  std::string name;          // empty in the compact form
  std::string enumeration;   // kEnumeration: name of the type, may be empty
};

struct SchemaStructure {
  std::uint32_t number = 0;
  std::vector<SchemaField> fields;  // never empty
};

struct Schema {
  std::vector<SchemaStructure> structures;  // the top structure first; never empty once parsed
};

// kStatusBadDescription for a text that is not a schema.
[[nodiscard]] Status parse_schema(std::string_view text, Schema* schema);

}  // namespace parcel_detail

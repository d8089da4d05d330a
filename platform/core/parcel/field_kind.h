// The kinds of fields: their codes in schema texts, and their slots in memory and on the wire.
#pragma once

#include <cstdint>
#include <string_view>

namespace parcel_detail {

enum class FieldKind : std::uint8_t {
  kText,         // s
  kSigned,       // d
  kUnsigned,     // D
  kOctet,        // C
  kBoolean,      // b
  kEnumeration,  // e
  kOctets,       // y
  kStructures,   // a($n)
  kOctetArray,   // <max>a(C)
};

// The codes of the kinds before kStructures, in their order.
inline constexpr std::string_view kFieldCodes = "sdDCbey";

struct FieldSlots {
  std::uint32_t width;  // octets of one slot, also its alignment
  std::uint32_t count;
  std::uint32_t encoded_size;  // least octets on the wire
};

constexpr FieldSlots slots_of(FieldKind kind) {
  switch (kind) {
    case FieldKind::kText:
      return {8, 1, 4};
    case FieldKind::kOctet:
      return {1, 1, 1};
    case FieldKind::kOctets:
    case FieldKind::kStructures:
    case FieldKind::kOctetArray:
      return {8, 2, 4};
    default:
      return {4, 1, 4};
  }
}

// FNV-1a, 32 bits: what an encoded record carries of its annotated schema.
constexpr std::uint32_t schema_hash(std::string_view text) {
  std::uint32_t hash = 2166136261U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return hash;
}

constexpr std::uint32_t align_slot(std::uint32_t offset, std::uint32_t width) {
  return (offset + width - 1) / width * width;
}

}  // namespace parcel_detail

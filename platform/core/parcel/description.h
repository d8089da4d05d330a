// Descriptions generated at compile time from field tables (field_table.h): both schema texts and the layout.
//
//   const ParcelDescription kRouteParcel = parcel_description<kRoute, kPath>("route", 1, 0, "library");
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/core/parcel/field_kind.h"
#include "platform/core/parcel/field_table.h"
#include "platform/core/parcel/parcel.h"

namespace parcel_detail {

// Writes schema texts, or counts their characters when `text` is null.
class SchemaWriter {
 public:
  explicit constexpr SchemaWriter(bool annotated, char* text) : annotated_(annotated), text_(text) {}
  constexpr std::size_t length() const { return length_; }

  template <std::size_t kFields>
  constexpr void write_structure(const ParcelStructure<kFields>& structure) {
    write("$");
    write_number(structure.number);
    write("=");
    for (const ParcelField& field : structure.fields) write_field(field);
    write(";");
  }

 private:
  constexpr void write(std::string_view part) {
    if (text_ != nullptr) std::copy(part.begin(), part.end(), text_ + length_);
    length_ += part.size();
  }
  constexpr void write_number(std::uint32_t number) {
    if (number >= 10) write_number(number / 10);
    const char digit = static_cast<char>('0' + number % 10);
    write({&digit, 1});
  }
  constexpr void write_enclosed(std::string_view opening, std::string_view name, std::string_view closing) {
    if (!annotated_) return;
    write(opening);
    write(name);
    write(closing);
  }
  constexpr void write_field(const ParcelField& field) {
    write_enclosed("{", field.name, "}");
    if (!field.type.enumeration.empty()) write_enclosed("[", field.type.enumeration, "]");
    if (field.type.kind == FieldKind::kStructures) {
      write("a($");
      write_number(field.type.number);
      write(")");
    } else if (field.type.kind == FieldKind::kOctetArray) {
      write_number(field.type.number);
      write("a(C)");
    } else {
      write(kFieldCodes.substr(static_cast<std::size_t>(field.type.kind), 1));
    }
  }

  bool annotated_;
  char* text_;
  std::size_t length_ = 0;
};

template <bool kAnnotated, const auto&... kStructures>
struct SchemaText {
  static constexpr std::size_t length() {
    SchemaWriter counter(kAnnotated, nullptr);
    (counter.write_structure(kStructures), ...);
    return counter.length();
  }
  static constexpr auto make() {
    std::array<char, length() + 1> text{};
    SchemaWriter writer(kAnnotated, text.data());
    (writer.write_structure(kStructures), ...);
    return text;
  }
  static constexpr auto kText = make();
};

// The layout of a structure, whose fields may have elements of any of kAll.
template <const auto& kStructure, const auto&... kAll>
struct StructLayout {
  static constexpr std::uint32_t place_of(std::uint32_t number) {
    const std::uint32_t numbers[] = {kAll.number...};
    const auto* const found = std::find(std::begin(numbers), std::end(numbers), number);
    if (found == std::end(numbers)) throw "the description lacks the structure of an array's elements";
    return static_cast<std::uint32_t>(found - numbers);
  }
  static constexpr std::size_t slot_count() {
    std::size_t count = 0;
    for (const ParcelField& field : kStructure.fields) count += slots_of(field.type.kind).count;
    return count;
  }
  static constexpr auto make_offsets() {
    std::array<std::uint32_t, slot_count()> offsets{};
    std::size_t at = 0;
    for (const ParcelField& field : kStructure.fields) {
      const FieldSlots slots = slots_of(field.type.kind);
      for (std::uint32_t i = 0; i < slots.count; ++i) offsets[at++] = field.offset + i * slots.width;
    }
    return offsets;
  }
  static constexpr auto make_fields() {
    std::array<ParcelFieldLayout, kStructure.fields.size()> fields{};
    for (std::size_t i = 0; i < fields.size(); ++i) {
      const auto& [name, offset, type] = kStructure.fields[i];
      const bool is_array = type.kind == FieldKind::kStructures;
      fields[i] = {type.kind, offset, is_array ? place_of(type.number) : 0, type.number};
    }
    return fields;
  }
  static constexpr std::uint32_t encoded_size() {
    std::uint32_t size = 0;
    for (const ParcelField& field : kStructure.fields) size += slots_of(field.type.kind).encoded_size;
    return size;
  }
  static constexpr auto kOffsets = make_offsets();
  static constexpr auto kFields = make_fields();
  static constexpr ParcelStructLayout kLayout = {kStructure.number, kStructure.size, kOffsets.data(),
                                                 kOffsets.size(),   kFields,         encoded_size()};
};

template <const auto&... kStructures>
struct Layout {
  static constexpr ParcelStructLayout kLayouts[] = {StructLayout<kStructures, kStructures...>::kLayout...};
  static constexpr ParcelLayout kLayout = {kLayouts, sizeof...(kStructures)};
};

}  // namespace parcel_detail

// The description of a type: its top structure, then every structure below it.
template <const auto&... kStructures>
constexpr ParcelDescription parcel_description(const char* type_name, std::uint32_t version,
                                               std::uint32_t reader_version, const char* library) {
  constexpr const auto& annotated = parcel_detail::SchemaText<true, kStructures...>::kText;
  return {1,
          type_name,
          version,
          reader_version,
          library,
          &parcel_detail::Layout<kStructures...>::kLayout,
          annotated.data(),
          parcel_detail::SchemaText<false, kStructures...>::kText.data(),
          parcel_detail::schema_hash(annotated.data())};
}

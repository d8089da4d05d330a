// Decoding into a caller's record, and the release of what a record points to.
//
// The octets come from a peer. A count is compared with the remaining octets (every element takes at least
// its structure's encoded_size) before memory for the elements is allocated, so that memory stays within a
// small multiple of the message. The record is zeroed first and filled field by field; a partly filled record
// is released like any record. Any thread; no state is stored.
#include <cstdlib>
#include <cstring>

#include "platform/core/base/fault.h"
#include "platform/core/base/memory.h"
#include "platform/core/parcel/cursor.h"
#include "platform/core/parcel/parcel.h"

using namespace parcel_detail;

namespace {

template <typename T>
void store(std::uint8_t* record, std::uint32_t offset, const T& value) {
  std::memcpy(record + offset, &value, sizeof value);
}

template <typename T>
T load(const std::uint8_t* record, std::uint32_t offset) {
  T value;
  std::memcpy(&value, record + offset, sizeof value);
  return value;
}

Status read_word(Cursor* in, std::uint8_t* slot) {
  std::uint32_t value = 0;
  if (!in->u32(&value)) return kStatusBadEncoding;
  store(slot, 0, value);
  return kStatusOk;
}

Status read_text(Cursor* in, std::uint8_t* slot) {
  bool present = false;
  std::string_view text;
  if (!in->text(&present, &text)) return kStatusBadEncoding;
  if (!present) return kStatusOk;
  auto* copy = static_cast<char*>(calloc_tagged(text.size() + 1, 1, "parcel text"));
  if (copy == nullptr) return kStatusNoMemory;
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  store(slot, 0, copy);
  return kStatusOk;
}

// y and arrays of octets have the same form in memory: a count, then the reference.
Status read_octets(Cursor* in, std::uint8_t* slot, std::uint32_t max) {
  std::uint32_t count = 0;
  const std::uint8_t* octets = nullptr;
  if (!in->u32(&count) || count > max || !in->octets(count, &octets)) return kStatusBadEncoding;
  if (count == 0) return kStatusOk;
  void* copy = calloc_tagged(count, 1, "parcel octets");
  if (copy == nullptr) return kStatusNoMemory;
  std::memcpy(copy, octets, count);
  store(slot, 0, ParcelArray{count, copy});
  return kStatusOk;
}

Status read_structure(Cursor* in, const ParcelLayout& layout, const ParcelStructLayout& structure,
                      std::uint8_t* record);

Status read_structures(Cursor* in, const ParcelLayout& layout, const ParcelStructLayout& structure,
                       std::uint8_t* slot) {
  std::uint32_t count = 0;
  if (!in->u32(&count) || count > in->left() / structure.encoded_size) return kStatusBadEncoding;
  if (count == 0) return kStatusOk;
  auto* elements = static_cast<std::uint8_t*>(calloc_tagged(count, structure.size, "parcel array"));
  if (elements == nullptr) return kStatusNoMemory;
  // Stored before the elements are read, so that a failure among them releases all.
  store(slot, 0, ParcelArray{count, elements});
  for (std::uint32_t i = 0; i < count; ++i) {
    if (Status s = read_structure(in, layout, structure, elements + std::size_t{i} * structure.size))
      return s;
  }
  return kStatusOk;
}

Status read_field(Cursor* in, const ParcelLayout& layout, const ParcelFieldLayout& field,
                  std::uint8_t* record) {
  std::uint8_t* slot = record + field.offset;
  switch (field.kind) {
    case FieldKind::kText:
      return read_text(in, slot);
    case FieldKind::kOctet:
      return in->octet(slot) ? kStatusOk : kStatusBadEncoding;
    case FieldKind::kOctets:
      return read_octets(in, slot, kParcelMaxSize);
    case FieldKind::kOctetArray:
      return read_octets(in, slot, field.max);
    case FieldKind::kStructures:
      return read_structures(in, layout, layout.structures[field.nested], slot);
    default:
      return read_word(in, slot);
  }
}

Status read_structure(Cursor* in, const ParcelLayout& layout, const ParcelStructLayout& structure,
                      std::uint8_t* record) {
  for (const ParcelFieldLayout& field : structure.fields) {
    if (Status s = read_field(in, layout, field, record)) return s;
  }
  return kStatusOk;
}

void release_structure(const ParcelLayout& layout, const ParcelStructLayout& structure, std::uint8_t* record);

void release_array(const ParcelLayout& layout, const ParcelFieldLayout& field, std::uint8_t* record) {
  const auto array = load<ParcelArray>(record, field.offset);
  if (field.kind == FieldKind::kStructures && array.elements != nullptr) {
    const ParcelStructLayout& nested = layout.structures[field.nested];
    auto* element = static_cast<std::uint8_t*>(array.elements);
    for (std::uint64_t i = 0; i < array.count; ++i, element += nested.size)
      release_structure(layout, nested, element);
  }
  std::free(array.elements);
  store(record, field.offset, ParcelArray{});
}

void release_structure(const ParcelLayout& layout, const ParcelStructLayout& structure,
                       std::uint8_t* record) {
  for (const ParcelFieldLayout& field : structure.fields) {
    if (field.kind == FieldKind::kText) {
      std::free(load<char*>(record, field.offset));
      store<char*>(record, field.offset, nullptr);
    } else if (field.kind == FieldKind::kOctets || field.kind == FieldKind::kStructures ||
               field.kind == FieldKind::kOctetArray) {
      release_array(layout, field, record);
    }
  }
}

bool has_prefix(Cursor* in, const ParcelDescription& description) {
  Prefix prefix;
  return read_prefix(in, &prefix) && prefix.type_name == description.type_name &&
         prefix.version == description.version && prefix.reader_version == description.reader_version &&
         prefix.hash == description.schema_hash;
}

Status read_record(Cursor* in, const ParcelDescription& description, std::uint8_t* record) {
  if (!has_prefix(in, description)) return kStatusBadEncoding;
  const ParcelLayout& layout = *description.layout;
  if (Status s = read_structure(in, layout, layout.structures[0], record)) return s;
  return in->left() == 0 ? kStatusOk : kStatusBadEncoding;
}

}  // namespace

Status parcel_decode(const ParcelDescription* description, const std::uint8_t* data, std::size_t length,
                     void* record) {
  if (record == nullptr) return kStatusInvalid;
  if (description == nullptr) return kStatusBadDescription;
  const ParcelLayout& layout = *description->layout;
  auto* octets = static_cast<std::uint8_t*>(record);
  std::memset(octets, 0, layout.structures[0].size);
  if (Status s = fault_check("parcel_decode")) return s;
  if (data == nullptr || length > kParcelMaxSize) return kStatusBadEncoding;
  Cursor in(data, length);
  const Status status = read_record(&in, *description, octets);
  if (status != kStatusOk) {
    release_structure(layout, layout.structures[0], octets);
    std::memset(octets, 0, layout.structures[0].size);
  }
  return status;
}

Status parcel_free_indirections(const ParcelDescription* description, void* record) {
  if (Status s = fault_check("parcel_free_indirections")) return s;
  if (record == nullptr) return kStatusInvalid;
  if (description == nullptr) return kStatusBadDescription;
  const ParcelLayout& layout = *description->layout;
  release_structure(layout, layout.structures[0], static_cast<std::uint8_t*>(record));
  return kStatusOk;
}

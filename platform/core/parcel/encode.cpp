// Encoding: one pass over the record by its layout, into a buffer that doubles.
//
// The record is the caller's own memory and is trusted to have the layout of its description. Counts without
// elements are still refused, because a partly filled record is the most likely error. The result never
// exceeds kParcelMaxSize. Any thread; no state is stored.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/core/base/fault.h"
#include "platform/core/base/memory.h"
#include "platform/core/parcel/parcel.h"

using namespace parcel_detail;

namespace {

constexpr std::size_t kFirstCapacity = 256;

// Owns its octets until release().
class Buffer {
 public:
  ~Buffer() { std::free(octets_); }
  Buffer() = default;
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  Status make_room(std::size_t count) { return count <= capacity_ - size_ ? kStatusOk : grow(count); }

  // The add_* have room.
  void add(const void* octets, std::size_t count) {
    if (count != 0) std::memcpy(octets_ + size_, octets, count);
    size_ += count;
  }
  void add_octet(std::uint8_t value) { octets_[size_++] = value; }
  void add_u32(std::uint32_t value) {
    const std::uint8_t octets[] = {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
                                   static_cast<std::uint8_t>(value >> 16),
                                   static_cast<std::uint8_t>(value >> 24)};
    add(octets, sizeof octets);
  }
  // A text in its encoded form: its length and 1, then its octets.
  void add_text(std::string_view text) {
    add_u32(static_cast<std::uint32_t>(text.size() + 1));
    add(text.data(), text.size());
  }

  Status put(const void* octets, std::size_t count) {
    if (Status s = make_room(count)) return s;
    add(octets, count);
    return kStatusOk;
  }

  Status put_u32(std::uint32_t value) {
    if (Status s = make_room(sizeof value)) return s;
    add_u32(value);
    return kStatusOk;
  }

  std::uint8_t* release(std::size_t* size) {
    *size = size_;
    std::uint8_t* octets = octets_;
    octets_ = nullptr;
    return octets;
  }

 private:
  Status grow(std::size_t count) {
    if (count > kParcelMaxSize || size_ + count > kParcelMaxSize) return kStatusMessageTooLarge;
    // At most the largest size of a record: a record that fills the buffer is too large.
    const std::size_t capacity =
        std::min(kParcelMaxSize, std::max({kFirstCapacity, 2 * capacity_, size_ + count}));
    auto* octets = static_cast<std::uint8_t*>(malloc_tagged(capacity, "parcel buffer"));
    if (octets == nullptr) return kStatusNoMemory;
    if (size_ != 0) std::memcpy(octets, octets_, size_);
    std::free(octets_);
    octets_ = octets;
    capacity_ = capacity;
    return kStatusOk;
  }

  std::uint8_t* octets_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

template <typename T>
T slot(const std::uint8_t* record, std::uint32_t offset) {
  T value;
  std::memcpy(&value, record + offset, sizeof value);
  return value;
}

Status put_text(Buffer* out, const char* text) {
  if (text == nullptr) return out->put_u32(0);
  const std::size_t length = std::strlen(text);
  if (length >= kParcelMaxSize) return kStatusMessageTooLarge;
  if (Status s = out->make_room(sizeof(std::uint32_t) + length)) return s;
  out->add_text({text, length});
  return kStatusOk;
}

// A count and its elements' octets, each element `width` octets.
Status put_count(Buffer* out, std::uint64_t count, const void* elements, std::uint64_t max) {
  if (count > max) return kStatusMessageTooLarge;
  if (count != 0 && elements == nullptr) return kStatusInvalid;
  return out->put_u32(static_cast<std::uint32_t>(count));
}

Status put_octets(Buffer* out, std::uint64_t count, const void* octets, std::uint64_t max) {
  if (Status s = put_count(out, count, octets, max)) return s;
  return out->put(octets, static_cast<std::size_t>(count));
}

Status put_structure(Buffer* out, const ParcelLayout& layout, const ParcelStructLayout& structure,
                     const std::uint8_t* record);

Status put_structures(Buffer* out, const ParcelLayout& layout, const ParcelStructLayout& structure,
                      const ParcelArray& array) {
  if (Status s = put_count(out, array.count, array.elements, kParcelMaxSize)) return s;
  const auto* element = static_cast<const std::uint8_t*>(array.elements);
  for (std::uint64_t i = 0; i < array.count; ++i, element += structure.size) {
    if (Status s = put_structure(out, layout, structure, element)) return s;
  }
  return kStatusOk;
}

Status put_field(Buffer* out, const ParcelLayout& layout, const ParcelFieldLayout& field,
                 const std::uint8_t* record) {
  switch (field.kind) {
    case FieldKind::kText:
      return put_text(out, slot<const char*>(record, field.offset));
    case FieldKind::kOctet:
      return out->put(record + field.offset, 1);
    case FieldKind::kOctets: {
      const auto octets = slot<ParcelOctets>(record, field.offset);
      return put_octets(out, octets.length, octets.octets, kParcelMaxSize);
    }
    case FieldKind::kOctetArray: {
      const auto array = slot<ParcelArray>(record, field.offset);
      return put_octets(out, array.count, array.elements, field.max);
    }
    case FieldKind::kStructures:
      return put_structures(out, layout, layout.structures[field.nested],
                            slot<ParcelArray>(record, field.offset));
    default:
      return out->put_u32(slot<std::uint32_t>(record, field.offset));
  }
}

Status put_structure(Buffer* out, const ParcelLayout& layout, const ParcelStructLayout& structure,
                     const std::uint8_t* record) {
  for (const ParcelFieldLayout& field : structure.fields) {
    const bool is_word = field.kind == FieldKind::kSigned || field.kind == FieldKind::kUnsigned;
    const Status s = is_word ? out->put_u32(slot<std::uint32_t>(record, field.offset))
                             : put_field(out, layout, field, record);
    if (s != kStatusOk) return s;
  }
  return kStatusOk;
}

// The octets with which every record of the type begins.
Status put_prefix(Buffer* out, const ParcelDescription& description) {
  const std::string_view type_name = description.type_name;
  if (Status s = out->make_room(1 + type_name.size() + 4 * sizeof(std::uint32_t))) return s;
  out->add_octet(static_cast<std::uint8_t>(description.format));
  out->add_text(type_name);
  out->add_u32(description.version);
  out->add_u32(description.reader_version);
  out->add_u32(description.schema_hash);
  return kStatusOk;
}

}  // namespace

Status parcel_encode(const ParcelDescription* description, const void* record, std::uint8_t** data,
                     std::size_t* length) {
  if (Status s = fault_check("parcel_encode")) return s;
  if (record == nullptr || data == nullptr || length == nullptr) return kStatusInvalid;
  if (description == nullptr) return kStatusBadDescription;
  const ParcelLayout& layout = *description->layout;
  Buffer out;
  if (Status s = put_prefix(&out, *description)) return s;
  if (Status s = put_structure(&out, layout, layout.structures[0], static_cast<const std::uint8_t*>(record)))
    return s;
  *data = out.release(length);
  return kStatusOk;
}

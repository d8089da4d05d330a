// Payload and frame encoding. Neither the host's byte order nor alignment matters.
#include <algorithm>
#include <array>

#include "platform/core/base/little_endian.h"
#include "platform/core/wire/wire.h"

namespace wire {

namespace {

constexpr std::size_t kVersionOffset = 4;
constexpr std::size_t kTypeOffset = 6;
constexpr std::size_t kRequestOffset = 8;
constexpr std::size_t kLengthOffset = 12;

template <typename Integer>
void append(Octets* out, Integer value) {
  std::array<std::uint8_t, sizeof(Integer)> octets;
  store_little_endian(octets.data(), value);
  out->insert(out->end(), octets.begin(), octets.end());
}

// Appends a header and room for `more` octets, and returns where that is.
std::uint8_t* append_header(Octets* out, std::uint16_t type, std::uint32_t request, std::size_t payload,
                            std::size_t more) {
  const std::size_t frame = out->size();
  out->resize(frame + kHeaderSize + more);
  std::uint8_t* const header = out->data() + frame;
  store_little_endian(header, kMagic);
  store_little_endian(header + kVersionOffset, kVersion);
  store_little_endian(header + kTypeOffset, type);
  store_little_endian(header + kRequestOffset, request);
  store_little_endian(header + kLengthOffset, static_cast<std::uint32_t>(payload));
  return header + kHeaderSize;
}

}  // namespace

void Writer::u8(std::uint8_t value) {
  out_->push_back(value);
}
void Writer::u16(std::uint16_t value) {
  append(out_, value);
}
void Writer::u32(std::uint32_t value) {
  append(out_, value);
}
void Writer::u64(std::uint64_t value) {
  append(out_, value);
}

void Writer::octets(OctetSpan value) {
  u32(static_cast<std::uint32_t>(value.size()));
  out_->insert(out_->end(), value.begin(), value.end());
}

void Writer::text(std::string_view value) {
  octets({reinterpret_cast<const std::uint8_t*>(value.data()), value.size()});
}

void Writer::patch_u32(std::size_t offset, std::uint32_t value) {
  store_little_endian(out_->data() + offset, value);
}

void Writer::truncate(std::size_t size) {
  out_->resize(size);
}

OctetSpan Reader::take(std::size_t size) {
  if (!ok_ || size > rest_.size()) {
    ok_ = false;
    rest_ = {};
    return {};
  }
  const OctetSpan taken = rest_.first(size);
  rest_ = rest_.subspan(size);
  return taken;
}

std::uint8_t Reader::u8() {
  const OctetSpan taken = take(1);
  return taken.empty() ? std::uint8_t{0} : taken[0];
}

std::uint16_t Reader::u16() {
  const OctetSpan taken = take(2);
  return taken.empty() ? std::uint16_t{0} : load_little_endian<std::uint16_t>(taken.data());
}

std::uint32_t Reader::u32() {
  const OctetSpan taken = take(4);
  return taken.empty() ? 0 : load_little_endian<std::uint32_t>(taken.data());
}

std::uint64_t Reader::u64() {
  const OctetSpan taken = take(8);
  return taken.empty() ? 0 : load_little_endian<std::uint64_t>(taken.data());
}

OctetSpan Reader::octets() {
  return take(u32());
}

std::string_view Reader::text() {
  const OctetSpan taken = octets();
  return {reinterpret_cast<const char*>(taken.data()), taken.size()};
}

std::size_t begin_frame(Octets* out, std::uint16_t type, std::uint32_t request) {
  const std::size_t frame = out->size();
  append_header(out, type, request, 0, 0);
  return frame;
}

void append_frame(Octets* out, std::uint16_t type, std::uint32_t request, OctetSpan head, OctetSpan body) {
  std::uint8_t* const place = append_header(out, type, request, head.size() + body.size(), head.size());
  std::copy(head.begin(), head.end(), place);
  out->insert(out->end(), body.begin(), body.end());
}

void finish_frame(Octets* out, std::size_t frame) {
  const std::size_t payload = out->size() - frame - kHeaderSize;
  store_little_endian(out->data() + frame + kLengthOffset, static_cast<std::uint32_t>(payload));
}

Status parse_frame(OctetSpan data, std::size_t max_payload, Message* message, std::size_t* used) {
  *used = kHeaderSize;
  if (data.size() < kHeaderSize) return kStatusIncomplete;
  const std::uint8_t* const header = data.data();
  if (load_little_endian<std::uint32_t>(header) != kMagic) return kStatusBadMessage;
  if (load_little_endian<std::uint16_t>(header + kVersionOffset) != kVersion) return kStatusVersionMismatch;
  message->type = load_little_endian<std::uint16_t>(header + kTypeOffset);
  message->request = load_little_endian<std::uint32_t>(header + kRequestOffset);
  const auto length = load_little_endian<std::uint32_t>(header + kLengthOffset);
  if (length > max_payload) return kStatusMessageTooLarge;
  *used = kHeaderSize + length;
  if (data.size() < *used) return kStatusIncomplete;
  message->payload = data.subspan(kHeaderSize, length);
  return kStatusOk;
}

}  // namespace wire

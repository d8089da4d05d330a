// Payload and frame encoding. Shifts encode integers, so neither the host's byte order nor alignment matters;
// compilers make single loads and stores of them.
#include <array>
#include <cstring>

#include "platform/core/wire/wire.h"

namespace wire {

namespace {

constexpr std::size_t kVersionOffset = 4;
constexpr std::size_t kTypeOffset = 6;
constexpr std::size_t kRequestOffset = 8;
constexpr std::size_t kLengthOffset = 12;

template <typename Integer>
void store(std::uint8_t* to, Integer value) {
  for (std::size_t i = 0; i < sizeof(Integer); ++i) {
    to[i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i));
  }
}

template <typename Integer>
void append(Octets* out, Integer value) {
  std::array<std::uint8_t, sizeof(Integer)> octets;
  store(octets.data(), value);
  out->insert(out->end(), octets.begin(), octets.end());
}

template <typename Integer>
Integer load(const std::uint8_t* from) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < sizeof(Integer); ++i) value |= std::uint64_t{from[i]} << (8 * i);
  return static_cast<Integer>(value);
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
  const std::size_t at = out_->size();
  out_->resize(at + sizeof(std::uint32_t) + value.size());
  store(out_->data() + at, static_cast<std::uint32_t>(value.size()));
  if (!value.empty()) std::memcpy(out_->data() + at + sizeof(std::uint32_t), value.data(), value.size());
}

void Writer::text(std::string_view value) {
  octets({reinterpret_cast<const std::uint8_t*>(value.data()), value.size()});
}

void Writer::patch_u32(std::size_t offset, std::uint32_t value) {
  store(out_->data() + offset, value);
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
  return taken.empty() ? std::uint16_t{0} : load<std::uint16_t>(taken.data());
}

std::uint32_t Reader::u32() {
  const OctetSpan taken = take(4);
  return taken.empty() ? 0 : load<std::uint32_t>(taken.data());
}

std::uint64_t Reader::u64() {
  const OctetSpan taken = take(8);
  return taken.empty() ? 0 : load<std::uint64_t>(taken.data());
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
  std::array<std::uint8_t, kHeaderSize> header{};
  store(header.data(), kMagic);
  store(header.data() + kVersionOffset, kVersion);
  store(header.data() + kTypeOffset, type);
  store(header.data() + kRequestOffset, request);
  out->insert(out->end(), header.begin(), header.end());
  return frame;
}

void finish_frame(Octets* out, std::size_t frame) {
  const std::size_t payload = out->size() - frame - kHeaderSize;
  store(out->data() + frame + kLengthOffset, static_cast<std::uint32_t>(payload));
}

Status parse_frame(OctetSpan data, std::size_t max_payload, Message* message, std::size_t* used) {
  *used = kHeaderSize;
  if (data.size() < kHeaderSize) return kStatusIncomplete;
  const std::uint8_t* const header = data.data();
  if (load<std::uint32_t>(header) != kMagic) return kStatusBadMessage;
  if (load<std::uint16_t>(header + kVersionOffset) != kVersion) return kStatusVersionMismatch;
  message->type = load<std::uint16_t>(header + kTypeOffset);
  message->request = load<std::uint32_t>(header + kRequestOffset);
  const auto length = load<std::uint32_t>(header + kLengthOffset);
  if (length > max_payload) return kStatusMessageTooLarge;
  *used = kHeaderSize + length;
  if (data.size() < *used) return kStatusIncomplete;
  message->payload = data.subspan(kHeaderSize, length);
  return kStatusOk;
}

}  // namespace wire

// Writing of PDUs, straight into the output buffer. Fields that are known only at the end of a PDU (its
// length, an error) are patched, and half-written variables removed.
#include <algorithm>
#include <array>

#include "agent/agentx/pdu.h"

namespace agentx {
namespace {

constexpr std::size_t kPayloadLengthAt = 16;
constexpr std::size_t kCompressed = 5;  // sub-identifiers that the prefix octet replaces

void store16(std::uint8_t* to, std::uint16_t value) {
  to[0] = static_cast<std::uint8_t>(value >> 8U);
  to[1] = static_cast<std::uint8_t>(value);
}

void store32(std::uint8_t* to, std::uint32_t value) {
  to[0] = static_cast<std::uint8_t>(value >> 24U);
  to[1] = static_cast<std::uint8_t>(value >> 16U);
  to[2] = static_cast<std::uint8_t>(value >> 8U);
  to[3] = static_cast<std::uint8_t>(value);
}

// The prefix octet of a name; 0 (no prefix) when the name does not begin with 1.3.6.1.(1..255).
std::uint8_t prefix_of(oid::View name) {
  if (name.size() < kCompressed || !oid::starts_with(name, oid::kInternet) || name[4] > 255) return 0;
  return static_cast<std::uint8_t>(name[4]);
}

Header own_header(PduType type, std::uint32_t session, std::uint32_t packet) {
  Header header;
  header.type = type;
  header.session = session;
  header.packet = packet;
  return header;
}

void write_registration(Writer* writer, const Header& header, oid::View subtree) {
  constexpr std::uint8_t kDefaultPriority = 127;
  writer->begin(header);
  writer->number8(0);
  writer->number8(kDefaultPriority);
  writer->number16(0);  // no range, reserved
  writer->name(subtree);
  writer->end();
}

}  // namespace

std::uint8_t* Writer::grow(std::size_t count) {
  const std::size_t before = output_->size();
  output_->resize(before + count);
  return output_->data() + before;
}

void Writer::begin(const Header& header, std::size_t zeros) {
  begin_ = output_->size();
  std::uint8_t* const to = grow(kHeaderSize + zeros);
  to[0] = kVersion;
  to[1] = static_cast<std::uint8_t>(header.type);
  to[2] = static_cast<std::uint8_t>(header.flags | kFlagNetworkByteOrder);
  to[3] = 0;
  store32(to + 4, header.session);
  store32(to + 8, header.transaction);
  store32(to + 12, header.packet);
  store32(to + kPayloadLengthAt, 0);
}

void Writer::end() {
  const std::size_t payload = output_->size() - begin_ - kHeaderSize;
  store32(output_->data() + begin_ + kPayloadLengthAt, static_cast<std::uint32_t>(payload));
}

void Writer::number8(std::uint8_t value) {
  *grow(1) = value;
}

void Writer::number16(std::uint16_t value) {
  store16(grow(2), value);
}

void Writer::number32(std::uint32_t value) {
  store32(grow(4), value);
}

void Writer::name(oid::View first, oid::View second, bool include) {
  name_after(0, first, second, include);
}

// One name after so many zero octets, to which it returns a pointer: growing has a cost of its own.
std::uint8_t* Writer::name_after(std::size_t octets, oid::View first, oid::View second, bool include) {
  const std::uint8_t prefix = prefix_of(first);
  if (prefix != 0) first = first.subspan(kCompressed);
  const std::size_t count = first.size() + second.size();
  std::uint8_t* const begin = grow(octets + 4 + count * 4);
  std::uint8_t* to = begin + octets;
  to[0] = static_cast<std::uint8_t>(count);
  to[1] = prefix;
  to[2] = include ? 1 : 0;
  to[3] = 0;
  to += 4;
  for (const oid::View part : {first, second}) {
    for (const std::uint32_t number : part) {
      store32(to, number);
      to += 4;
    }
  }
  return begin;
}

void Writer::octets(Bytes value) {
  number32(static_cast<std::uint32_t>(value.size()));
  std::uint8_t* const to = grow((value.size() + 3) / 4 * 4);  // the padding is zero: resize() clears
  std::copy(value.begin(), value.end(), to);
}

void Writer::octets(std::string_view value) {
  octets({reinterpret_cast<const std::uint8_t*>(value.data()), value.size()});
}

void Writer::var_bind(ValueType type, oid::View first, oid::View second) {
  constexpr std::size_t kTypeAndReserved = 4;
  store16(name_after(kTypeAndReserved, first, second, false), static_cast<std::uint16_t>(type));
}

void Writer::patch16(std::size_t position, std::uint16_t value) {
  store16(output_->data() + position, value);
}

void write_open(Writer* writer, std::uint32_t packet, std::string_view description) {
  writer->begin(own_header(PduType::kOpen, 0, packet));
  writer->number32(0);  // timeout, reserved
  writer->name({});     // no identifier of the sub-agent
  writer->octets(description);
  writer->end();
}

void write_close(Writer* writer, std::uint32_t session, std::uint32_t packet) {
  writer->begin(own_header(PduType::kClose, session, packet));
  writer->number8(kReasonShutdown);
  writer->number8(0);
  writer->number16(0);
  writer->end();
}

void write_register(Writer* writer, std::uint32_t session, std::uint32_t packet, oid::View subtree) {
  write_registration(writer, own_header(PduType::kRegister, session, packet), subtree);
}

void write_unregister(Writer* writer, std::uint32_t session, std::uint32_t packet, oid::View subtree) {
  write_registration(writer, own_header(PduType::kUnregister, session, packet), subtree);
}

void write_ping(Writer* writer, std::uint32_t session, std::uint32_t packet) {
  writer->begin(own_header(PduType::kPing, session, packet));
  writer->end();
}

void begin_notify(Writer* writer, std::uint32_t session, std::uint32_t packet) {
  writer->begin(own_header(PduType::kNotify, session, packet));
}

void begin_response(Writer* writer, const Header& request, Error error, std::uint16_t index) {
  Header header = request;
  header.type = PduType::kResponse;
  header.flags = kFlagNetworkByteOrder;
  constexpr std::size_t kUpTime = 4;  // 0: a master ignores a sub-agent's
  const std::size_t error_at = writer->position() + kHeaderSize + kUpTime;
  writer->begin(header, kUpTime + sizeof(error) + sizeof(index));
  writer->patch16(error_at, static_cast<std::uint16_t>(error));
  writer->patch16(error_at + sizeof(error), index);
}

}  // namespace agentx

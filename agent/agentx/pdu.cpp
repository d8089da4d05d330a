// Reading of PDUs. Every octet is received from a socket: a length is compared with the octets that are left
// before anything is read, and a name longer than SNMP allows is refused rather than truncated. Reserved
// octets are ignored (RFC 2741 section 6.1 leaves them to later versions).
#include "agent/agentx/pdu.h"

#include <array>
#include <bit>
#include <cstring>

namespace agentx {
namespace {

bool is_native(bool network_order) {
  return network_order == (std::endian::native == std::endian::big);
}

// REQUIRES: sizeof(Number) octets, 2 or 4.
template <typename Number>
Number assemble(Bytes octets, bool network_order) {
  Number value = 0;
  std::memcpy(&value, octets.data(), sizeof value);
  if (is_native(network_order)) return value;
  if constexpr (sizeof value == sizeof(std::uint16_t)) {
    return __builtin_bswap16(value);
  } else {
    return __builtin_bswap32(value);
  }
}

struct ErrorName {
  std::uint16_t error;
  const char* name;
};

constexpr ErrorName kErrorNames[] = {
    {0, "noAgentXError"},         {5, "genErr"},
    {14, "commitFailed"},         {17, "notWritable"},
    {256, "openFailed"},          {257, "notOpen"},
    {258, "indexWrongType"},      {259, "indexAlreadyAllocated"},
    {260, "indexNoneAvailable"},  {261, "indexNotAllocated"},
    {262, "unsupportedContext"},  {263, "duplicateRegistration"},
    {264, "unknownRegistration"}, {265, "unknownAgentCaps"},
    {266, "parseError"},          {267, "requestDenied"},
    {268, "processingError"},
};

constexpr std::size_t padded(std::size_t length) {
  return (length + 3) / 4 * 4;
}

}  // namespace

std::string error_text(std::uint16_t error) {
  for (const ErrorName& entry : kErrorNames) {
    if (entry.error == error) return entry.name;
  }
  return "error " + std::to_string(error);
}

HeaderState read_header(Bytes input, Header* header) {
  if (input.size() < kHeaderSize) return HeaderState::kIncomplete;
  const bool network_order = (input[2] & kFlagNetworkByteOrder) != 0;
  const auto number_at = [&](std::size_t position) {
    return assemble<std::uint32_t>(input.subspan(position, 4), network_order);
  };
  header->type = static_cast<PduType>(input[1]);
  header->flags = input[2];
  header->session = number_at(4);
  header->transaction = number_at(8);
  header->packet = number_at(12);
  header->payload = number_at(16);
  const bool good = input[0] == kVersion && header->payload % 4 == 0 && header->payload <= kMaxPayload;
  return good ? HeaderState::kGood : HeaderState::kBroken;
}

bool Reader::take(std::size_t count, Bytes* taken) {
  if (count > rest_.size()) {
    rest_ = {};
    return false;
  }
  *taken = rest_.first(count);
  rest_ = rest_.subspan(count);
  return true;
}

bool Reader::number16(std::uint16_t* value) {
  Bytes octets;
  if (!take(2, &octets)) return false;
  *value = assemble<std::uint16_t>(octets, network_order_);
  return true;
}

bool Reader::number32(std::uint32_t* value) {
  Bytes octets;
  if (!take(4, &octets)) return false;
  *value = assemble<std::uint32_t>(octets, network_order_);
  return true;
}

bool Reader::name(oid::Oid* value, bool* include) {
  Bytes head;
  if (!take(4, &head)) return false;
  const std::size_t count = head[0];
  const std::uint32_t prefix = head[1];
  if (include != nullptr) *include = head[2] != 0;
  value->clear();
  // A prefix octet other than 0 means 1.3.6.1.PREFIX (section 5.1).
  if (prefix != 0 && !(value->append(oid::kInternet) && value->append(prefix))) return false;
  Bytes numbers;
  if (count > oid::kMaxSubIdentifiers - value->size() || !take(count * 4, &numbers)) {
    rest_ = {};
    return false;
  }
  // The most frequent work of a sub-agent: without a call for each number.
  const std::span<std::uint32_t> added = value->grow(count);
  if (count > 0) std::memcpy(added.data(), numbers.data(), numbers.size());
  if (!is_native(network_order_)) {
    for (std::uint32_t& number : added) number = __builtin_bswap32(number);
  }
  return true;
}

bool Reader::octets(Bytes* value) {
  std::uint32_t length = 0;
  if (!number32(&length)) return false;
  Bytes whole;
  if (!take(padded(length), &whole)) return false;
  *value = whole.first(length);
  return true;
}

bool Reader::search_range(SearchRange* range) {
  return name(&range->start, &range->include) && name(&range->end, nullptr);
}

bool Reader::skip_name() {
  Bytes head;
  Bytes numbers;
  return take(4, &head) && take(std::size_t{head[0]} * 4, &numbers);
}

bool Reader::search_start(oid::Oid* start) {
  return name(start, nullptr) && skip_name();
}

bool Reader::skip_search_range() {
  return skip_name() && skip_name();
}

bool Reader::response(Response* value) {
  return number32(&value->uptime) && number16(&value->error) && number16(&value->index);
}

bool Reader::var_bind(oid::Oid* bound, Value* value) {
  std::uint16_t type = 0;
  std::uint16_t reserved = 0;
  if (!number16(&type) || !number16(&reserved) || !name(bound, nullptr)) return false;
  value->type = static_cast<ValueType>(type);
  switch (value->type) {
    case ValueType::kInteger:
    case ValueType::kCounter32:
    case ValueType::kGauge32:
    case ValueType::kTimeTicks:
      return number32(&value->number);
    case ValueType::kOctetString:
      return octets(&value->octets);
    case ValueType::kObjectIdentifier:
      return name(&value->name, nullptr);
    case ValueType::kNull:
    case ValueType::kNoSuchObject:
    case ValueType::kNoSuchInstance:
    case ValueType::kEndOfMibView:
      return true;
  }
  rest_ = {};
  return false;
}

}  // namespace agentx

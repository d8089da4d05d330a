// The AgentX codec by itself, in both directions and byte orders.
//
// The first octet chooses the byte order and what the rest is. What can be read is written and read again,
// and must be the same.
#include <algorithm>
#include <vector>

#include "agent/agentx/pdu.h"
#include "fuzz/support.h"

namespace {

using agentx::Value;
using agentx::ValueType;
using fuzz::require;

bool same(const oid::Oid& left, const oid::Oid& right) {
  return std::ranges::equal(left.view(), right.view());
}

// A name in two parts is the name, and its text has all its numbers.
void check_name(const oid::Oid& name) {
  const oid::View whole = name.view();
  const oid::View head = whole.first(whole.size() / 2);
  require(oid::compare(head, whole.subspan(head.size()), whole) == 0);
  require(oid::starts_with(whole, head));
  const std::string text = oid::to_text(whole);
  const auto dots = static_cast<std::size_t>(std::ranges::count(text, '.'));
  require(whole.empty() ? text.empty() : dots + 1 == whole.size());
}

void write_value(const Value& value, agentx::Writer* writer) {
  switch (value.type) {
    case ValueType::kOctetString:
      return writer->octets(value.octets);
    case ValueType::kObjectIdentifier:
      return writer->name(value.name.view());
    case ValueType::kNull:
    case ValueType::kNoSuchObject:
    case ValueType::kNoSuchInstance:
    case ValueType::kEndOfMibView:
      return;
    default:
      return writer->number32(value.number);
  }
}

void check_binding(const oid::Oid& name, const Value& value) {
  std::vector<std::uint8_t> output;
  agentx::Writer writer(&output);
  writer.var_bind(value.type, name.view());
  write_value(value, &writer);
  agentx::Reader reader(output, true);
  oid::Oid name_again;
  Value again;
  require(reader.var_bind(&name_again, &again) && reader.at_end());
  require(same(name, name_again) && again.type == value.type && again.number == value.number);
  require(std::ranges::equal(again.octets, value.octets));
  if (value.type == ValueType::kObjectIdentifier) require(same(again.name, value.name));
}

void read_bindings(agentx::Reader reader) {
  oid::Oid name;
  for (Value value; !reader.at_end() && reader.var_bind(&name, &value); value = {}) {
    check_name(name);
    check_binding(name, value);
  }
}

void read_ranges(agentx::Reader reader) {
  for (agentx::SearchRange range; !reader.at_end() && reader.search_range(&range); range = {}) {
    std::vector<std::uint8_t> output;
    agentx::Writer writer(&output);
    writer.name(range.start.view(), {}, range.include);
    writer.name(range.end.view());
    agentx::Reader again(output, true);
    agentx::SearchRange copy;
    require(again.search_range(&copy) && again.at_end());
    require(same(copy.start, range.start) && same(copy.end, range.end) && copy.include == range.include);
  }
}

// After a failure every later read fails.
void read_mixture(agentx::Reader reader, fuzz::Input choices) {
  bool failed = false;
  while (!choices.empty() && !reader.at_end()) {
    oid::Oid name;
    agentx::Bytes octets;
    std::uint16_t half = 0;
    std::uint32_t number = 0;
    agentx::Response response;
    bool include = false;
    const std::uint8_t choice = fuzz::take_octet(&choices) % 5;
    const bool done = choice == 0   ? reader.name(&name, &include)
                      : choice == 1 ? reader.octets(&octets)
                      : choice == 2 ? reader.number16(&half)
                      : choice == 3 ? reader.number32(&number)
                                    : reader.response(&response);
    require(!(failed && done));
    failed = !done;
  }
}

void read_headers(agentx::Bytes input) {
  agentx::Header header;
  const agentx::HeaderState state = agentx::read_header(input, &header);
  require((state == agentx::HeaderState::kIncomplete) == (input.size() < agentx::kHeaderSize));
  if (state != agentx::HeaderState::kGood) return;
  require(header.payload % 4 == 0 && header.payload <= agentx::kMaxPayload);
  std::vector<std::uint8_t> output;
  agentx::Writer writer(&output);
  writer.begin(header);
  writer.end();
  agentx::Header again;
  require(agentx::read_header(output, &again) == agentx::HeaderState::kGood);
  require(again.type == header.type && again.session == header.session && again.packet == header.packet);
  require(again.transaction == header.transaction && again.payload == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t choice = fuzz::take_octet(&input);
  // A copy of exactly its size, so that a sanitizer finds reads beyond its end.
  const std::vector<std::uint8_t> payload(input.begin(), input.end());
  const agentx::Reader reader(payload, (choice & 1U) != 0);
  switch (choice / 2 % 4) {
    case 0:
      read_bindings(reader);
      break;
    case 1:
      read_ranges(reader);
      break;
    case 2:
      read_mixture(reader, payload);
      break;
    default:
      read_headers(payload);
      break;
  }
  return 0;
}

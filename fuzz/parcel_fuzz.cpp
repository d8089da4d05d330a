// Octets into everything that reads records: decoding by a compiled-in description, the type name, printing
// by a schema, and schema texts themselves. The first octet chooses; input that decodes must encode to the
// same octets again.
//
// Inputs get the right start (type name, versions, hash), which no fuzzer would guess.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/core/parcel/json.h"
#include "platform/core/parcel/parcel.h"
#include "platform/core/parcel/schema.h"
#include "platform/core/parcel/test_records.h"

namespace {

using test_records::Octets;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

// The start of every encoded record of the description: a cleared record without its fields.
template <typename Record>
Octets beginning(const ParcelDescription& description) {
  constexpr std::size_t kTypeNameAt = 5;
  constexpr std::size_t kVersionsAndHash = 12;
  const Record record{};
  Octets octets = test_records::encode(description, &record);
  if (octets.empty()) fail("a cleared record does not encode");
  octets.resize(kTypeNameAt + std::strlen(description.type_name) + kVersionsAndHash);
  return octets;
}

template <typename Record>
void decode(const ParcelDescription& description, const std::uint8_t* data, std::size_t size) {
  static const Octets prefix = beginning<Record>(description);
  Octets octets = prefix;
  octets.insert(octets.end(), data, data + size);
  Record record;
  if (parcel_decode(&description, octets.data(), octets.size(), &record) != kStatusOk) return;
  if (octets != test_records::encode(description, &record)) fail("a decoded record encodes differently");
  if (parcel_free_indirections(&description, &record) != kStatusOk)
    fail("a decoded record cannot be released");
}

void print(const std::uint8_t* data, std::size_t size) {
  std::string json;
  const parcel_detail::Cursor in(data, size);
  const char* schema = test_records::kEverything.annotated_schema;
  if (parcel_detail::print_record(schema, in, &json) == kStatusOk && json.front() != '{') fail("no object");
}

void parse(const std::uint8_t* data, std::size_t size) {
  parcel_detail::Schema schema;
  const std::string text(data, data + size);
  if (parcel_detail::parse_schema(text, &schema) == kStatusOk && schema.structures.empty())
    fail("empty schema");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint8_t* rest = data + 1;
  --size;
  switch (data[0] % 4) {
    case 0:
      decode<test_records::Everything>(test_records::kEverything, rest, size);
      break;
    case 1:
      decode<test_records::Row>(test_records::kRow, rest, size);
      break;
    case 2:
      print(rest, size);
      break;
    default:
      parse(rest, size);
      break;
  }
  // The type of any octets may be requested.
  return parcel_type_name(rest, size).size() > size ? 1 : 0;
}

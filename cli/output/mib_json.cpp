#include "cli/output/mib_json.h"

#include "cli/output/address.h"

namespace cli {

namespace {

Json value_json(mib::Type type, const mib::Value& value) {
  switch (type) {
    case mib::Type::kTruth:
      return value.number != 0;
    case mib::Type::kInteger:
      return static_cast<std::int32_t>(value.number);
    case mib::Type::kUnsigned:
    case mib::Type::kGauge:
    case mib::Type::kCounter:
    case mib::Type::kTimeStamp:
      return value.number;
    case mib::Type::kText:
      return std::string(value.octets.begin(), value.octets.end());
    case mib::Type::kBits:
      return value.octets.front();
    case mib::Type::kAddress:
      return address_text(value.octets);
    case mib::Type::kMplsIndex:
      return mpls_index_text(value.octets);
    case mib::Type::kOctets:
      break;
  }
  return hexadecimal(value.octets);
}

}  // namespace

void add_value(const char* key, const mib::Syntax& syntax, const mib::Value& value, Json* json) {
  (*json)[key] = value_json(syntax.type, value);
  if (syntax.names.empty()) return;
  const std::string base = key;
  if (syntax.type == mib::Type::kBits) {
    (*json)[base + "Names"] = bit_names(syntax, value.octets.front());
  } else {
    (*json)[base + "Name"] = name_of(syntax, static_cast<std::int32_t>(value.number));
  }
}

}  // namespace cli

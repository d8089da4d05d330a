// See names.h.
#include "cli/names.h"

#include <array>
#include <span>

namespace cli {

namespace {

constexpr std::array kProtocols = {"none", "bgp", "ospf", "rip", "isis", "static", "other", "bit7"};
constexpr std::array kClassifications = {"carrierOfCarrier", "enterprise", "interProvider"};
constexpr std::array kStorageTypes = {"other", "volatile", "nonVolatile", "permanent", "readOnly"};
constexpr std::array kRowStatuses = {"active",      "notInService",  "notReady",
                                     "createAndGo", "createAndWait", "destroy"};
constexpr std::array kSwitch = {"disabled", "enabled"};

// The name of `value` in a list that starts with the name of `first`.
std::string name_of(std::span<const char* const> names, std::int32_t first, std::int32_t value) {
  const std::int64_t position = std::int64_t{value} - first;
  if (position < 0 || position >= static_cast<std::int64_t>(names.size())) return std::to_string(value);
  return names[static_cast<std::size_t>(position)];
}

}  // namespace

std::vector<std::string> protocol_names(std::uint8_t bits) {
  std::vector<std::string> names;
  for (std::size_t bit = 0; bit < kProtocols.size(); ++bit) {
    if ((bits & (0x80U >> bit)) != 0) names.emplace_back(kProtocols[bit]);
  }
  return names;
}

std::string classification_name(std::int32_t value) {
  return name_of(kClassifications, 1, value);
}
std::string storage_type_name(std::int32_t value) {
  return name_of(kStorageTypes, 1, value);
}
std::string row_status_name(std::int32_t value) {
  return name_of(kRowStatuses, 1, value);
}
std::string notification_switch_name(std::int32_t value) {
  return name_of(kSwitch, 0, value);
}

}  // namespace cli

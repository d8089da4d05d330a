#include "cli/output/names.h"

#include <array>

#include "platform/core/address/address.h"

namespace cli {

namespace {

constexpr std::array kAfis = {"ipv4", "ipv6"};
constexpr std::array kSafis = {"unicast", "multicast"};

// The name of `value` in a list that starts with the name of `first`.
std::string name_in(std::span<const char* const> names, std::int64_t first, std::int64_t value) {
  const std::int64_t position = value - first;
  if (position < 0 || position >= static_cast<std::int64_t>(names.size())) return std::to_string(value);
  return names[static_cast<std::size_t>(position)];
}

}  // namespace

std::string name_of(const mib::Syntax& syntax, std::int32_t value) {
  return name_in(syntax.names, syntax.first, value);
}

std::vector<std::string> bit_names(const mib::Syntax& syntax, std::uint8_t bits) {
  std::vector<std::string> names;
  for (std::size_t bit = 0; bit < syntax.names.size(); ++bit) {
    if ((bits & (0x80U >> bit)) != 0) names.emplace_back(syntax.names[bit]);
  }
  return names;
}

std::string afi_name(std::uint32_t value) {
  return value == inet::kL2VpnAfi ? "l2vpn" : name_in(kAfis, 1, value);
}
std::string safi_name(std::uint32_t value) {
  if (value == inet::kEvpnSafi) return "evpn";
  return value == inet::kFlowSafi ? "flow" : name_in(kSafis, 1, value);
}

}  // namespace cli

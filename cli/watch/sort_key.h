// The key of a row as octets whose order is that of the daemon's rows: that of the MIB's indexes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace cli {

class SortKey {
 public:
  // Shorter names are first.
  SortKey& name(std::string_view name) {
    number(static_cast<std::uint32_t>(name.size()));
    octets_.append(name);
    return *this;
  }
  SortKey& number(std::uint32_t number) {
    for (const int shift : {24, 16, 8, 0}) octets_.push_back(static_cast<char>(number >> shift));
    return *this;
  }
  SortKey& address(std::span<const std::uint8_t> octets) {
    octets_.append(octets.begin(), octets.end());
    return *this;
  }
  std::string take() { return std::move(octets_); }

 private:
  std::string octets_;
};

}  // namespace cli

// Unsigned integers in little-endian octets, each with a single load or store: compilers do not make one of a
// loop of shifts.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>

template <std::unsigned_integral Integer>
void store_little_endian(void* to, Integer value) {
  auto octets = std::bit_cast<std::array<std::uint8_t, sizeof(Integer)>>(value);
  if constexpr (std::endian::native == std::endian::big) std::ranges::reverse(octets);
  std::memcpy(to, octets.data(), octets.size());
}

template <std::unsigned_integral Integer>
Integer load_little_endian(const void* from) {
  std::array<std::uint8_t, sizeof(Integer)> octets;
  std::memcpy(octets.data(), from, octets.size());
  if constexpr (std::endian::native == std::endian::big) std::ranges::reverse(octets);
  return std::bit_cast<Integer>(octets);
}

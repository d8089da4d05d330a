// For fuzz targets: checks, parts of the input, and files that contain it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>

namespace fuzz {

inline void require(bool condition) {
  if (!condition) std::abort();
}

using Input = std::span<const std::uint8_t>;

inline std::string text_of(Input input) {
  return {input.begin(), input.end()};
}

// Takes the first octet; 0 at the end.
inline std::uint8_t take_octet(Input* input) {
  if (input->empty()) return 0;
  const std::uint8_t octet = input->front();
  *input = input->subspan(1);
  return octet;
}

inline std::uint32_t take_number(Input* input, int octets) {
  std::uint32_t number = 0;
  for (int i = 0; i < octets; ++i) number = number << 8U | take_octet(input);
  return number;
}

// The number in four octets, most significant first; 0 past the end.
inline std::uint32_t number_at(std::string_view octets, std::size_t place) {
  if (octets.size() < place + 4) return 0;
  std::uint32_t number = 0;
  for (const char octet : octets.substr(place, 4)) number = number << 8U | static_cast<std::uint8_t>(octet);
  return number;
}

// A sound file with damage at some places: the input is a list of a place in three octets, the number of
// octets that change and their new values. Most such files pass the checks of the whole file.
inline std::string damaged(std::string octets, Input input) {
  while (input.size() > 4) {
    const std::size_t place = take_number(&input, 3);
    for (std::size_t count = take_octet(&input) % 16U + 1, i = 0; i < count && !input.empty(); ++i) {
      const auto octet = static_cast<char>(take_octet(&input));
      if (!octets.empty()) octets[(place + i) % octets.size()] = octet;
    }
  }
  return octets;
}

inline void write_file(const std::string& path, std::string_view octets) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(octets.data(), static_cast<std::streamsize>(octets.size()));
  file.close();
  require(file.good());
}

inline std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace fuzz

// Texts on one line, because managers truncate or refuse more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tables {

// Control characters of the text that begins at `at` become blanks; the text is truncated to `most` octets,
// between characters of UTF-8.
void make_one_line(std::vector<std::uint8_t>* octets, std::size_t at, std::size_t most);

}  // namespace tables

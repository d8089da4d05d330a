// Texts in the columns of a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

// One for each character of a printable text, which is UTF-8.
std::size_t columns_of(std::string_view text);

// Breaks lines that are longer than `width` at their blanks. The rest of a line begins below its second
// column, which follows two blanks or more, or else below its first word; with an `indent` there, if the
// width has room for it. Nothing is broken for a width of 0. The last line ends like the others.
std::string wrapped(const std::string& text, std::size_t width, std::size_t indent = 0);

}  // namespace cli

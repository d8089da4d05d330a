// Characters of texts from outside: which are well-formed UTF-8 (RFC 3629), and which may be printed.
// Stateless; any thread.
#pragma once

#include <cstddef>
#include <string_view>

// The number of octets of the well-formed character at the beginning of the text, 1 to 4; 0 for an empty text
// and for octets that begin no character.
std::size_t utf8_length(std::string_view text);
// The same, but 0 for control characters as well, C0, DEL and C1: no octet of the text that could steer a
// terminal is part of a printable character.
std::size_t utf8_printable_length(std::string_view text);

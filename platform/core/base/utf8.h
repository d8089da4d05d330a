// Characters of texts that come from outside: what is well-formed UTF-8 (RFC 3629), and what may be shown.
// Stateless; any thread.
#pragma once

#include <cstddef>
#include <string_view>

// Octets of the well-formed character that the text begins with, 1 to 4; 0 for an empty text and for octets
// that begin none.
std::size_t utf8_length(std::string_view text);
// The same, but 0 for control characters as well, C0, DEL and C1: no octet of the text that could steer a
// terminal is part of a printable character.
std::size_t utf8_printable_length(std::string_view text);

// Values of several numbers: a tuple is unpacked by a format that names its numbers, "%d" each. A number has
// 32 bits, signed or not. Stateless; any thread.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "platform/store/tree/kvtree.h"

// Extracts the tuple's numbers into places. kStatusInvalid, with no place written, for a null value, a value
// that is not a tuple, lengths of format, places and tuple that differ, or a number of more than 32 bits.
// Fault point "tuple_unpack".
[[nodiscard]] Status tuple_unpack(const KvValue* value, const char* format,
                                  std::initializer_list<std::uint32_t*> places);

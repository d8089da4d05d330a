// Values of several numbers: a tuple is packed and unpacked by a format that names its numbers, "%d" each.
//
// A number has 32 bits, signed or not: what is packed from -2147483648 to 4294967295 is unpacked as those 32
// bits. Stateless; any thread.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "platform/store/tree/kvtree.h"

// Sets *value to a tuple of these numbers. kStatusInvalid, with nothing changed, for a null value, a format
// that is not of "%d" alone or has another count than the numbers, and a number of more than 32 bits. Fault
// point "tuple_pack".
[[nodiscard]] Status tuple_pack(KvValue* value, const char* format,
                                std::initializer_list<std::int64_t> numbers);
// Extracts the tuple's numbers into places. kStatusInvalid, with no place written, for a null value, a value
// that is not a tuple, lengths of format, places and tuple that differ, or a number of more than 32 bits.
// Fault point "tuple_unpack".
[[nodiscard]] Status tuple_unpack(const KvValue* value, const char* format,
                                  std::initializer_list<std::uint32_t*> places);

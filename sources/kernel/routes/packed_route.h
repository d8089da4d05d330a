// What a route has besides its prefix and table, in a few octets: a table may have a million contents.
//
// Pure functions. Equal contents have equal octets.
#pragma once

#include <string>
#include <string_view>

#include "sources/kernel/route_state/route_message.h"

namespace kernel {

// The destination, the prefix length and the table are left out.
std::string pack(const KernelRoute& route);
// REQUIRES: octets of pack().
KernelRoute unpack(std::string_view octets);
std::uint32_t preferred_source_of(std::string_view octets);

}  // namespace kernel

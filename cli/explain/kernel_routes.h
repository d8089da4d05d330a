// Routes of the kernel in words.
#pragma once

#include <string>

#include "cli/explain/evidence.h"

namespace cli::explain {

// "rejects packets (unreachable)"; null for a type that forwards or delivers them.
const char* discarding(std::uint8_t type);
// "via 10.12.0.2 dev core with label 1002/17", for each path.
std::string route_text(Evidence& evidence, const kernel::KernelRoute& route);
bool is_dead(const kernel::KernelRoute& route);
// The MIB has no rows for it, although the kernel has it: an address of this router, or a link-local prefix.
bool is_without_row(const kernel::KernelRoute& route);

}  // namespace cli::explain

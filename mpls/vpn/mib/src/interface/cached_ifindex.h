// The interface index by name, from a list of all indexes. Main thread, outside the database mutex.
#pragma once

#include <cstdint>

// The interface's ifIndex, or 0. The first success fetches the list of all indexes, once in the life of the
// process; later calls read the list until one finds no entry.
std::uint32_t mpls_vpn_cached_ifname_to_index(const char* if_name);
// Discards that list and allows another fetch. For tests that start the daemon again.
void mpls_vpn_cached_ifindex_end();

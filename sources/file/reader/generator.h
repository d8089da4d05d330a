// Generates large routers for tests of scale.
//
// VRF number v (from 1) is "customer-0000v" with id and table first_id + v - 1 and RD 65000:v; its interface
// number i is "custV.i" with index first_index + n, 10.0.0.0/8 cut into /30s and 2001:db8::/32 cut into /64s,
// both by the running number n of the interface over all VRFs. All interfaces are up.
#pragma once

#include <cstdint>

#include "sources/file/reader/router_file.h"

namespace router_file {

struct Generator {
  std::uint32_t vrfs = 0;
  std::uint32_t interfaces_per_vrf = 0;
  std::uint32_t first_id = 100'001;
  std::uint32_t first_index = 100'001;
};

// Appends to the lists. REQUIRES: the bounds of router_file.h hold, and ids and indexes do not pass their
// maximum.
void generate(const Generator& generator, RouterFile* file);

}  // namespace router_file

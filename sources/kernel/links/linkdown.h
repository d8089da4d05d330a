// The kernel's setting ignore_routes_with_linkdown: paths over a link without a carrier are not used. The
// kernel does not announce its changes.
#pragma once

#include <cstdint>

namespace kernel {

// True if it is set for all links, of either family.
bool all_links_ignore_linkdown();
// ... for this one, whatever is set for all. Takes 20 microseconds. False if the link no longer exists.
bool ignores_linkdown(std::uint32_t link);

}  // namespace kernel

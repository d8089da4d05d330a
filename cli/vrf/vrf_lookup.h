// Records of a single VRF, and whether it passes a filter.
#pragma once

#include <optional>
#include <string>

#include "cli/commands.h"
#include "cli/show/tables.h"

namespace cli {

bool has_filter(const VrfRequest& request);
// "ipv6 multicast", "ipv4", "multicast".
std::string filter_text(const VrfRequest& request);

// Whether the VRF has a routing table of the requested families.
bool passes_filter(const Session& session, kvtree::Client& client, const std::string& name,
                   const VrfRequest& request);

// The MIB row; none for an unknown VRF.
std::optional<kvtree::Octets> find_vrf_row(const Session& session, kvtree::Client& client,
                                           const std::string& name);
// The show record; none for an unknown VRF or one that does not pass the filter.
std::optional<kvtree::Octets> find_show_record(const Session& session, kvtree::Client& client,
                                               const std::string& name, const VrfRequest& request);

// For a VRF that exists and does not pass.
Failure not_in_family(const VrfRequest& request);

}  // namespace cli

// Single VRFs: whether one passes a filter, and its records.
#pragma once

#include <optional>
#include <string>

#include "cli/commands.h"
#include "cli/show/tables.h"

namespace cli {

bool has_filter(const VrfRequest& request);
// "ipv6 multicast", "ipv4", "multicast".
std::string filter_text(const VrfRequest& request);

// Whether the VRF has a routing table of the families that the request asks for.
bool passes_filter(const Session& session, kvtree::Client& client, const std::string& name,
                   const VrfRequest& request);

// Its MIB row; none when there is no such VRF.
std::optional<kvtree::Octets> find_vrf_row(const Session& session, kvtree::Client& client,
                                           const std::string& name);
// Its show record; none when there is no such VRF, or when it does not pass the filter.
std::optional<kvtree::Octets> find_show_record(const Session& session, kvtree::Client& client,
                                               const std::string& name, const VrfRequest& request);

// The Failure for a VRF that is there and does not pass.
Failure not_in_family(const VrfRequest& request);

}  // namespace cli

// What the router knows of its interfaces besides the rows of the MIB, those in no VRF included.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "cli/output/record.h"
#include "platform/router/interface_states/records.h"

namespace cli {

using InterfaceSink = std::function<void(const interface_states::InterfaceState&)>;

// All interfaces; none from a daemon of an earlier version, which does not state them. Throws Failure.
void walk_interface_states(const Session& session, kvtree::Client& client, const InterfaceSink& sink);

// The interface with this ifIndex; false when there is none.
bool read_interface_state(const Session& session, kvtree::Client& client, std::uint32_t index,
                          const InterfaceSink& sink);

}  // namespace cli

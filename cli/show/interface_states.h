// What the router knows of its interfaces besides the rows of the MIB, those in no VRF included.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cli/output/record.h"
#include "platform/router/interface_states/records.h"

namespace cli {

using InterfaceSink = std::function<void(const interface_states::InterfaceState&)>;

// All interfaces; none from a daemon of an earlier version, which does not state them. Throws Failure.
void walk_interface_states(const Session& session, kvtree::Client& client, const InterfaceSink& sink);

// The interface with this ifIndex; false when there is none.
bool read_interface_state(const Session& session, kvtree::Client& client, std::uint32_t index,
                          const InterfaceSink& sink);
// The one of this name.
bool read_interface_state(const Session& session, kvtree::Client& client, const std::string& name,
                          const InterfaceSink& sink);

// True if the daemon knows no interface of this name.
bool is_missing_interface(kvtree::Client& client, const std::string& name);

// The names of interfaces that begin so, at most so many, in the order of their octets; none from a daemon of
// an earlier version. Throws Failure.
std::vector<std::string> names_of_interfaces(const Session& session, kvtree::Client& client,
                                             const std::string& beginning, std::uint32_t most);

}  // namespace cli

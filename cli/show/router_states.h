// State and addresses that the router has of each interface, which the MIB's row does not have. A daemon that
// does not state them is of an earlier version.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "cli/session.h"
#include "platform/router/interface_states/records.h"

namespace cli {

struct RouterState {
  bool is_up = false;
  std::string addresses;  // separated by blanks
  std::string description;

  const char* text() const { return is_up ? "up" : "down"; }
};

// The states by ifIndex: of all interfaces in one walk, or of those of one VRF, each when it is needed.
// Throws Failure.
class RouterStates {
 public:
  // Session and client must outlive it.
  RouterStates(const Session& session, kvtree::Client& client, bool all);

  // Null for one that the daemon does not know (any more).
  const RouterState* find(std::int32_t index);
  const RouterState* find(const std::string& name);

 private:
  void add(const interface_states::InterfaceState& state);

  const Session& session_;
  kvtree::Client& client_;
  const bool is_complete_;
  std::map<std::uint32_t, RouterState> states_;
  std::map<std::string, std::uint32_t> indexes_;  // by name
};

}  // namespace cli

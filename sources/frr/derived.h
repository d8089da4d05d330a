// RDs and route targets that the routing suite derives itself: they are effective, and its running
// configuration does not have them.
//
// The suite derives them from router IDs, for VRFs that another one imports by name ("import vrf red") and
// for VRFs with a VNI in EVPN, as far as none are configured. It changes them without a command when a router
// ID changes. From 10 on it then exports routes with a derived RD also where its running configuration still
// has the configured one; its table of VPN routes shows which RD is effective.
//
// So a program that says that it derives something is asked further commands, and what these print, in JSON,
// is read here. Stateless; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/store/configuration/config.h"
#include "sources/frr/running_config.h"

namespace frr {

inline constexpr std::string_view kDerivingProgram = "bgpd";

// The commands that show what is derived under this configuration; none when nothing is. With `exports` they
// include those that print the VPN routes of a VRF, of which there can be too many for an answer.
std::vector<std::string> derived_commands(const RunningConfig& config, bool exports);

struct Derived {
  std::vector<KvConfigNode> nodes{};       // sorted by path, each path once; none that is configured as well
  std::vector<std::string> ineffective{};  // paths of configured nodes for which a derived one is effective
  std::vector<std::string> mistakes{};     // what could not be understood and is left out
};

// From what each of the commands printed; a text without JSON shows nothing, as 8.4 prints none of an RD that
// it does not know. None when JSON cannot be read: then nothing is known. `configured` are the nodes of the
// configuration, sorted by path.
std::optional<Derived> derive(const RunningConfig& config, bool exports,
                              const std::vector<std::string>& texts,
                              const std::vector<KvConfigNode>& configured);

}  // namespace frr

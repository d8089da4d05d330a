// RDs and route targets that the routing suite derives itself. They are effective, but not in its running
// configuration.
//
// The suite derives them from router IDs, for VRFs that another VRF imports by name ("import vrf red") and
// for VRFs with a VNI in EVPN, unless they are configured. It changes them without a command when a router ID
// changes. Version 10 then exports routes with a derived RD even where its running configuration still has
// the configured one; its table of VPN routes shows the effective RD.
//
// So when a program's configuration makes it derive items, further commands are sent, and this module reads
// their JSON output. Stateless; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/store/configuration/configuration.h"
#include "sources/frr/parser/running_config.h"

namespace frr {

inline constexpr std::string_view kDerivingProgram = "bgpd";

inline bool by_path(const KvConfigNode& left, const KvConfigNode& right) {
  return left.path < right.path;
}

// The commands that show what is derived under this configuration; none when nothing is. With `exports` they
// include those that print the VPN routes of a VRF, of which there can be too many for an answer.
std::vector<std::string> derived_commands(const RunningConfig& config, bool exports);

struct Derived {
  std::vector<KvConfigNode> nodes{};       // sorted by path, each path once; none that is configured as well
  std::vector<std::string> ineffective{};  // paths of configured nodes for which a derived one is effective
  std::vector<std::string> errors{};       // what was invalid and is left out
};

// Reads the output of each of the commands. Output without JSON has no items: 8.4 prints none for an RD that
// it does not know. None when JSON is invalid: then nothing is known. `configured` are the nodes of the
// configuration, sorted by path.
std::optional<Derived> derive(const RunningConfig& config, bool exports,
                              const std::vector<std::string>& texts,
                              const std::vector<KvConfigNode>& configured);

}  // namespace frr

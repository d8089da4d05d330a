// The commands of mplsvpn, one function each. They print to session.out and throw Failure (session.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/session.h"

namespace cli {

inline constexpr char kProviderPath[] = "/oper/mpls_vpn/gl/";

// The scalar group.
void show_scalars(const Session& session);
// Rows of the VRF interface table, of one VRF when the name is not empty. Read and printed in batches.
void show_interfaces(const Session& session, const std::string& vrf);
// One record of any type; a path that does not begin with '/' is below kProviderPath.
void get_record(const Session& session, const std::string& path);

struct DebugRequest {
  std::vector<std::string> words;  // none, "list", "watch", or AREA and "on" or "off"
  bool watch = false;              // after switching
  std::uint64_t most_prints = 0;   // ends the watching; 0: no bound
  double seconds = 0;              // ends the watching; 0: no bound
};
// Failure(kExitUsage) for words that make no request.
void debug(const Session& session, const DebugRequest& request);

struct TraceRequest {
  std::string buffer;    // empty: list the buffers
  std::size_t last = 0;  // only so many entries, the latest; 0: all
};
// Needs no daemon: the buffers are files.
void trace(const Session& session, const TraceRequest& request);

// The action "router" of a daemon whose router comes from a file.
void router(const Session& session, const std::vector<std::string>& words);

struct WatchRequest {
  std::uint64_t most_traps = 0;  // ends the watching; 0: no bound
  double seconds = 0;            // ends the watching; 0: no bound
};
// Prints the daemon's traps as they come. Failure(kExitFailed) when the time is over before most_traps have
// come.
void watch(const Session& session, const WatchRequest& request);

enum class ConfigVerb { kShow, kSet, kDelete };

struct ConfigRequest {
  ConfigVerb verb = ConfigVerb::kShow;
  std::string subject = "traps";
  std::string item;   // of a show: only this one when not empty
  std::string value;  // of a set
};
// Failure(kExitUsage) for an item that there is not, and for a value that it does not take.
void config(const Session& session, const ConfigRequest& request);

}  // namespace cli

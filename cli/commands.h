// The commands of mplsvpn, one function each. They print to session.out and throw Failure (session.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/session.h"

namespace cli {

// The scalar group.
void show_scalars(const Session& session);
// Rows of the VRF interface table, of one VRF when the name is not empty.
void show_interfaces(const Session& session, const std::string& vrf);

// The daemon's process: version, sources, SNMP front end, databases, long iterations of its event loop,
// clients.
void show_status(const Session& session);

struct TrapsRequest {
  std::uint64_t last = 20;  // only so many, the latest
};
// How many traps of each type were raised, and the latest of them.
void show_traps(const Session& session, const TrapsRequest& request);

struct VrfRequest {
  std::string name;         // empty: every VRF
  bool is_invalid = false;  // VRFs that do not exist, though interfaces are bound to them
  bool detail = false;
  std::uint32_t afi = 0;     // 1 ipv4, 2 ipv6; 0: both
  std::uint32_t safi = 0;    // 1 unicast, 2 multicast; 0: both
  bool structured = false;   // in the structured (XML) form
  bool may_be_word = false;  // the name may be one of vrf_words() that is abbreviated or misspelled
  bool brief = false;        // fewer columns
  std::string state;         // only VRFs of this operational state; empty: any
  std::string protocol;      // only VRFs with an interface of this routing protocol; empty: any
  std::string sort;          // one of vrf_orders(); empty: the daemon's order
};
// What may follow the name in "show vrf".
std::vector<std::string> vrf_words();
// Those that the user may have meant by the name of the request, with "invalid".
std::vector<std::string> meant_vrf_words(const VrfRequest& request);
// The words after "show vrf", abbreviated unless they may be a name; `name` is a name that is one of
// these words. Failure(kExitUsage).
VrfRequest parse_vrf_words(const std::vector<std::string>& words, const std::string& name);
// VRFs as a table, or each with all its details.
void show_vrf(const Session& session, const VrfRequest& request);
// Rows of the VRF route target table, of one VRF when the name is not empty.
void show_route_targets(const Session& session, const std::string& vrf);

struct RoutesRequest {
  std::string vrf;
  std::string prefix;  // or an address; empty: all routes
};
// Rows of the VRF route table. Failure(kExitUsage) for a text that is not a prefix.
void show_routes(const Session& session, const RoutesRequest& request);

// Thresholds and low-water marks of VRFs and their watched prefixes, of one VRF when the name is not empty.
void show_thresholds(const Session& session, const std::string& vrf);

struct PathRequest {
  std::string path;  // below kMplsVpnPath unless it begins with '/'
  bool structured = false;
  std::uint32_t most = 1024;  // items of a list
};
// A record of any type, the keys of a list, or its keys and records, as the data store answers them.
void get_record(const Session& session, const PathRequest& request);
void get_list(const Session& session, const PathRequest& request);
void get_datalist(const Session& session, const PathRequest& request);

struct DebugRequest {
  std::vector<std::string> words;  // none, "list", "watch", or AREA and "on" or "off"
  bool watch = false;              // after switching
  std::uint64_t most_prints = 0;   // ends the watching; 0: no bound
  double seconds = 0;              // ends the watching; 0: no bound
};
// Failure(kExitUsage) for words that are not a request.
void debug(const Session& session, const DebugRequest& request);

struct TraceRequest {
  std::string buffer;      // empty: list the buffers
  std::uint64_t last = 0;  // only so many entries, the latest; 0: all
};
// Needs no daemon: the buffers are files.
void trace(const Session& session, const TraceRequest& request);

// The action "router" of a daemon whose source is a router file.
void router(const Session& session, const std::vector<std::string>& words);

struct WatchRequest {
  bool traps = true;
  bool changes = true;  // of effective route distinguishers and route targets
  std::string table;  // "vrf", "interfaces" or "routes": the changes of its rows instead; empty: none of them
  std::string vrf;    // only of this one; empty: of all
  std::string prefix;             // only routes inside this one; empty: all
  double interval = 1;            // s, between the readings of a table
  std::uint64_t most_events = 0;  // ends the watching; 0: no bound
  double seconds = 0;             // ends the watching; 0: no bound
};
// Prints the daemon's traps and the changes as they arrive, also those of a daemon that is started again.
// Failure(kExitUsage) for words that do not fit together.
// Failure(kExitFailed) when the time is over before most_events have arrived.
void watch(const Session& session, const WatchRequest& request);

// The configuration, in the words of vrf_config::parse_words. Wrong words are a Failure(kExitUsage) before
// any request to the daemon.
struct ConfigShowRequest {
  std::vector<std::string> words;  // the beginning of what is shown; none: everything
  bool owners = false;             // shows the owners
  std::string owner;               // not empty: what this owner sets, effective or not
};
// Lines for config_load; the trap switches as a table.
void config_show(const Session& session, const ConfigShowRequest& request);

// The words that may follow these, one a line.
void config_words(const Session& session, const std::vector<std::string>& words);

struct ConfigEditRequest {
  std::vector<std::string> words;  // of set and delete
  bool candidate = false;          // collects it for config_commit
  bool dry_run = false;            // shows what would change
  bool replace = false;            // of config_load: deletes what the lines do not set
  bool force = false;              // of config_commit: whatever was committed since
  std::string comment;             // of the commit; empty: the words, or what was loaded
  std::uint32_t confirmed = 0;     // seconds for confirming the commit; 0: it needs no confirmation
};
void config_set(const Session& session, const ConfigEditRequest& request);
// The items that the words configure, or else all that begin with them.
void config_delete(const Session& session, const ConfigEditRequest& request);
// The items of other owners that the words configure, or else all that begin with them, have no effect until
// the command line no longer suppresses them.
void config_suppress(const Session& session, const ConfigEditRequest& request);
void config_unsuppress(const Session& session, const ConfigEditRequest& request);
// Lines of edits as one commit.
void config_load(const Session& session, const std::string& file, const ConfigEditRequest& request);

// The candidate: committed and dropped, dropped, or compared with the effective configuration. It is not
// committed if a later commit of the command line changed one of its items to another value.
void config_commit(const Session& session, const ConfigEditRequest& request);
void config_discard(const Session& session);
void config_diff(const Session& session);

// Confirms the commit that waits for that.
// Without a commit's number: the one that waits, whichever it is.
void config_confirm(const Session& session, const std::string& id);

// The latest commits, or what one changed.
void config_history(const Session& session, const std::string& id, std::uint32_t most);
// One commit that undoes what every commit after `id` changed of the command line's.
void config_rollback(const Session& session, const std::string& id, const ConfigEditRequest& request);

}  // namespace cli

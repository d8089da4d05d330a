// What the process knows of its own state beyond its clients: for "mplsvpn show status" and for metrics.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/core/sqlite/quarantine.h"

namespace process_status {

// Something outside of this process that states what the router has: the kernel, the router file, a program
// of the routing suite.
struct SourceFact {
  std::string name;               // does not change: "kernel", "file", or the program's name, "bgpd"
  std::string version{};          // as it states it; may be empty
  bool is_up = false;             // its last answer was complete and valid
  std::uint64_t last_answer = 0;  // the last such one, seconds since 1970; 0: none to this process
  std::string problem{};          // why it is not up
};

// What the source of the router had to correct in one place.
struct CorrectionFact {
  std::string table;   // its number, or kNextHopObjects
  std::string family;  // "ipv4" or "ipv6" of a table
  std::uint64_t count = 0;
  bool operator==(const CorrectionFact&) const = default;
};
inline constexpr char kNextHopObjects[] = "nexthop";

// A database in the state directory, or a file of notifications there.
struct DatabaseFact {
  std::string name;  // "configuration", "checkpoint", "traps", "trapHistory"
  std::string path;
  std::string problem{};  // why it cannot be written; empty if it can
  sqlite::Quarantine quarantine{};
};

// The notifications that are retained for the SNMP front end.
struct TrapsFact {
  std::uint64_t waiting = 0;  // not acknowledged
  std::uint64_t capacity = 0;
  std::uint64_t lost = 0;        // of which the front end does not know yet
  std::uint64_t subscriber = 0;  // the client of the data store that receives them; 0: none
  std::uint64_t alone_for = 0;   // seconds without one
};

// Where metrics are served.
struct MetricsFact {
  std::string place{};    // "127.0.0.1:10166"; empty: they are off
  std::string problem{};  // why they are not served there; empty if they are
};

// As the process states them now; empty while it provides no status. Main thread.
std::vector<SourceFact> source_facts();

}  // namespace process_status

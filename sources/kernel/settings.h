// What the kernel source can be set to, and what it counts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct KernelSourceSettings {
  std::size_t receive_buffer = 4U << 20;  // octets; beyond net.core.rmem_max where the process may
  // Datagrams of events in one turn of the loop; of a dump, which has far larger ones, an eighth of that, and
  // of a dump of routes a sixteenth.
  unsigned batch = 64;
  std::size_t log = 100'000;              // events kept during a reading; more count as a loss
  std::uint64_t settle = 20'000'000;      // nanoseconds from a first event to the model's change
  std::uint64_t reread = 30'000'000'000;  // nanoseconds between readings of everything
  std::uint64_t retry = 100'000'000;      // nanoseconds between readings that losses or failures ask for
  std::string vrf_ids{};                  // the file that keeps the ids of VRFs; see vrf_ids.h
  std::uint64_t route_reread = 600'000'000'000;  // nanoseconds between readings of a routing table
};

struct KernelRouteCounters {
  std::uint64_t datagrams = 0;           // of events
  std::uint64_t losses = 0;              // times that the kernel had to drop events
  std::uint64_t tables_read = 0;         // readings of one table that came to their end
  std::uint64_t disturbed_readings = 0;  // those among them after which nothing was taken away
  std::uint64_t failures = 0;            // readings and receptions that failed
  std::uint64_t malformed = 0;           // messages that contradict their own format
  std::uint64_t refused = 0;             // rows that the store refused
  std::uint64_t unresolved = 0;          // routes that named a next-hop object which was not known
};

struct KernelSourceCounters {
  std::uint64_t datagrams = 0;        // of events
  std::uint64_t losses = 0;           // times that the kernel had to drop events
  std::uint64_t dumps = 0;            // readings of everything that came to their end
  std::uint64_t disturbed_dumps = 0;  // those among them during which something changed
  std::uint64_t failures = 0;         // readings and receptions that failed
  std::uint64_t malformed = 0;        // messages that contradict their own format
  std::uint64_t refused = 0;          // changes that the model refused
  KernelRouteCounters routes;
};

// Settings and counters of the kernel source.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct KernelSourceSettings {
  std::size_t receive_buffer = 4U << 20;  // octets; beyond net.core.rmem_max where the process may
  // Datagrams of events in one iteration of the loop. Of a dump, whose datagrams are much larger, an eighth
  // of that, of next-hop objects a sixteenth, of routes one.
  unsigned batch = 64;
  std::size_t log = 100'000;  // events stored during a dump; more count as a loss
  // Changes of links and next-hop objects, until tables have them; more count as a loss.
  std::size_t history = 500'000;
  std::size_t announced = 250'000;        // prefixes announced during a reading; more abandon it
  std::uint64_t settle = 20'000'000;      // nanoseconds from the first event to the change of the model
  std::uint64_t reread = 30'000'000'000;  // nanoseconds between complete dumps
  std::uint64_t retry = 100'000'000;      // nanoseconds between dumps after losses or failures
  // VRFs and interfaces that are visited in one iteration of the loop, unless reconcile::kStepTime passes.
  std::size_t reconcile_step = 1000;
  std::string vrf_ids{};                         // the file with the ids of VRFs; see vrf_ids.h
  std::uint64_t route_reread = 600'000'000'000;  // nanoseconds between readings of a routing table
};

struct KernelRouteCounters {
  std::uint64_t losses = 0;              // times that the kernel had to drop events
  std::uint64_t tables_read = 0;         // complete readings of one table
  std::uint64_t disturbed_readings = 0;  // those among them without removals
  std::uint64_t failures = 0;            // readings and receptions that failed
  std::uint64_t refused = 0;             // rows that the store refused
  std::uint64_t unresolved = 0;          // routes with an unknown next-hop object
  // Prefixes and next-hop objects of which a reading showed that the events had not given their state.
  std::uint64_t corrections = 0;
  std::uint64_t object_corrections = 0;  // ... of next-hop objects
  std::uint64_t malformed = 0;  // messages of routes and next-hop objects, and datagrams, that are malformed
};

struct KernelLinkCounters {
  std::uint64_t losses = 0;           // times that the kernel had to drop events
  std::uint64_t dumps = 0;            // complete dumps of links and addresses
  std::uint64_t disturbed_dumps = 0;  // those among them that changes interrupted
  std::uint64_t failures = 0;         // readings and receptions that failed
  std::uint64_t refused = 0;          // changes that the model refused
  std::uint64_t malformed = 0;        // messages of links and addresses, and datagrams, that are malformed
};

struct KernelSourceCounters : KernelLinkCounters {
  KernelRouteCounters routes;
};

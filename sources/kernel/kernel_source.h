// The live Linux kernel as the source of the router model: VRF devices, their interfaces, names, indexes,
// IPv4 and IPv6 addresses, operational states and descriptions (the alias), and the routes of the VRFs'
// tables, over rtnetlink.
//
// load() reads everything and puts it into the model; start() keeps it so from the event loop. What is lost
// to an overrun is found by reading everything again, which is also done at intervals, because the kernel
// does not tell of everything (the alias of a link that is down). Only differences reach the model. Routes
// are read from start() on, table by table, in bounded steps.
//
// Thread: the event manager's. The model must outlive the source, the source must go before the event
// manager. The network namespace is the one of the thread that calls load().
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/base/status.h"
#include "platform/evm/evm.h"
#include "platform/router/router.h"

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

class KernelSource {
 public:
  explicit KernelSource(router::Router* model, const KernelSourceSettings& settings = {});
  ~KernelSource();
  KernelSource(const KernelSource&) = delete;
  KernelSource& operator=(const KernelSource&) = delete;

  // Begins to listen, then reads all links and addresses and applies them as a difference; blocks for as long
  // as the kernel takes (not longer than 2 s without an answer). Failing, it leaves the model as it was and
  // says why in *error. kStatusTimedOut, or the system's error. May be called again.
  [[nodiscard]] Status load(std::string* error);
  // REQUIRES: load() succeeded.
  [[nodiscard]] Status start(EventManager* manager);

  KernelSourceCounters counters() const;
  // True when everything that was received has reached the model and no reading is under way.
  bool settled() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

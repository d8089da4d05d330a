// Reads the routes of a kernel's table into the route store, against bare reading of the same dump in the
// same run; then changes the table: one route, ten thousand changes in each second, all routes lost with
// their link. The longest iteration of the event loop meanwhile is how long a request waits. At last, reads
// smaller tables in which each route has a metric or a gateway of its own, which the kernel is slow to add.
//
// Runs in a network namespace of its own, with routes to made-up prefixes through a veth, and needs the
// privilege to create them.
//
//   kernel_routes_bench [--brief]

#include <malloc.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/kernel_routes.h"
#include "bench/measure.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/memory.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "sources/kernel/kernel_source.h"
#include "sources/kernel/netlink/socket.h"

namespace {

constexpr double kPatience = 120;  // seconds
constexpr int kTurns = 3;

struct Figures {
  double seconds = 0;
  double processor_seconds = 0;
  double longest_iteration_ms = 0;  // of processor time
};

// The dump with nothing done to it.
double read_bare() {
  kernel::NetlinkSocket socket;
  if (socket.open() != kStatusOk || socket.send(kernel::request_routes(kTable)) != kStatusOk) {
    throw std::runtime_error("netlink dump");
  }
  const double start = processor_seconds();
  for (bool done = false; !done;) {
    std::span<const std::uint8_t> datagram;
    if (socket.receive(&datagram) != kernel::Received::kDatagram)
      throw std::runtime_error("the dump broke off");
    const void* first = datagram.data();
    done = static_cast<const nlmsghdr*>(first)->nlmsg_type == NLMSG_DONE;
  }
  return processor_seconds() - start;
}

// Runs the loop until `done`.
template <class Done>
Figures run_until(EventManager* manager, Done done) {
  std::array<unsigned char, 1024> buffer{};
  EventContext context{manager, buffer.data(), buffer.size(), 0};
  Figures figures;
  const Clock::time_point start = Clock::now();
  const double processor_start = processor_seconds();
  while (!done()) {
    if (event_wait_for(&context, 10 * kNanosecondsPerMillisecond) != 0) {
      if (seconds_since(start) > kPatience) throw std::runtime_error("nothing happens");
      continue;
    }
    const double iteration = processor_seconds();
    event_dispatch(&context);
    figures.longest_iteration_ms =
        std::max(figures.longest_iteration_ms, 1e3 * (processor_seconds() - iteration));
  }
  figures.seconds = seconds_since(start);
  figures.processor_seconds = processor_seconds() - processor_start;
  return figures;
}

void print(const char* name, const Figures& figures, double floor) {
  std::printf("%-28s %7.3f s  %5.2f of bare reading  longest iteration %6.2f ms\n", name, figures.seconds,
              figures.processor_seconds / floor, figures.longest_iteration_ms);
}

unsigned long long as_number(std::uint64_t count) {
  return count;
}

struct Follower {
  router::Router model;
  KernelSource source{&model};

  explicit Follower(EventManager* manager) {
    router::Vrf vrf;
    vrf.name = "red";
    vrf.id = kTable.table;
    vrf.ipv4_table = kTable.table;
    std::string error;
    if (source.load(&error) != kStatusOk || model.create_vrf(vrf) != kStatusOk ||
        source.start(manager) != kStatusOk) {
      throw std::runtime_error("start: " + error);
    }
  }
};

// Returns the follower, and the bare reading in *floor.
std::unique_ptr<Follower> read_table(std::uint32_t count, EventManager* manager, const char* name,
                                     double* floor) {
  std::vector<double> floors;
  std::vector<Figures> readings;
  std::unique_ptr<Follower> follower;
  std::size_t heap = 0;
  for (int turn = 0; turn < kTurns; ++turn) {
    follower = nullptr;
    floors.push_back(read_bare());
    const std::size_t before = mallinfo2().uordblks;
    follower = std::make_unique<Follower>(manager);
    readings.push_back(run_until(manager, [&] { return follower->source.settled(); }));
    if (follower->model.routes().count(kTable) != count) throw std::runtime_error("routes are missing");
    heap = mallinfo2().uordblks - before;
  }
  *floor = median(floors);
  std::ranges::sort(readings, {}, &Figures::processor_seconds);
  std::printf("%u routes: bare reading %.3f s of processor time, %.0f octets a route\n", count, *floor,
              static_cast<double>(heap) / count);
  print(name, readings[kTurns / 2], *floor);
  return follower;
}

void measure_own(std::uint32_t count, EventManager* manager, const char* name, Own own) {
  run("ip link set v0 down; ip link set v0 up; ip route flush table 100");
  add_routes(count, own);
  double floor = 0;
  read_table(count, manager, name, &floor);
}

void measure(std::uint32_t count, EventManager* manager) {
  add_routes(count);
  double floor = 0;
  const std::unique_ptr<Follower> follower = read_table(count, manager, "first reading", &floor);
  router::Router& model = follower->model;
  KernelSource& source = follower->source;
  run("ip route add blackhole 192.168.1.0/24 table 100");
  print("one more", run_until(manager, [&] { return model.routes().count(kTable) == count + 1; }), floor);
  const std::uint32_t changes = std::min(count, 50'000U);
  std::atomic<bool> changed = false;
  std::jthread changer([&] {
    change_routes(changes / 2, changes, 10'000);
    changed = true;
  });
  print("10,000 changes per second",
        run_until(manager,
                  [&] { return changed && model.routes().count(kTable) == count + 1 && source.settled(); }),
        floor);
  const KernelRouteCounters counters = source.counters().routes;
  std::printf("%-28s %llu overruns, %llu tables read, %llu corrections\n", "", as_number(counters.losses),
              as_number(counters.tables_read), as_number(counters.corrections));
  run("ip link set v0 down");
  print("lost with their link",
        run_until(manager, [&] { return model.routes().count(kTable) == 1 && source.settled(); }), floor);
}

}  // namespace

int main(int argc, char** argv) {
  const bool brief = is_brief(argc, argv);
  heap_join_freed_blocks_at_once();  // as the daemon does
  heap_reuse_freed_buffers();
  try {
    const TestRunDirectory directory;
    if (enter_namespace()) {
      EventManager* manager = event_manager_create("/dev/mpls/vpn/kernel-routes-bench", 0);
      if (manager == nullptr) throw std::runtime_error("event manager");
      const std::uint32_t count = brief ? 10'000 : 1'000'000;
      measure(count, manager);
      measure_own(count / 40, manager, "each with its own metric", Own::kMetric);
      measure_own(count / 40, manager, "each with its own gateway", Own::kGateway);
      event_manager_destroy(manager);
    } else {
      std::printf("SKIPPED: no network namespace: %s\n", std::strerror(errno));
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "kernel_routes_bench: %s\n", failure.what());
    return 1;
  }
  return 0;
}

// The daemon on a large table of the kernel that changes all the time, for kernel_load_bench.py: the VRF
// vrf00000 has the table. Prints "ready" when it has been read; at SIGTERM, what the changes led to.
//
//   kernel_load_daemon ROUTES CHANGES_PER_SECOND
//
// Makes the routes in the namespace that it is started in. Run directory and library directory: as the
// daemon.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <limits>
#include <string>
#include <thread>

#include "bench/daemon_in_process.h"
#include "bench/kernel_routes.h"
#include "bench/measure.h"
#include "sources/kernel/kernel_source.h"

namespace {

constexpr std::uint64_t kRouteReread = 20 * kNanosecondsPerSecond;  // so that the table is verified meanwhile

volatile std::sig_atomic_t ended = 0;

class Loop {
 public:
  explicit Loop(EventManager* manager) : context_{manager, buffer_.data(), buffer_.size(), 0} {}
  void run_once() {
    if (event_wait_for(&context_, 10 * kNanosecondsPerMillisecond) != 0) return;
    const double start = processor_seconds();
    event_dispatch(&context_);
    longest_ = std::max(longest_, processor_seconds() - start);
  }
  double longest_ms() const { return 1e3 * longest_; }

 private:
  std::array<unsigned char, 1024> buffer_{};
  EventContext context_;
  double longest_ = 0;
};

unsigned long long number_of(std::uint64_t count) {
  return count;
}

void report(const KernelRouteCounters& counters, const Loop& loop) {
  std::printf("%llu overruns, %llu readings, %llu corrections, longest iteration %.2f ms of processor time\n",
              number_of(counters.losses), number_of(counters.tables_read), number_of(counters.corrections),
              loop.longest_ms());
}

void serve(std::uint32_t routes, std::uint32_t per_second) {
  add_devices();
  add_routes(routes);
  DaemonInProcess daemon;
  KernelSource source(&daemon.router, {.route_reread = kRouteReread});
  std::string error;
  DaemonInProcess::check(source.load(&error), "load");
  daemon.add_vrf(0);
  DaemonInProcess::check(source.start(daemon.manager), "start");
  daemon.register_provider();
  Loop loop(daemon.manager);
  while (!source.settled() && ended == 0) loop.run_once();
  std::puts("ready");
  std::fflush(stdout);
  std::thread([=] {
    change_routes(routes, std::numeric_limits<std::uint64_t>::max() - 100, per_second);
  }).detach();
  while (ended == 0) loop.run_once();
  report(source.counters().routes, loop);
  std::fflush(stdout);
  _exit(0);  // the other thread still uses the kernel
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::signal(SIGTERM, [](int) { ended = 1; });
  try {
    serve(static_cast<std::uint32_t>(std::stoul(argv[1])), static_cast<std::uint32_t>(std::stoul(argv[2])));
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "kernel_load_daemon: %s\n", failure.what());
  }
  return 1;
}

// Joins per second, their growth with the number of interfaces, and resident memory per interface.
//
//   joins_bench [--brief]
//
// Each size is measured in a process of its own: the daemon in-process, a tenth as many VRFs, then every
// interface added to the router and delivered to the daemon through the membership service and the event loop
// (live), or all at once at registration (start-up). The floor is a std::map with the same keys (VRF name,
// index) and a name as value.
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "bench/daemon_in_process.h"
#include "bench/in_child.h"
#include "bench/measure.h"

namespace {

struct Result {
  unsigned interfaces;
  double live_seconds;
  double start_seconds;
  double floor_seconds;
  double octets;            // of an interface with an IPv4 address
  double octets_with_ipv6;  // and an IPv6 address
};

double measure_floor(unsigned interfaces) {
  std::map<std::pair<std::string, unsigned>, std::string> floor;
  const auto start = Clock::now();
  for (unsigned i = 0; i < interfaces; ++i) {
    floor.emplace(std::make_pair(DaemonInProcess::vrf_name(i / 10), i + 1), "ge" + std::to_string(i));
  }
  return seconds_since(start);
}

// Seconds, and octets of an interface.
std::pair<double, double> measure_live(unsigned interfaces, bool has_ipv6) {
  const TestRunDirectory directory;
  DaemonInProcess daemon;
  for (unsigned vrf = 0; vrf < interfaces / 10; ++vrf) daemon.add_vrf(vrf);
  daemon.register_provider();
  const double before = resident_octets();
  const auto start = Clock::now();
  for (unsigned i = 0; i < interfaces; ++i) {
    daemon.add_interface(i, i / 10, has_ipv6);
    if (i % 64 == 63) daemon.run_pending();
  }
  daemon.run_pending();
  const double seconds = seconds_since(start);
  return {seconds, (resident_octets() - before) / interfaces};
}

double measure_start(unsigned interfaces) {
  const TestRunDirectory directory;
  DaemonInProcess daemon;
  for (unsigned vrf = 0; vrf < interfaces / 10; ++vrf) daemon.add_vrf(vrf);
  for (unsigned i = 0; i < interfaces; ++i) daemon.add_interface(i, i / 10);
  const auto start = Clock::now();
  daemon.register_provider();
  return seconds_since(start);
}

Result measure(unsigned interfaces) {
  Result result{};
  result.interfaces = interfaces;
  const auto live = in_child([interfaces] { return measure_live(interfaces, false); });
  result.live_seconds = live.first;
  result.octets = live.second;
  result.octets_with_ipv6 = in_child([interfaces] { return measure_live(interfaces, true).second; });
  result.start_seconds = in_child([interfaces] { return measure_start(interfaces); });
  result.floor_seconds = in_child([interfaces] { return measure_floor(interfaces); });
  return result;
}

// Time per interface against the first size, in units of the growth of log n: 1 is exactly n log n.
double growth(double seconds, unsigned interfaces, double first_seconds, unsigned first_interfaces) {
  const double ratio = (seconds / interfaces) / (first_seconds / first_interfaces);
  return ratio / (std::log2(interfaces) / std::log2(first_interfaces));
}

}  // namespace

int main(int argc, char** argv) {
  const bool brief = is_brief(argc, argv);
  const std::vector<unsigned> sizes =
      brief ? std::vector<unsigned>{100, 1000} : std::vector<unsigned>{1000, 10000, 100000};
  std::printf("%10s %12s %12s %14s %14s %14s %12s %12s\n", "interfaces", "joins/s", "at start/s",
              "std::map/join", "growth live", "growth start", "octets/if", "with IPv6");
  Result first{};
  for (const unsigned size : sizes) {
    const Result result = measure(size);
    if (first.interfaces == 0) first = result;
    std::printf("%10u %12.0f %12.0f %14.3f %14.2f %14.2f %12.0f %12.0f\n", size, size / result.live_seconds,
                size / result.start_seconds, result.floor_seconds / result.live_seconds,
                growth(result.live_seconds, size, first.live_seconds, first.interfaces),
                growth(result.start_seconds, size, first.start_seconds, first.interfaces), result.octets,
                result.octets_with_ipv6);
  }
  std::printf(
      "std::map/join: time of inserting the same keys into a std::map, as a share of the join.\n"
      "growth: time per interface against the first size, divided by the growth of log n (aim: at most 1).\n"
      "octets/if: resident memory of model, services and daemon for an interface with an IPv4 address;\n"
      "with IPv6: and an IPv6 address.\n");
  return 0;
}

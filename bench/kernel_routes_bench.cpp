// Reads the routes of a kernel's table into the route store, against bare reading of the same dump in the
// same run; then changes the table: one route, ten thousand changes in each second, all routes lost with
// their link. The longest iteration of the event loop meanwhile is how long a request waits.
//
// Runs in a network namespace of its own, with routes to made-up prefixes through a veth, and needs the
// privilege to create them.
//
//   kernel_routes_bench [--brief]
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>

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

#include "bench/measure.h"
#include "platform/core/base/clock.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "sources/kernel/kernel_source.h"
#include "sources/kernel/netlink/socket.h"

namespace {

constexpr router::RouteTableId kTable{router::Family::kIpv4, 10};
constexpr std::uint32_t kRoutesPerSend = 500;
constexpr double kPatience = 120;  // seconds
constexpr int kTurns = 3;
constexpr std::size_t kBufferSize = 64 * kRoutesPerSend;

struct Figures {
  double seconds = 0;
  double processor_seconds = 0;
  double longest_iteration_ms = 0;  // of processor time
};

void run(const std::string& command) {
  if (std::system(command.c_str()) != 0) throw std::runtime_error(command);
}

// A namespace with a veth that is up.
bool enter_namespace() {
  if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
  run("ip link add v0 type veth peer name v1");
  run("ip link set v0 up; ip link set v1 up; ip addr add 10.0.0.1/24 dev v0");
  return true;
}

std::size_t put_route(std::uint8_t* place, std::uint32_t number, std::uint32_t interface_index,
                      std::uint16_t type = RTM_NEWROUTE) {
  nlmsghdr* message = mnl_nlmsg_put_header(place);
  message->nlmsg_type = type;
  message->nlmsg_flags = NLM_F_REQUEST | (type == RTM_NEWROUTE ? NLM_F_CREATE : 0);
  auto* header = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  header->rtm_family = AF_INET;
  header->rtm_dst_len = 32;
  header->rtm_table = static_cast<std::uint8_t>(kTable.table);
  header->rtm_protocol = RTPROT_BGP;
  header->rtm_type = RTN_UNICAST;
  mnl_attr_put_u32(message, RTA_DST, __builtin_bswap32(0x64000000 + number));
  mnl_attr_put_u32(message, RTA_OIF, interface_index);
  mnl_attr_put_u32(message, RTA_GATEWAY, __builtin_bswap32(0x0a000002));
  return message->nlmsg_len;
}

mnl_socket* open_socket() {
  mnl_socket* socket = mnl_socket_open(NETLINK_ROUTE);
  if (socket == nullptr || mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) < 0)
    throw std::runtime_error("netlink");
  return socket;
}

void add_routes(std::uint32_t count) {
  mnl_socket* socket = open_socket();
  const std::uint32_t interface_index = if_nametoindex("v0");
  std::vector<std::uint8_t> buffer(kBufferSize);
  for (std::uint32_t number = 0; number < count;) {
    std::size_t size = 0;
    for (std::uint32_t each = 0; each < kRoutesPerSend && number < count; ++each, ++number) {
      size += put_route(buffer.data() + size, number, interface_index);
    }
    if (mnl_socket_sendto(socket, buffer.data(), size) < 0) throw std::runtime_error(std::strerror(errno));
  }
  mnl_socket_close(socket);
}

// Deletes and adds the routes again, a hundred changes at a time.
void change_routes(std::uint32_t changes, std::uint32_t per_second) {
  constexpr std::uint32_t kTogether = 100;
  mnl_socket* socket = open_socket();
  const std::uint32_t interface_index = if_nametoindex("v0");
  std::vector<std::uint8_t> buffer(kBufferSize);
  const Clock::time_point start = Clock::now();
  for (std::uint32_t change = 0; change < changes;) {
    std::size_t size = 0;
    for (std::uint32_t each = 0; each < kTogether; ++each, ++change) {
      const std::uint16_t type = change % 2 == 0 ? RTM_DELROUTE : RTM_NEWROUTE;
      size += put_route(buffer.data() + size, change / 2, interface_index, type);
    }
    if (mnl_socket_sendto(socket, buffer.data(), size) < 0) throw std::runtime_error(std::strerror(errno));
    std::this_thread::sleep_until(start + std::chrono::microseconds(1'000'000ULL * change / per_second));
  }
  mnl_socket_close(socket);
}

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

void measure(std::uint32_t count, EventManager* manager) {
  add_routes(count);
  std::vector<double> floors;
  std::vector<Figures> readings;
  std::unique_ptr<Follower> follower;
  for (int turn = 0; turn < kTurns; ++turn) {
    follower = nullptr;
    floors.push_back(read_bare());
    follower = std::make_unique<Follower>(manager);
    readings.push_back(run_until(manager, [&] { return follower->source.settled(); }));
    if (follower->model.routes().count(kTable) != count) throw std::runtime_error("routes are missing");
  }
  const double floor = median(floors);
  std::ranges::sort(readings, {}, &Figures::processor_seconds);
  router::Router& model = follower->model;
  KernelSource& source = follower->source;
  std::printf("%u routes: bare reading %.3f s of processor time\n", count, floor);
  print("first reading", readings[kTurns / 2], floor);
  run("ip route add blackhole 192.168.1.0/24 table 10");
  print("one more", run_until(manager, [&] { return model.routes().count(kTable) == count + 1; }), floor);
  const std::uint32_t changes = std::min(count, 50'000U);
  std::atomic<bool> changed = false;
  std::jthread changer([&] {
    change_routes(changes, 10'000);
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
  try {
    const TestRunDirectory directory;
    if (enter_namespace()) {
      EventManager* manager = event_manager_create("/dev/mpls/vpn/kernel-routes-bench", 0);
      if (manager == nullptr) throw std::runtime_error("event manager");
      measure(brief ? 10'000 : 1'000'000, manager);
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

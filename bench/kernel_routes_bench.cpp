// Reads the routes of a kernel's table into the route store, first into an empty one and then without
// changes, against bare reading of the same dump in the same run. The longest iteration of the event loop
// meanwhile is how long a request waits.
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
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
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
constexpr std::size_t kBufferSize = 64 * kRoutesPerSend;

struct Figures {
  double seconds = 0;
  double longest_iteration_ms = 0;
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

std::size_t put_route(std::uint8_t* place, std::uint32_t number, std::uint32_t interface_index) {
  nlmsghdr* message = mnl_nlmsg_put_header(place);
  message->nlmsg_type = RTM_NEWROUTE;
  message->nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE;
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

void add_routes(std::uint32_t count) {
  mnl_socket* socket = mnl_socket_open(NETLINK_ROUTE);
  if (socket == nullptr || mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) < 0)
    throw std::runtime_error("netlink");
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

// The dump with nothing done to it.
double read_bare() {
  kernel::NetlinkSocket socket;
  if (socket.open() != kStatusOk || socket.send(kernel::request_routes(kTable)) != kStatusOk) {
    throw std::runtime_error("netlink dump");
  }
  const Clock::time_point start = Clock::now();
  for (bool done = false; !done;) {
    std::span<const std::uint8_t> datagram;
    if (socket.receive(&datagram) != kernel::Received::kDatagram)
      throw std::runtime_error("the dump broke off");
    const void* first = datagram.data();
    done = static_cast<const nlmsghdr*>(first)->nlmsg_type == NLMSG_DONE;
  }
  return seconds_since(start);
}

// Runs the loop until `done`.
template <class Done>
Figures run_until(EventManager* manager, Done done) {
  std::array<unsigned char, 1024> buffer{};
  EventContext context{manager, buffer.data(), buffer.size(), 0};
  Figures figures;
  const Clock::time_point start = Clock::now();
  while (!done()) {
    if (event_wait_for(&context, 10 * kNanosecondsPerSecond) != 0)
      throw std::runtime_error("nothing happens");
    const Clock::time_point iteration = Clock::now();
    event_dispatch(&context);
    figures.longest_iteration_ms = std::max(figures.longest_iteration_ms, 1e3 * seconds_since(iteration));
  }
  figures.seconds = seconds_since(start);
  return figures;
}

void print(const char* name, const Figures& figures, double floor) {
  std::printf("%-28s %7.3f s  %5.2f of bare reading  longest iteration %6.2f ms\n", name, figures.seconds,
              figures.seconds / floor, figures.longest_iteration_ms);
}

void measure(std::uint32_t count, EventManager* manager) {
  add_routes(count);
  double floor = read_bare();
  for (int round = 0; round < 2; ++round) floor = std::min(floor, read_bare());
  std::printf("%u routes: bare reading %.3f s\n", count, floor);
  router::Router model;
  router::Vrf vrf;
  vrf.name = "red";
  vrf.id = kTable.table;
  vrf.ipv4_table = kTable.table;
  KernelSource source(&model);
  std::string error;
  if (source.load(&error) != kStatusOk || model.create_vrf(vrf) != kStatusOk ||
      source.start(manager) != kStatusOk) {
    throw std::runtime_error("start: " + error);
  }
  print("first reading", run_until(manager, [&] { return source.settled(); }), floor);
  if (model.routes().count(kTable) != count) throw std::runtime_error("routes are missing");
  run("ip route add blackhole 192.168.1.0/24 table 10");
  print("one more, rest included",
        run_until(manager, [&] { return model.routes().count(kTable) == count + 1 && source.settled(); }),
        floor);
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

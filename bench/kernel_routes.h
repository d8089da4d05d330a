// Routes of a kernel's table for benchmarks: to made-up prefixes, through a veth in a network namespace of
// the process.
#pragma once

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/measure.h"
#include "platform/router/model/route_store.h"

inline constexpr router::RouteTableId kTable{router::Family::kIpv4, 100};
inline constexpr std::uint32_t kRoutesPerSend = 500;
inline constexpr std::size_t kBufferSize = 64 * kRoutesPerSend;

inline void run(const std::string& command) {
  if (std::system(command.c_str()) != 0) throw std::runtime_error(command);
}

inline void add_devices() {
  run("ip link add v0 type veth peer name v1");
  run("ip link set v0 up; ip link set v1 up; ip addr add 10.0.0.1/24 dev v0");
}

// A namespace with a veth that is up.
inline bool enter_namespace() {
  if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
  add_devices();
  return true;
}

// What each route has of its own besides its prefix.
enum class Own { kNothing, kMetric, kGateway };

inline std::size_t put_route(std::uint8_t* place, std::uint32_t number, std::uint32_t interface_index,
                             std::uint16_t type = RTM_NEWROUTE, Own own = Own::kNothing) {
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
  if (own == Own::kMetric) mnl_attr_put_u32(message, RTA_PRIORITY, number + 1);
  if (own == Own::kGateway) header->rtm_flags = RTNH_F_ONLINK;  // of any prefix
  const std::uint32_t gateway = own == Own::kGateway ? 0x14000000 + number : 0x0a000002;
  mnl_attr_put_u32(message, RTA_GATEWAY, __builtin_bswap32(gateway));
  return message->nlmsg_len;
}

inline mnl_socket* open_socket() {
  mnl_socket* socket = mnl_socket_open(NETLINK_ROUTE);
  if (socket == nullptr || mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) < 0)
    throw std::runtime_error("netlink");
  return socket;
}

inline void add_routes(std::uint32_t count, Own own = Own::kNothing) {
  mnl_socket* socket = open_socket();
  const std::uint32_t interface_index = if_nametoindex("v0");
  std::vector<std::uint8_t> buffer(kBufferSize);
  for (std::uint32_t number = 0; number < count;) {
    std::size_t size = 0;
    for (std::uint32_t each = 0; each < kRoutesPerSend && number < count; ++each, ++number) {
      size += put_route(buffer.data() + size, number, interface_index, RTM_NEWROUTE, own);
    }
    if (mnl_socket_sendto(socket, buffer.data(), size) < 0) throw std::runtime_error(std::strerror(errno));
  }
  mnl_socket_close(socket);
}

// Deletes each of the first `count` routes and adds it again, in turn, a hundred changes at a time.
inline void change_routes(std::uint32_t count, std::uint64_t changes, std::uint32_t per_second) {
  constexpr std::uint32_t kTogether = 100;
  mnl_socket* socket = open_socket();
  const std::uint32_t interface_index = if_nametoindex("v0");
  std::vector<std::uint8_t> buffer(kBufferSize);
  const Clock::time_point start = Clock::now();
  for (std::uint64_t change = 0; change < changes;) {
    std::size_t size = 0;
    for (std::uint32_t each = 0; each < kTogether; ++each, ++change) {
      const std::uint16_t type = change % 2 == 0 ? RTM_DELROUTE : RTM_NEWROUTE;
      const auto number = static_cast<std::uint32_t>(change / 2 % count);
      size += put_route(buffer.data() + size, number, interface_index, type);
    }
    if (mnl_socket_sendto(socket, buffer.data(), size) < 0) throw std::runtime_error(std::strerror(errno));
    std::this_thread::sleep_until(start + std::chrono::microseconds(1'000'000ULL * change / per_second));
  }
  mnl_socket_close(socket);
}

// A non-blocking rtnetlink socket: sends requests, joins groups, receives one datagram per call.
//
// Delivers only what the kernel itself sent. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/core/base/status.h"
#include "sources/kernel/netlink/request.h"

struct mnl_socket;

namespace kernel {

enum class Received {
  kDatagram,
  kNothing,  // no datagram is waiting
  kForeign,  // another process sent a datagram, which was dropped
  kLost,     // the kernel had no room for messages, or one did not fit (the buffer has grown since)
  kFailed,   // the socket is unusable; errno has the reason
};

// Fault points by user, so that a test can choose between the sockets of routes and those of links.
struct NetlinkFaultPoints {
  const char* open = "netlink_open";
  const char* join = "netlink_join";
  const char* request = "netlink_request";
  const char* receive = "netlink_receive";
  const char* disturbed = "netlink_dump_disturbed";
  const char* gap = "netlink_dump_gap";
  const char* malformed = "netlink_malformed";  // a message
};
inline constexpr NetlinkFaultPoints kRouteEventFaultPoints{.open = "netlink_route_open",
                                                           .join = "netlink_route_join",
                                                           .request = "netlink_route_request",
                                                           .receive = "netlink_route_receive",
                                                           .malformed = "netlink_route_malformed"};
inline constexpr NetlinkFaultPoints kRouteDumpFaultPoints{.open = "netlink_route_dump_open",
                                                          .join = "netlink_route_dump_join",
                                                          .request = "netlink_route_dump_request",
                                                          .receive = "netlink_route_dump_receive",
                                                          .disturbed = "netlink_route_dump_disturbed",
                                                          .gap = "netlink_route_dump_gap",
                                                          .malformed = "netlink_route_dump_malformed"};

class NetlinkSocket {
 public:
  static constexpr std::size_t kDumpBuffer = 32768;  // octets: the largest datagram of a dump
  explicit NetlinkSocket(const NetlinkFaultPoints& faults = {}, std::size_t buffer = kDumpBuffer)
      : buffer_(buffer), faults_(faults) {}
  // Fault point "netlink_open". The errno of the failing step.
  [[nodiscard]] Status open();
  void close() { socket_.reset(); }
  bool is_open() const { return socket_ != nullptr; }
  int fd() const;  // REQUIRES: open

  // RTNLGRP_... Fault point "netlink_join".
  [[nodiscard]] Status join(int group);
  // Requests room for unread datagrams, beyond the system's limit where the process may.
  [[nodiscard]] Status set_receive_buffer(std::size_t octets);
  // Fault point "netlink_request".
  [[nodiscard]] Status send(DumpRequest request);

  // The datagram is valid until the next call. Fault point "netlink_receive": its status is used as the errno
  // of a failed receive, so ENOBUFS simulates a loss.
  Received receive(std::span<const std::uint8_t>* datagram);

 private:
  struct Closer {
    void operator()(mnl_socket* socket) const;
  };
  Received receive_failed(int error);

  std::unique_ptr<mnl_socket, Closer> socket_;
  std::vector<std::uint8_t> buffer_;
  NetlinkFaultPoints faults_;
  std::uint32_t sequence_ = 0;
};

}  // namespace kernel

// A non-blocking rtnetlink socket: opens, asks for dumps, joins groups, receives one datagram a call.
//
// Only what the kernel itself sent comes through. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/route_store.h"

struct mnl_socket;
struct nlmsghdr;

namespace kernel {

enum class Received {
  kDatagram,  // there is one
  kNothing,   // nothing is waiting
  kLost,      // the kernel dropped messages for want of room, or one did not fit (the buffer has grown since)
  kFailed,    // the socket is of no use; errno says why
};

// The names of a socket's fault points, so that a test can meet the sockets of routes or those of links.
struct NetlinkFaultPoints {
  const char* open = "netlink_open";
  const char* join = "netlink_join";
  const char* request = "netlink_request";
  const char* receive = "netlink_receive";
};
inline constexpr NetlinkFaultPoints kRouteEventFaultPoints{"netlink_route_open", "netlink_route_join",
                                                           "netlink_route_request", "netlink_route_receive"};
inline constexpr NetlinkFaultPoints kRouteDumpFaultPoints{
    "netlink_route_dump_open", "netlink_route_dump_join", "netlink_route_dump_request",
    "netlink_route_dump_receive"};

class NetlinkSocket {
 public:
  static constexpr std::size_t kDumpBuffer = 32768;  // octets: the largest datagram of a dump
  explicit NetlinkSocket(std::size_t buffer = kDumpBuffer, const NetlinkFaultPoints& faults = {})
      : buffer_(buffer), faults_(faults) {}
  // Fault point "netlink_open". The errno of the failing step.
  [[nodiscard]] Status open();
  void close() { socket_.reset(); }
  bool is_open() const { return socket_ != nullptr; }
  int fd() const;  // REQUIRES: open

  // RTNLGRP_... Fault point "netlink_join".
  [[nodiscard]] Status join(int group);
  // Asks for `octets` of room for what is not yet read, beyond the system's limit where the process may.
  [[nodiscard]] Status set_receive_buffer(std::size_t octets);
  // Requests all links, all addresses. Fault point "netlink_request".
  [[nodiscard]] Status request_links();
  [[nodiscard]] Status request_addresses();
  // Has the kernel take filters in requests at their word: what request_routes() needs.
  [[nodiscard]] Status set_strict();
  // Requests the routes of one table, all next-hop objects. Fault point "netlink_request". A table that the
  // kernel does not have is answered by ENOENT.
  [[nodiscard]] Status request_routes(router::RouteTableId table);
  [[nodiscard]] Status request_next_hops();

  // The datagram is valid until the next call. Fault point "netlink_receive": its status becomes the errno of
  // a receive that failed, so ENOBUFS makes a loss.
  Received receive(std::span<const std::uint8_t>* datagram);

 private:
  struct Closer {
    void operator()(mnl_socket* socket) const;
  };
  nlmsghdr* begin_request(std::uint16_t type, std::span<std::uint8_t> octets);
  Status send(const nlmsghdr* message);
  Received receive_failed(int error);

  std::unique_ptr<mnl_socket, Closer> socket_;
  std::vector<std::uint8_t> buffer_;
  NetlinkFaultPoints faults_;
  std::uint32_t sequence_ = 0;
};

}  // namespace kernel

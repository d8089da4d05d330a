// One reading of a routing table, or of all next-hop objects, in bounded steps.
//
// Each dump has a socket of its own (see dump.h). Main thread only.
#pragma once

#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/route_store.h"
#include "sources/kernel/netlink/netlink_socket.h"
#include "sources/kernel/routes/route_message.h"

namespace kernel {

class RouteDump {
 public:
  enum class Progress {
    kMore,      // the step's bound was reached; there is more to read at once
    kWaiting,   // the kernel's next answer is not there yet
    kComplete,  // everything was handed out
    kFailed,    // error() says why
  };

  // Opens the socket and asks. A failure leaves it closed. REQUIRES: closed, or never begun. Fault points
  // "netlink_route_dump_open", "..._request", "..._receive".
  [[nodiscard]] Status begin_table(router::RouteTableId table);
  [[nodiscard]] Status begin_next_hops();
  // Reads up to `datagrams` datagrams (of up to 32 kB) and appends what they say to *events. REQUIRES: begun,
  // and neither complete nor failed
  Progress step(unsigned datagrams, std::vector<RouteEvent>* events);
  void close() { socket_.close(); }

  bool is_open() const { return socket_.is_open(); }
  int fd() const { return socket_.fd(); }  // REQUIRES: open
  // A kernel that has no such table, or no next-hop objects at all, counts as one where they are empty.
  Status error() const { return error_; }
  // True when something changed while the kernel was being read: what exists may be missing. Fault point
  // "netlink_route_dump_disturbed" makes it so.
  bool disturbed() const { return disturbed_; }
  unsigned malformed() const { return malformed_; }

 private:
  Status begin(Status (*request)(NetlinkSocket*, router::RouteTableId), router::RouteTableId table);
  Progress read(std::span<const std::uint8_t> datagram, std::vector<RouteEvent>* events);
  Progress fail(Status error);

  NetlinkSocket socket_{NetlinkSocket::kDumpBuffer, kRouteDumpFaultPoints};
  bool disturbed_ = false;
  unsigned malformed_ = 0;
  Status error_ = kStatusOk;
};

}  // namespace kernel

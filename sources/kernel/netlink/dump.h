// One reading of all links and then all addresses, in bounded steps.
//
// Each dump has a socket of its own, so that giving one up leaves no answers behind that the next would take
// for its own. Main thread only.
#pragma once

#include "platform/core/base/status.h"
#include "sources/kernel/links/mirror.h"
#include "sources/kernel/netlink/netlink_socket.h"

namespace kernel {

class Dump {
 public:
  enum class Progress {
    kMore,      // the step's bound was reached; there is more to read at once
    kWaiting,   // the kernel's next answer is not there yet
    kComplete,  // take() has the result
    kFailed,    // error() says why
  };

  // Opens the socket and asks for the links. A failure leaves it closed. REQUIRES: closed, or never begun
  [[nodiscard]] Status begin();
  // Reads up to `datagrams` datagrams (of up to 32 kB). Complete and failed end the dump.
  // REQUIRES: running()
  Progress step(unsigned datagrams);
  // Closes the socket, which the end of the dump does not do: the descriptor may still be watched.
  void close();

  bool running() const { return running_; }
  int fd() const { return socket_.fd(); }  // REQUIRES: begun and not closed
  Status error() const { return error_; }
  // True when something changed while the kernel was being read: links or addresses that exist may be
  // missing. Fault point "netlink_dump_disturbed" makes it so.
  bool disturbed() const { return disturbed_; }
  unsigned malformed() const { return malformed_; }
  Mirror take();

 private:
  enum class Phase { kLinks, kAddresses };
  Progress read(std::span<const std::uint8_t> datagram);
  Progress end_of_phase();
  Progress fail(Status error);

  NetlinkSocket socket_;
  Phase phase_ = Phase::kLinks;
  Mirror seen_;
  std::vector<Event> events_;
  bool running_ = false;
  bool disturbed_ = false;
  unsigned malformed_ = 0;
  Status error_ = kStatusOk;
};

}  // namespace kernel

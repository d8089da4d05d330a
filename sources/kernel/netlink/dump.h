// Reads everything of one or more kinds from the kernel, in bounded steps.
//
// Each dump has a socket of its own, so that a dump that is abandoned leaves no answers which the next one
// would take for its own. Main thread only.
#pragma once

#include <vector>

#include "platform/core/base/status.h"
#include "sources/kernel/netlink/message.h"
#include "sources/kernel/netlink/request.h"
#include "sources/kernel/netlink/socket.h"

namespace kernel {

class Dump {
 public:
  enum class Progress {
    kMore,      // the step's bound was reached; there is more to read at once
    kWaiting,   // the kernel's next answer has not arrived
    kComplete,  // everything was read
    kFailed,    // error() has the reason
  };

  explicit Dump(const NetlinkFaultPoints& faults = {}) : socket_(faults), faults_(faults) {}

  // Opens the socket and sends the first request; each of the others follows when the one before is complete.
  // A failure leaves the socket closed. REQUIRES: closed, at least one request.
  [[nodiscard]] Status begin(std::vector<DumpRequest> requests);
  // Reads up to `datagrams` datagrams (of up to 32 kB) and calls `read` for each message of their content.
  // REQUIRES: begun, and neither complete nor failed.
  Progress step(unsigned datagrams, const MessageReader& read);
  // Closes the socket, which the end of the dump does not do: the descriptor may still be watched.
  void close() { socket_.close(); }

  bool is_open() const { return socket_.is_open(); }
  int fd() const { return socket_.fd(); }  // REQUIRES: open
  Status error() const { return error_; }
  // True when something changed while the kernel was being read: objects that exist may be missing. Fault
  // point "..._dump_disturbed" simulates it; "..._dump_gap" drops a datagram as well.
  bool disturbed() const { return disturbed_; }
  // Messages of the content that are malformed: their objects are missing. Fault point "..._dump_malformed".
  unsigned malformed() const { return malformed_; }
  bool is_partial() const { return disturbed_ || malformed_ != 0; }
  // The caller knows of a change that the kernel does not report.
  void disturb() { disturbed_ = true; }

 private:
  Progress read_datagram(std::span<const std::uint8_t> datagram, const MessageReader& read);
  Progress end_of_request();
  Progress fail(Status error);

  NetlinkSocket socket_;
  NetlinkFaultPoints faults_;
  std::vector<DumpRequest> requests_;
  std::size_t request_ = 0;  // the one that is being answered
  bool disturbed_ = false;
  unsigned malformed_ = 0;
  Status error_ = kStatusOk;
};

}  // namespace kernel

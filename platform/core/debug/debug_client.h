// Client of the debug facility (debug.h) over the event manager's Unix socket: lists the flags of a running
// daemon, switches them and watches its prints. Blocking calls with a bound, for the command line.
//
// One DebugClient is one connection, used from one thread. kStatusNotConnected without a connection, if no
// process serves the socket, or if the daemon ended. kStatusTimedOut from connect, list, set or watch closes
// the connection (a late answer must not be taken for the next request's). A call on a closed client does not
// connect by itself.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/debug/protocol.h"
#include "platform/core/wire/wire.h"

struct DebugFlagState {
  std::string name_space;  // "/debug/mpls_vpn/"
  std::string name;        // the command name, "prov"
  bool on = false;
};

// A client of the debug socket, as the summary of its server (wire/client_summary.h) has it.
struct DebugPeer {
  std::uint32_t id = 0;
  std::uint32_t user = 0;
  std::uint32_t process = 0;
  std::string role;
  std::uint32_t age = 0;
  std::uint32_t requests = 0;
  std::uint32_t requests_per_second = 0;
  std::uint32_t loop_milliseconds = 0;
  std::uint32_t queued = 0;
};

struct DebugLine {
  std::string flag;  // command name of the flag that the print belongs to
  std::string text;  // without the line break
  // Prints that this watcher missed before this one because it was too slow. If no print follows them, the
  // count arrives alone, with an empty flag and text.
  std::uint64_t dropped = 0;
};

class DebugClient {
 public:
  explicit DebugClient(std::string socket_path,
                       std::chrono::milliseconds timeout = std::chrono::milliseconds(1000));

  // The socket of the daemon's debug event manager in this process's run directory (base/directories.h).
  static std::string default_socket();

  [[nodiscard]] Status connect();
  void close() { socket_.close(); }
  bool connected() const { return socket_.connected(); }
  // -1 without a connection. Readable means: a print has arrived, or the peer closed. Prints may also be
  // queued in this object after list, set or watch, so call next_line() without a timeout before polling.
  int fd() const { return socket_.fd(); }

  // Every flag of every name space, in registration order.
  [[nodiscard]] Status list(std::vector<DebugFlagState>* flags);
  // Switches one flag by its command name, or every flag ("all"). kStatusNoSuchRow for an unknown name,
  // kStatusAccess for a peer that may only read.
  [[nodiscard]] Status set(std::string_view name, bool on);
  // The clients of the socket, this one included.
  [[nodiscard]] Status clients(std::vector<DebugPeer>* peers);
  // From now on prints are sent to this connection. Repeated calls have no effect.
  [[nodiscard]] Status watch();
  // The next print. kStatusTimedOut if none arrived in time, with the connection still open; kStatusInvalid
  // before watch().
  [[nodiscard]] Status next_line(std::chrono::milliseconds timeout, DebugLine* line);

 private:
  // Sends the written request and receives its answer into *answer; prints that arrive before it are queued.
  Status exchange(std::uint16_t type, wire::Message* answer);
  Status status_answer(std::uint16_t type);
  // A request without contents; replaces the items by those of the answer.
  template <typename Item>
  Status ask_for(std::uint16_t type, bool (*read)(wire::Reader*, std::vector<Item>*),
                 std::vector<Item>* items);
  bool queue_print(const wire::Message& message);
  Status fail(Status status);

  std::string socket_path_;
  std::chrono::milliseconds timeout_;
  wire::ClientSocket socket_{debug_detail::kMaxMessage};
  std::deque<DebugLine> queued_;
  std::uint32_t request_ = 0;
  bool watching_ = false;
};

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
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"

struct DebugFlagState {
  std::string name_space;  // "/debug/mpls_vpn/"
  std::string name;        // the command name, "prov"
  bool on = false;
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
  ~DebugClient();
  DebugClient(const DebugClient&) = delete;
  DebugClient& operator=(const DebugClient&) = delete;

  // The socket of the daemon's debug event manager in this process's run directory (base/directories.h).
  static std::string default_socket();

  [[nodiscard]] Status connect();
  void close();
  bool connected() const;
  // -1 without a connection. Readable means: a print has arrived, or the peer closed. Prints may also be
  // queued in this object after list, set or watch, so call next_line() without a timeout before polling.
  int fd() const;

  // Every flag of every name space, in registration order.
  [[nodiscard]] Status list(std::vector<DebugFlagState>* flags);
  // Switches one flag by its command name, or every flag ("all"). kStatusNoSuchRow for an unknown name,
  // kStatusAccess for a peer that may only read.
  [[nodiscard]] Status set(std::string_view name, bool on);
  // From now on prints are sent to this connection. Repeated calls have no effect.
  [[nodiscard]] Status watch();
  // The next print. kStatusTimedOut if none arrived in time, with the connection still open; kStatusInvalid
  // before watch().
  [[nodiscard]] Status next_line(std::chrono::milliseconds timeout, DebugLine* line);

 private:
  struct Connection;
  Status status_answer(unsigned type);
  Status fail(Status status);
  std::string socket_path_;
  std::chrono::milliseconds timeout_;
  std::unique_ptr<Connection> connection_;  // null while there is none
};

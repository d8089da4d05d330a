// What every command of mplsvpn receives: the daemon's sockets, the streams and options of the output,
// failures.
//
// Commands throw Failure; run() (command_line.h) turns it into a line on standard error and the exit status.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include "cli/output/terminal.h"
#include "platform/core/base/status.h"
#include "platform/store/client/client.h"

namespace cli {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;    // the daemon or a file rejected the request
inline constexpr int kExitUsage = 2;     // the words are not a command
inline constexpr int kExitNoDaemon = 3;  // the daemon is not running, or closed the connection
inline constexpr int kExitNoAnswer = 4;  // the daemon does not answer in time
inline constexpr int kExitNoRight = 5;   // the user may not connect, or not make this request

// "notRunning", "notPermitted" ...: what JSON calls the exit status.
const char* exit_name(int exit_status);

class Failure : public std::runtime_error {
 public:
  Failure(int exit_status, const std::string& message)
      : std::runtime_error(message), exit_status_(exit_status) {}
  int exit_status() const { return exit_status_; }

 private:
  int exit_status_;
};

// Ends a command whose result, after its output, is the exit status.
class Verdict {
 public:
  explicit Verdict(int exit_status) : exit_status_(exit_status) {}
  int exit_status() const { return exit_status_; }

 private:
  int exit_status_;
};

struct Session {
  std::ostream& out;
  std::ostream& err;
  bool json = false;
  std::string socket;         // of the daemon's main event manager
  std::string debug_socket;   // of its debug event manager
  std::string run_directory;  // where its trace buffers are
  std::chrono::milliseconds timeout{1000};
  Terminal terminal = {};
  std::string command = {};  // its words as the user typed them, without the options before them
};

// What the words of a command line choose.
using ChosenCommand = std::function<void(const Session&)>;

// A connected client, or Failure(kExitNoDaemon).
std::unique_ptr<kvtree::Client> connect_to_daemon(const Session& session);

// The Failure for a request with this status. `what` names the request; `reason`, when not empty, replaces
// the text of the status.
Failure request_failure(const Session& session, const std::string& what, Status status,
                        const std::string& reason = std::string());
// The same of a request for records of the data store that the command needs: the command's words name it.
Failure request_failure(const Session& session, Status status);
// The Failure of a user who may not configure.
Failure no_right(const std::string& to_what);
// The user may not use this path; it names its group.
Failure not_permitted(const std::string& path);
// The Failure for a socket that cannot be connected.
Failure no_daemon(const std::string& socket, Status status);

}  // namespace cli

// Asks one program of the routing suite for its running configuration, repeatedly, over a long-lived
// `vtysh -d PROGRAM`.
//
// The shell is a child process. One socket is its standard input, output and error, so that its warnings are
// in sequence with its output. Nothing blocks: the event loop collects an answer. An answer that takes too
// long, becomes too large or is incomplete ends the shell, and the next question starts another one.
//
// When a program has ended, the shell prints an empty configuration and reports success, which must not be
// taken for an answer. So an answer is complete only if the configuration has its end line, if the shell,
// asked right after it, is still connected to the program, and if it has not reconnected meanwhile.
//
// Main thread. The manager must outlive the conversation.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

namespace frr {

// Never copied: an answer may have many megabytes.
struct Answer {
  Answer() = default;
  ~Answer() = default;
  Answer(Answer&&) = default;
  Answer& operator=(Answer&&) = default;
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  bool whole = false;                // complete
  bool first = false;                // of its shell: the program may have been started since the last answer
  std::string configuration;         // the running configuration, when whole
  std::vector<std::string> shown{};  // the output of each further command, with the shell's own around it
  std::string reason;                // when not whole: what failed
  bool too_large = false;            // when not whole: it exceeded the limit
  bool unknown = false;              // when not whole: this suite has no such program
};

class Conversation {
 public:
  struct Limits {
    std::uint64_t patience = 10'000'000'000;          // nanoseconds for an answer; doubles each time
    std::uint64_t longest_patience = 60'000'000'000;  // that this is not enough, up to here
    std::size_t answer_size = 32U << 20;              // octets
  };
  using OnAnswer = std::function<void(Answer answer)>;

  // `shell` is the shell's path and the arguments before "-d PROGRAM".
  Conversation(std::vector<std::string> shell, std::string_view program, Limits limits);
  ~Conversation();
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

  // Asks for the running configuration and then for the output of the further commands. Calls `on_answer`
  // once, from the loop, never from inside this call. kStatusExists while an answer is pending; the system's
  // error if no shell can be started. Fault point "frr_conversation_ask".
  [[nodiscard]] Status ask(EventManager* manager, OnAnswer on_answer,
                           const std::vector<std::string>& commands = {});
  void end();  // ends the shell and drops a pending answer
  bool awaits_answer() const { return on_answer_ != nullptr; }
  std::size_t buffered() const { return received_.capacity(); }  // octets of memory for an answer

 private:
  Status start_shell();
  Status send_question(const std::vector<std::string>& commands);
  void read_answer();
  void finish(Answer answer);
  void run_out();
  void reap(bool wait);

  std::vector<std::string> command_;
  std::string program_;
  Limits limits_;
  std::uint64_t patience_now_;
  EventManager* manager_ = nullptr;
  OnAnswer on_answer_{};
  pid_t shell_ = -1;
  int fd_ = -1;
  bool answered_ = false;     // by this shell, with a whole answer
  std::size_t commands_ = 0;  // further ones of the question
  std::string token_{};       // of the marks of the pending answer
  std::string mark_{};        // what ends it
  std::string received_{};
  EventTimerId patience_ = 0;
  std::vector<pid_t> ended_{};  // shells that were ended and are not yet reaped
};

// Parses what the shell printed up to the last mark. `token` is that of the question's marks.
Answer read_shell_output(std::string text, std::string_view program, std::string_view token = {},
                         std::size_t commands = 0);
// The word between the parts of an answer. It is not a command, so the shell prints it.
std::string part_mark(std::string_view token, std::size_t part);

}  // namespace frr

// A conversation with one program of the routing suite: a kept `vtysh -d PROGRAM` that is asked for its
// running configuration, again and again.
//
// The shell is a child process on one socket, which is its standard input, output and error, so that its
// warnings stand where they happened. Nothing waits for it: an answer is collected on the event loop, and one
// that takes too long, grows too large or is not whole ends the shell. The next question starts another.
//
// An answer is whole when the shell, asked right behind it, still has its connection to the program, when it
// had to mend none meanwhile, and when the configuration has its end line. The shell says nothing of a
// program that has gone but prints an empty configuration and reports success: that must not be taken for an
// answer.
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

struct Answer {
  bool whole = false;
  bool first = false;         // of its shell: the program may have been started since the last answer
  std::string configuration;  // the running configuration, when whole
  std::vector<std::string>
      shown{};             // what each further command printed, among what the shell prints around it
  std::string reason;      // what went wrong, when not
  bool too_large = false;  // when not: there was more of it than the limit
  bool unknown = false;    // when not: this suite has no such program
};

class Conversation {
 public:
  struct Limits {
    std::uint64_t patience = 10'000'000'000;  // nanoseconds until an answer must be whole; doubles each time
    std::uint64_t longest_patience = 60'000'000'000;  // that it is not, up to this
    std::size_t answer_size = 32U << 20;              // octets
  };
  using Heard = std::function<void(const Answer& answer)>;

  // `shell` is the shell's path and the arguments that come before "-d PROGRAM".
  Conversation(std::vector<std::string> shell, std::string_view program, Limits limits);
  ~Conversation();
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

  // Asks for the running configuration and, behind it, for what the further commands show; `heard` is called
  // once, from the loop, never from inside this call. kStatusExists while an answer
  // is awaited; else the system's, when there is no shell or none can be started. Fault point
  // "frr_conversation_ask".
  [[nodiscard]] Status ask(EventManager* manager, Heard heard, const std::vector<std::string>& commands = {});
  void end();  // ends the shell; an awaited answer does not come
  bool awaits_answer() const { return heard_ != nullptr; }

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
  Heard heard_{};
  pid_t shell_ = -1;
  int fd_ = -1;
  bool answered_ = false;  // this shell has given a whole answer
  std::uint64_t questions_ = 0;
  std::size_t commands_ = 0;  // further ones of the question
  std::string mark_{};        // what ends the answer that is awaited
  std::string received_{};
  EventTimerId patience_ = 0;
  std::vector<pid_t> ended_{};  // shells that were ended and not yet waited for
};

// What the shell printed up to the mark: the configuration in it and what the further commands showed, or why
// there is none.
Answer read_shell_output(std::string_view text, std::string_view program, std::size_t commands = 0);
// What the shell is asked between the parts of its answer: no command, so that it prints the word.
std::string part_mark(std::size_t part);

}  // namespace frr

// The routing suite of this router, asked through its shell, for commands that compare it with the kernel or
// with the daemon.
#pragma once

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "cli/output/json_list.h"

namespace cli {

class Suite {
 public:
  // `shell`: the shell and its options, such as "/usr/bin/vtysh -N pe1". `patience`: for an answer.
  explicit Suite(const std::string& shell, std::chrono::milliseconds patience);

  // What the command prints. Failure(kExitFailed) if the shell cannot be run, connects to no program or does
  // not answer in time.
  std::string ask(const std::string& command) const;
  // Failure(kExitFailed) also for an answer that is not JSON.
  Json ask_json(const std::string& command) const;

  struct Answers {
    std::size_t count;    // of the commands, from the first one on
    std::string problem;  // why the next one has no answer; empty: all have
  };
  // Asks all commands, whose answers are JSON objects, in one run of the shell. take() gets each answer when
  // it arrives, with the number of its command; an answer that is not JSON is discarded (is_discarded()). It
  // must not throw.
  Answers ask_each(const std::vector<std::string>& commands, std::chrono::milliseconds patience,
                   const std::function<void(std::size_t, const Json&)>& take) const;

  // For an answer.
  std::chrono::milliseconds patience() const { return patience_; }

  // Whether the program runs. Failure(kExitFailed) as of ask(), and for one that runs and that the shell does
  // not reach in the time for an answer.
  bool runs(const std::string& program) const;

  // The folders of the suite's sockets and of its saved configuration, as its shell finds them.
  std::string socket_folder() const;
  std::string configuration_folder() const;
  // The shell's words before a command, for messages and quoted for a shell: "vtysh -N pe1".
  std::string words() const;

 private:
  // Those that the shell reaches: "zebra", "bgpd".
  std::set<std::string> programs() const;

  std::vector<std::string> shell_;
  std::chrono::milliseconds patience_;
};

}  // namespace cli

// The routing suite of this router, asked through its shell, for commands that compare it with the kernel or
// with the daemon.
#pragma once

#include <chrono>
#include <set>
#include <string>
#include <vector>

#include "cli/output/json_list.h"

namespace cli {

class Suite {
 public:
  // `shell`: the shell and its options, such as "/usr/bin/vtysh -N pe1".
  explicit Suite(const std::string& shell);

  // What the command prints. Failure(kExitFailed) if the shell cannot be run, connects to no program or does
  // not answer within ten seconds.
  std::string ask(const std::string& command) const;
  // Failure(kExitFailed) also for an answer that is not JSON.
  Json ask_json(const std::string& command) const;

  // The programs of the suite that the shell reaches: "zebra", "bgpd". Failures as of ask().
  std::set<std::string> programs() const;

  // The folders of the suite's sockets and of its saved configuration, as its shell finds them.
  std::string socket_folder() const;
  std::string configuration_folder() const;
  // The shell's words before a command, for messages and quoted for a shell: "vtysh -N pe1".
  std::string words() const;

 private:
  std::string option(const char* name) const;

  std::vector<std::string> shell_;
};

}  // namespace cli

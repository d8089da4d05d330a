// What the source knows of one program of the suite. Only for this folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/evm/evm.h"
#include "sources/frr/config_nodes.h"
#include "sources/frr/conversation.h"

namespace frr {

inline constexpr std::uint64_t kFirstPause = 1'000'000'000;  // of a program that does not answer; doubles

struct Follower {
  Follower(std::size_t at, const std::vector<std::string>& shell, const Conversation::Limits& limits)
      : place(at), program(kPrograms[at]), conversation(shell, program.name, limits) {}

  const std::size_t place;  // in kPrograms
  const Program& program;
  Conversation conversation;
  EventTimerId timer = 0;
  std::uint64_t asked = 0;  // time on the monotonic clock
  bool loss_logged = false;
  bool answering = false;             // its last answer was whole
  bool answered = false;              // at least once, possibly to an earlier process
  std::uint64_t pause = kFirstPause;  // before the next question, while it does not answer

  std::string text{};                   // of the last whole answer
  std::vector<std::string> commands{};  // asked after the configuration
  std::vector<std::string> shown{};     // what they printed
  bool exports = true;                  // include those that print VPN routes
  bool asked_twice = false;             // the last answer was not used: the commands had changed
  std::uint64_t text_since = 0;
  bool settling = true;
  bool unknown = false;           // the suite has no such program
  bool known = false;             // the shell has answered whether it has, since another program started
  bool failed = false;            // it was asked and has never answered
  std::uint64_t last_answer = 0;  // clock_stamp() of the last whole one
  std::string version{};          // of that answer
  std::string problem{};          // why the last answer was not whole
  std::string left_out{};         // which of its lines are not applied
  std::optional<RunningConfig> config{};
  std::uint64_t router_changes = 0;  // when the nodes were computed
  Nodes nodes{};                     // of the last whole answer
  Nodes derived{};                   // of the last whole answer
};

}  // namespace frr

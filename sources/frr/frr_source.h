// The VPN configuration of the routing suite FRR on this router, kept in the configuration tree under the
// owner "frr", and the RDs and route targets that the suite derives itself (derived.h), under the owner
// "frr-derived".
//
// Each program of the suite (config_nodes.h) is asked for its running configuration once in an interval, by a
// conversation of its own. The tree holds what any of them says. A program that does not answer keeps its
// last known configuration, over restarts of this process too: it is in the tree.
//
// A program that has just been started has no configuration yet, or a part of it: the suite loads it
// afterwards, when all of its programs are up. So what a new conversation leaves out is not believed until it
// has said everything that was known before, or the same for a while: shorter when it says something, longer
// when it says nothing at all. What it adds or changes counts at once. A restart of the suite is no change of
// configuration.
//
// An upgrade of the suite can move an item from one program to another. So what was left out after a gap is
// removed only when every program that could still say it is believed: mgmtd, where the suite has it, and the
// earlier program, if it answers. Outside of a gap, what a program no longer says is removed at once.
//
// Main thread. Nothing blocks: see conversation.h.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "sources/frr/config_nodes.h"
#include "sources/frr/conversation.h"
#include "sources/source.h"

class FrrSource : public Source {
 public:
  struct Options {
    std::vector<std::string> shell{"/usr/bin/vtysh"};  // with arguments before "-d PROGRAM"
    bool wanted = false;                               // a suite that cannot be followed is logged
    std::uint64_t interval = 1'000'000'000;            // nanoseconds between an answer and the next question
    std::uint64_t settling = 10'000'000'000;           // how long it must say the same
    std::uint64_t settling_empty = 60'000'000'000;     // ... when that is nothing
    std::uint64_t longest_pause = 15'000'000'000;      // of a program that never answered
    std::uint64_t longest_pause_of_lost = 4'000'000'000;  // of one that does not answer any more
    frr::Conversation::Limits limits{};
  };

  // The router must outlive the source.
  FrrSource(const router::Router* router, Options options);
  ~FrrSource() override;

  // Takes from the tree what the suite configured in the daemon's earlier lives.
  [[nodiscard]] Status load(std::string* error) override;
  // Starts to ask. The manager must outlive the source. kStatusExists when it was started before. Fault point
  // "frr_source_start".
  [[nodiscard]] Status start(EventManager* manager) override;
  std::string describe() const override { return "the routing suite"; }

  // How many programs were asked and have not answered yet.
  std::size_t awaited_answers() const;

  // For a router that does not follow the suite: removes what the suite configured.
  [[nodiscard]] static Status release(std::string* error);

 private:
  struct Follower;

  void ask(Follower& follower);
  void ask_later(Follower& follower, std::uint64_t nanoseconds);
  void ask_silent_again();
  void hear(Follower& follower, const frr::Answer& answer);
  void lose(Follower& follower, const std::string& reason, bool unknown);
  void log_loss(Follower& follower, const std::string& reason);
  bool take(Follower& follower, const frr::Answer& answer);
  static void parse(Follower& follower, const frr::Answer& answer);
  void begin(Follower& follower);
  void settle(Follower& follower);
  bool misses_nothing(const Follower& follower) const;
  bool said_long_enough(const Follower& follower) const;
  void derive(Follower& follower, frr::Nodes* said);
  frr::Nodes said(bool by_lost_programs) const;
  bool is_awaited(std::string_view path) const;
  void follow(const Follower& follower, const frr::Nodes& removed);
  void commit(const Follower& follower, frr::Nodes nodes);
  void commit_derived(frr::Nodes nodes);
  std::uint64_t pause_after(const Follower& follower, std::uint64_t took) const;

  const router::Router* router_;
  Options options_;
  EventManager* manager_ = nullptr;
  std::array<std::unique_ptr<Follower>, frr::kProgramCount> followers_;
  Follower* management_ = nullptr;  // of mgmtd; one of them
  frr::Nodes held_{};               // what the tree should have
  bool written_ = true;             // the tree has it
  bool absence_said_ = false;
  frr::Nodes derived_{};         // what the tree should have as derived
  bool derived_written_ = true;  // the tree has it
};

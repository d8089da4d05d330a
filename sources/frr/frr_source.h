// Follows the VPN configuration of the routing suite FRR on this router into the configuration tree, under
// the owner "frr", and the RDs and route targets that the suite derives itself (derived.h), under the owner
// "frr-derived".
//
// Each program of the suite (config_nodes.h) is asked for its running configuration once per interval, in a
// conversation of its own. The tree contains the nodes of all of them. The last known configuration of a
// program that does not answer stays in the tree, also across restarts of this process.
//
// A program that has just been started has no configuration, or only a part: the suite loads it later, when
// all programs run. So after the start of a conversation nothing is removed until the program has settled,
// which means that it has reported everything that was known before, or has reported the same for a while (a
// longer while if that is nothing). Additions and changes apply at once. Restarting the suite does not change
// the configuration.
//
// An upgrade of the suite can move an item from one program to another. So an item that is missing after a
// gap is removed only when every program that could still report it has settled: mgmtd, where the suite has
// it, and the earlier program, if it answers. Without a gap, an item that a program no longer reports is
// removed at once.
//
// Main thread. Nothing blocks: see conversation.h. What an answer changes is computed on a thread, one answer
// after the other.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/worker.h"
#include "platform/router/model/router.h"
#include "sources/frr/config_nodes.h"
#include "sources/frr/conversation.h"
#include "sources/frr/shell/folders.h"
#include "sources/frr/sockets.h"
#include "sources/source.h"

namespace frr {
struct Follower;
}  // namespace frr

class FrrSource : public Source {
 public:
  struct Options {
    std::vector<std::string> shell{"/usr/bin/vtysh"};  // with arguments before "-d PROGRAM"
    bool wanted = false;                               // log a suite that cannot be followed
    std::uint64_t interval = 1'000'000'000;            // nanoseconds between an answer and the next question
    std::uint64_t settling = 10'000'000'000;           // how long it must report the same
    std::uint64_t settling_empty = 60'000'000'000;     // ... when that is nothing
    std::uint64_t longest_pause = 15'000'000'000;      // of a program that never answered
    std::uint64_t longest_pause_of_lost = 4'000'000'000;  // of one that stopped answering
    frr::Conversation::Limits limits{};
    std::string sockets = frr::kSocketFolder;  // of the suite's programs, but for what the shell's words say
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
  std::string state() const override;
  // The programs that have answered, to this process or to an earlier one. If none has, the suite itself if
  // it is to be followed, or runs and may not be asked. And what cannot be written to the configuration.
  std::vector<process_status::SourceFact> facts() const override;

  // How many questions are not answered yet, or have answers that are not in the tree.
  std::size_t pending_answers() const;

  // For a router that does not follow the suite: removes what the suite configured.
  [[nodiscard]] static Status remove_configured(std::string* error);

 private:
  using Follower = frr::Follower;
  // What the tree should contain of an owner.
  struct Owned {
    std::string_view owner;
    std::shared_ptr<const frr::Nodes> nodes = std::make_shared<const frr::Nodes>();
    bool written = true;    // the tree contains it
    std::string problem{};  // ... or why not
  };
  struct Write {
    Owned* owned;
    std::string comment;
    std::string what;
  };

  bool is_known_to_be_away(const Follower& follower) const;
  void ask(Follower& follower);
  void ask_later(Follower& follower, std::uint64_t nanoseconds);
  void ask_lost_programs();
  void on_answer(Follower& follower, frr::Answer answer);
  void on_loss(Follower& follower, const std::string& reason, bool unknown);
  void log_loss(Follower& follower, const std::string& reason);
  std::string problem_of(const Follower& follower) const;
  void log_permission(const Follower& follower, const std::string& reason);
  void begin_processing(std::function<void()> process);
  void end_processing();
  void take(Follower& follower, const std::shared_ptr<const frr::Answer>& answer);
  void take_commands(Follower& follower, bool same_text);
  void compute(std::function<void()> work);
  void write_next();
  void written(const Write& write, Status status, const std::string& error);
  static bool parse(Follower& follower, const frr::Answer& answer);
  void settle(Follower& follower, std::optional<frr::Nodes> now);
  bool is_complete(const Follower& follower) const;
  bool is_stable(const Follower& follower) const;
  void derive(Follower& follower, frr::Nodes* nodes);
  frr::Nodes reported(bool by_lost_programs) const;
  bool may_be_reported(std::string_view path) const;
  void update_tree(const Follower& follower, const frr::Nodes& removed);
  void commit(Owned* owned, frr::Nodes nodes, const std::string& comment, const std::string& what);
  std::uint64_t pause_after(const Follower& follower, std::uint64_t took) const;

  const router::Router* router_;
  Options options_;
  EventManager* manager_ = nullptr;
  std::array<std::unique_ptr<Follower>, frr::kProgramCount> followers_;
  Follower* management_ = nullptr;  // the one of mgmtd
  Owned configured_;
  Owned derived_;
  bool absence_logged_ = false;
  bool permission_logged_ = false;
  std::string missing_permission_;  // and what adds it, while no program answers for want of it
  // Answers are processed one after the other. Meanwhile the thread has the followers' nodes, and what is
  // owned.
  std::deque<std::function<void()>> answers_;  // to be processed; the first is
  std::function<void()> after_processing_;
  std::deque<Write> writes_;  // of the answer that is being processed
  std::shared_ptr<FrrSource*> self_ = std::make_shared<FrrSource*>(this);
  std::unique_ptr<EventWorker> worker_;  // last: it uses the others
};

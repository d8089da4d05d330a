// There is one follower per program. update_tree() merges what each of them reported last.
//
// An answer is parsed on the thread. Then the loop determines the further commands and the nodes that depend
// on the router, the thread computes what the tree should contain, and the data store makes the commits. Only
// then is the next answer processed, so the thread never shares what it uses.
//
// An unchanged text is only compared. A changed one is parsed at once. Nodes that depend on the router's
// addresses are computed again when the router has changed. The pause before the next question grows with the
// time that the last answer took, so that a large configuration takes at most a fifth of a CPU. (A thousand
// VRFs take 0.05 s; starting the shell takes another 0.15 s, which does not count.)
#include "sources/frr/frr_source.h"

#include <algorithm>
#include <utility>

#include "platform/config/owners.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "sources/frr/follower.h"

using frr::Answer;
using frr::Nodes;

namespace {

constexpr std::uint64_t kPausePerTime = 4;  // a pause is this many times the duration of the answer

}  // namespace

FrrSource::FrrSource(const router::Router* router, Options options)
    : router_(router),
      options_(std::move(options)),
      configured_{kConfigOwnerFrr},
      derived_{kConfigOwnerFrrDerived} {
  for (std::size_t i = 0; i < followers_.size(); ++i) {
    followers_[i] = std::make_unique<Follower>(i, options_.shell, options_.limits);
    if (frr::kPrograms[i].name == frr::kManagementProgram) management_ = followers_[i].get();
  }
}

std::string FrrSource::state() const {
  std::string names;
  std::size_t count = 0;
  for (const auto& follower : followers_) {
    if (!follower->answering) continue;
    if (count++ > 0) names += ", ";
    names += follower->program.name;
  }
  if (count == 0) return "no program of FRR answers";
  return "FRR: " + names + (count == 1 ? " answers" : " answer");
}

std::vector<process_status::SourceFact> FrrSource::facts() const {
  std::vector<process_status::SourceFact> facts;
  for (const auto& each : followers_) {
    if (!each->answered) continue;
    facts.push_back({std::string(each->program.name), each->version, each->answering,
                     each->last_answer / kNanosecondsPerSecond, problem_of(*each)});
  }
  if (facts.empty() && (options_.wanted || !missing_permission_.empty()))
    facts.push_back({"frr", "", false, 0, problem_of(*followers_.front())});
  for (const Owned* owned : {&configured_, &derived_}) {
    if (!owned->problem.empty()) facts.push_back({"frr configuration", "", false, 0, owned->problem});
  }
  return facts;
}

std::string FrrSource::problem_of(const Follower& follower) const {
  if (follower.answering) return follower.left_out;
  return missing_permission_.empty() ? follower.problem : missing_permission_;
}

FrrSource::~FrrSource() {
  for (const auto& follower : followers_) {
    if (follower->timer != 0) event_timer_cancel(manager_, follower->timer);
  }
}

Status FrrSource::start(EventManager* manager) {
  if (const Status status = fault_check("frr_source_start")) return status;
  if (manager_ != nullptr) return kStatusExists;
  manager_ = manager;
  worker_ = std::make_unique<EventWorker>(manager);
  for (const auto& follower : followers_) ask_later(*follower, 0);
  return kStatusOk;
}

std::size_t FrrSource::pending_answers() const {
  const auto awaits = [](const auto& follower) { return follower->conversation.awaits_answer(); };
  return answers_.size() +
         static_cast<std::size_t>(std::count_if(followers_.begin(), followers_.end(), awaits));
}

Status FrrSource::remove_configured(std::string* error) {
  constexpr char kComment[] = "the routing suite is not followed";
  Status status = kvtree_config_replace(kConfigOwnerFrrDerived, {}, kComment);
  if (!status) status = kvtree_config_replace(kConfigOwnerFrr, {}, kComment);
  if (status)
    *error = std::string("cannot remove the configuration of the routing suite: ") + err_text(status);
  return status;
}

Status FrrSource::load(std::string* /*error*/) {
  for (Owned* owned : {&configured_, &derived_}) {
    Nodes nodes;
    kvtree_config_owned(owned->owner, [&nodes](const KvConfigNode& node) { nodes.push_back(node); });
    owned->nodes = std::make_shared<const Nodes>(std::move(nodes));
  }
  for (const KvConfigNode& node : *configured_.nodes) {
    const auto programs = frr::programs_of(node.path);
    for (const auto& follower : followers_) follower->answered |= programs[follower->place];
  }
  return kStatusOk;
}

void FrrSource::ask_later(Follower& follower, std::uint64_t nanoseconds) {
  follower.timer = event_timer_start(manager_, nanoseconds, [this, &follower] { ask(follower); });
}

// A start of the shell takes 0.1 s of a CPU, and PAM logs a line for a user who may not read passwords.
bool FrrSource::is_known_to_be_away(const Follower& follower) const {
  return follower.known && !follower.answering &&
         frr::runs_without(frr::socket_folder(options_.shell, options_.sockets), follower.program.name);
}

void FrrSource::ask(Follower& follower) {
  follower.timer = 0;
  if (is_known_to_be_away(follower)) return ask_later(follower, follower.pause);
  follower.asked = clock_monotonic();
  const auto received = [this, &follower](Answer answer) { on_answer(follower, std::move(answer)); };
  const Status status = follower.conversation.ask(manager_, received, follower.commands);
  if (!status) return;
  Answer failure;
  failure.reason = err_text(status);
  on_answer(follower, std::move(failure));
}

void FrrSource::on_answer(Follower& follower, Answer answer) {
  begin_processing([this, &follower, shared = std::make_shared<const Answer>(std::move(answer))] {
    after_processing_ = [this, &follower, first = shared->first] {
      ask_later(follower, pause_after(follower, first ? 0 : clock_monotonic() - follower.asked));
    };
    if (shared->too_large && !follower.commands.empty()) {
      follower.exports = false;
      follower.commands.clear();
    }
    if (shared->whole) {
      take(follower, shared);
    } else {
      on_loss(follower, shared->reason, shared->unknown);
    }
  });
}

void FrrSource::begin_processing(std::function<void()> process) {
  answers_.push_back(std::move(process));
  if (answers_.size() == 1) std::function<void()>(answers_.front())();
}

void FrrSource::end_processing() {
  std::exchange(after_processing_, nullptr)();
  answers_.pop_front();
  if (!answers_.empty()) std::function<void()>(answers_.front())();
}

// Computes on the thread what is to be written, and writes it.
void FrrSource::compute(std::function<void()> work) {
  worker_->run(std::move(work), [this] { write_next(); });
}

std::uint64_t FrrSource::pause_after(const Follower& follower, std::uint64_t took) const {
  if (!follower.answering) return follower.pause;
  return std::max(options_.interval, took * kPausePerTime);
}

// The suite was started, possibly in another version.
void FrrSource::ask_lost_programs() {
  for (const auto& follower : followers_) {
    const bool is_lost = follower->answered && !follower->answering;
    if ((!follower->unknown && !is_lost) || follower->timer == 0) continue;
    follower->known = false;
    follower->pause = options_.interval;
    event_timer_cancel(manager_, follower->timer);
    ask_later(*follower, std::exchange(follower->unknown, false) ? 0 : options_.interval);
  }
}

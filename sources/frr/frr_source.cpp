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

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "platform/config/owners.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "sources/frr/derived.h"

using frr::Answer;
using frr::by_path;
using frr::Nodes;
using frr::Program;

namespace {

constexpr std::uint64_t kPausePerTime = 4;            // a pause is this many times the duration of the answer
constexpr std::size_t kErrorsLogged = 10;             // of one text
constexpr std::uint64_t kFirstPause = 1'000'000'000;  // of a program that does not answer; doubles

// The nodes of `known` whose paths are not in `reported`.
Nodes left_out(const Nodes& known, const Nodes& reported) {
  Nodes missing;
  std::set_difference(known.begin(), known.end(), reported.begin(), reported.end(),
                      std::back_inserter(missing), by_path);
  return missing;
}

// The nodes of both; of two nodes with the same path, that of `right`.
Nodes merged(const Nodes& left, const Nodes& right) {
  Nodes all;
  std::set_union(right.begin(), right.end(), left.begin(), left.end(), std::back_inserter(all), by_path);
  return all;
}

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

void log_errors(const Program& program, const std::vector<frr::LineError>& errors) {
  for (std::size_t i = 0; i < std::min(errors.size(), kErrorsLogged); ++i) {
    log_warning("frr", "%s, line %zu of its running configuration: %s; the item is left out",
                program.name.data(), errors[i].line, errors[i].what.c_str());
  }
  if (errors.size() > kErrorsLogged) {
    log_warning("frr", "%s: %zu more such lines", program.name.data(), errors.size() - kErrorsLogged);
  }
}

std::string describe_errors(const std::vector<frr::LineError>& errors) {
  if (errors.empty()) return "";
  const std::string more = errors.size() == 1 ? "" : ", and " + std::to_string(errors.size() - 1) + " more";
  return "line " + std::to_string(errors.front().line) +
         " of its running configuration is left out: " + errors.front().what + more;
}

}  // namespace

struct FrrSource::Follower {
  Follower(std::size_t at, const FrrSource::Options& options)
      : place(at), program(frr::kPrograms[at]), conversation(options.shell, program.name, options.limits) {}

  const std::size_t place;  // in frr::kPrograms
  const Program& program;
  frr::Conversation conversation;
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
  std::optional<frr::RunningConfig> config{};
  std::uint64_t router_changes = 0;  // when the nodes were computed
  Nodes nodes{};                     // of the last whole answer
  Nodes derived{};                   // of the last whole answer
};

FrrSource::FrrSource(const router::Router* router, Options options)
    : router_(router),
      options_(std::move(options)),
      configured_{kConfigOwnerFrr},
      derived_{kConfigOwnerFrrDerived} {
  for (std::size_t i = 0; i < followers_.size(); ++i) {
    followers_[i] = std::make_unique<Follower>(i, options_);
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

void FrrSource::on_loss(Follower& follower, const std::string& reason, bool unknown) {
  const bool was_answering = std::exchange(follower.answering, false);
  follower.failed = !follower.config.has_value();
  follower.known = true;
  follower.problem = reason;
  if (unknown) {
    follower.answered = false;
    follower.nodes.clear();
  }
  log_loss(follower, reason);
  const std::uint64_t longest = follower.answered ? options_.longest_pause_of_lost : options_.longest_pause;
  follower.pause = was_answering ? options_.interval : std::min(follower.pause * 2, longest);
  if (std::exchange(follower.unknown, unknown) == unknown) return end_processing();
  compute([this, &follower] { update_tree(follower, {}); });
}

// Logs each loss once, and a suite without any program once: many routers run only a part of the suite.
void FrrSource::log_loss(Follower& follower, const std::string& reason) {
  log_permission(follower, reason);
  if (follower.answered && !follower.loss_logged) {
    log_warning("frr", "%s does not answer (%s); its last known configuration stays",
                follower.program.name.data(), reason.c_str());
  }
  follower.loss_logged = follower.answered;
  const auto failed = [](const auto& each) { return each->failed; };
  if (!options_.wanted || absence_logged_ || !std::all_of(followers_.begin(), followers_.end(), failed))
    return;
  absence_logged_ = true;
  log_error("frr",
            "no program of the routing suite answers through '%s' (%s); start the suite or correct 'frr' in "
            "platform.yaml",
            joined(options_.shell).c_str(), reason.c_str());
}

// A program that runs and may not be asked is logged whatever the setting is, once for all programs.
void FrrSource::log_permission(const Follower& follower, const std::string& reason) {
  if (permission_logged_ || geteuid() == 0) return;
  const std::string missing = frr::missing_permission(frr::socket_folder(options_.shell, options_.sockets),
                                                      follower.program.name, reason);
  if (missing.empty()) return;
  permission_logged_ = true;
  missing_permission_ = missing + " and restart the daemon";
  log_error("frr", "%s is not followed: %s and restart the daemon, or set 'frr: false' in platform.yaml",
            follower.program.name.data(), missing.c_str());
}

std::uint64_t FrrSource::pause_after(const Follower& follower, std::uint64_t took) const {
  if (!follower.answering) return follower.pause;
  return std::max(options_.interval, took * kPausePerTime);
}

// The program may have been started since its last answer.
void FrrSource::take(Follower& follower, const std::shared_ptr<const Answer>& answer) {
  if (!follower.answering) log_notice("frr", "%s answers", follower.program.name.data());
  follower.answering = follower.answered = true;
  follower.unknown = follower.failed = follower.loss_logged = false;
  follower.last_answer = clock_stamp();
  follower.problem.clear();
  missing_permission_.clear();
  if (answer->first) ask_lost_programs();
  const auto same_text = std::make_shared<bool>(false);
  worker_->run(
      [&follower, answer, same_text] {
        if (answer->first) follower.nodes.clear();
        follower.settling = follower.settling || answer->first;
        *same_text = parse(follower, *answer);
      },
      [this, &follower, same_text] { take_commands(follower, *same_text); });
}

// When the configuration needs other commands than those that were asked with it, both are asked again, so
// that derived items and the configuration that they derive from belong together.
void FrrSource::take_commands(Follower& follower, bool same_text) {
  follower.version = follower.config->version;
  follower.left_out = describe_errors(follower.config->errors);
  std::vector<std::string> commands = frr::derived_commands(*follower.config, follower.exports);
  if (commands != std::exchange(follower.commands, commands)) {
    if (!std::exchange(follower.asked_twice, true))
      after_processing_ = [this, &follower] { ask_later(follower, 0); };
    return end_processing();
  }
  follower.asked_twice = false;
  const bool same_router = !follower.program.needs_router || follower.router_changes == router_->changes();
  const bool written = configured_.written && derived_.written;
  if (same_text && same_router && !follower.settling && written) return end_processing();
  follower.router_changes = router_->changes();
  std::optional<Nodes> now;
  if (follower.program.needs_router) now = follower.program.nodes(*follower.config, *router_);
  compute([this, &follower, now = std::move(now)]() mutable { settle(follower, std::move(now)); });
}

// Reads the derived items and removes from `nodes` those that they make ineffective.
void FrrSource::derive(Follower& follower, Nodes* nodes) {
  if (follower.program.name != frr::kDerivingProgram) return;
  std::optional<frr::Derived> derived =
      frr::derive(*follower.config, follower.exports, follower.shown, *nodes);
  if (!derived) {
    log_warning("frr", "%s: cannot read its derived items; the previous ones stay",
                follower.program.name.data());
    return;
  }
  for (const std::string& error : derived->errors) {
    log_warning("frr", "%s: %s; the item is left out", follower.program.name.data(), error.c_str());
  }
  std::erase_if(*nodes, [&derived](const KvConfigNode& node) {
    return std::binary_search(derived->ineffective.begin(), derived->ineffective.end(), node.path);
  });
  follower.derived = std::move(derived->nodes);
}

// True for the same text as before, which is not parsed again.
bool FrrSource::parse(Follower& follower, const Answer& answer) {
  const bool same_text =
      follower.config.has_value() && follower.text == answer.configuration && follower.shown == answer.shown;
  if (!same_text || answer.first) follower.text_since = clock_monotonic();
  if (same_text) return true;
  follower.text = answer.configuration;
  follower.shown = answer.shown;
  follower.config = frr::parse_running_config(follower.text);
  log_errors(follower.program, follower.config->errors);
  return false;
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

// Takes the nodes of the answer, computed now if they do not depend on the router, and decides whether
// missing ones are removed.
void FrrSource::settle(Follower& follower, std::optional<Nodes> now) {
  if (!now) now = follower.program.nodes(*follower.config, *router_);
  derive(follower, &*now);
  const Nodes before = std::exchange(follower.nodes, std::move(*now));
  const Nodes removed = follower.settling ? Nodes{} : left_out(before, follower.nodes);
  const bool derives = follower.program.name == frr::kDerivingProgram;
  const Nodes underived = derives ? left_out(*derived_.nodes, follower.derived) : Nodes{};
  if ((is_complete(follower) && underived.empty()) || is_stable(follower)) follower.settling = false;
  if (derives) {
    commit(&derived_, follower.settling ? merged(follower.derived, underived) : follower.derived,
           "derived by the routing suite", "what the routing suite derives");
  }
  for (const auto& each : followers_) {  // a lost program cannot retain what another one has removed
    if (!each->answering) each->nodes = left_out(each->nodes, removed);
  }
  update_tree(follower, removed);
}

// Whether the programs that answer report everything that was known of this one.
bool FrrSource::is_complete(const Follower& follower) const {
  const Nodes missing = left_out(*configured_.nodes, reported(false));
  return std::none_of(missing.begin(), missing.end(), [&follower](const KvConfigNode& node) {
    return frr::owns(follower.program, node.path);
  });
}

// Whether the program has reported the same for long enough.
bool FrrSource::is_stable(const Follower& follower) const {
  const bool nothing = follower.nodes.empty() && follower.derived.empty();
  return clock_monotonic() - follower.text_since >= (nothing ? options_.settling_empty : options_.settling);
}

// The nodes of the programs that answer, or the last nodes of those that do not.
Nodes FrrSource::reported(bool by_lost_programs) const {
  Nodes all;
  for (const auto& follower : followers_) {
    if (follower->answering != by_lost_programs) all = merged(all, follower->nodes);
  }
  return all;
}

// Whether a program that is lost or settling may still report the node.
bool FrrSource::may_be_reported(std::string_view path) const {
  const auto programs = frr::programs_of(path);
  const bool is_managed = !management_->unknown && programs[management_->place];
  return std::any_of(followers_.begin(), followers_.end(), [&](const auto& follower) {
    if (follower->unknown || !programs[follower->place]) return false;
    if (follower->answering) return follower->settling;
    return !is_managed || follower.get() == management_;
  });
}

// Commits what is reported now, and retains what was not `removed` and may still be reported.
void FrrSource::update_tree(const Follower& follower, const Nodes& removed) {
  const Nodes nodes = merged(reported(true), reported(false));
  Nodes retained = left_out(left_out(*configured_.nodes, nodes), removed);
  std::erase_if(retained, [this](const KvConfigNode& node) { return !may_be_reported(node.path); });
  const std::string program(follower.program.name);
  commit(&configured_, merged(nodes, retained), program + ": running configuration",
         "the configuration of " + program);
}

void FrrSource::commit(Owned* owned, Nodes nodes, const std::string& comment, const std::string& what) {
  if (owned->written && nodes == *owned->nodes) return;
  owned->nodes = std::make_shared<const Nodes>(std::move(nodes));
  writes_.push_back({owned, comment, what});
}

// Makes the commits, one after the other.
void FrrSource::write_next() {
  if (writes_.empty()) return end_processing();
  const Write write = std::move(writes_.front());
  writes_.pop_front();
  kvtree_config_begin_replacement(
      manager_, write.owned->owner, write.owned->nodes, write.comment,
      [weak = std::weak_ptr(self_), write](Status status, const std::string&, const std::string& error) {
        FrrSource* const source = weak.expired() ? nullptr : *weak.lock();
        if (source != nullptr) source->written(write, status, error);
      });
}

void FrrSource::written(const Write& write, Status status, const std::string& error) {
  if (status && write.owned->written) {
    log_error("frr", "cannot write %s: %s", write.what.c_str(),
              error.empty() ? err_text(status) : error.c_str());
  }
  write.owned->written = !status;
  write.owned->problem =
      status ? "cannot write " + write.what + ": " + (error.empty() ? err_text(status) : error) : "";
  write_next();
}

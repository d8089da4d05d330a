// See frr_source.h. One follower a program; they meet in follow(), which works out what the suite holds from
// what each of them said last.
//
// An unchanged text costs its reading and a comparison. A changed one is parsed at once; programs whose nodes
// depend on the router's addresses are worked out again when the router changed. The pause before the next
// question grows with the time that the last answer took, so that a large configuration takes a fifth of a
// CPU at most. (A thousand VRFs take 0.05 s, 0.2 s with the start of the shell, which does not count.)
#include "sources/frr/frr_source.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "sources/frr/derived.h"

using frr::Answer;
using frr::Nodes;
using frr::Program;

namespace {

constexpr std::uint64_t kPausePerTime = 4;            // a pause is this many times as long as the answer took
constexpr std::size_t kMistakesLogged = 10;           // of one text
constexpr std::uint64_t kFirstPause = 1'000'000'000;  // of a program that does not answer; doubles

bool by_path(const KvConfigNode& left, const KvConfigNode& right) {
  return left.path < right.path;
}

// Everything of `known` that `said` has no node for.
Nodes left_out(const Nodes& known, const Nodes& said) {
  Nodes missing;
  std::set_difference(known.begin(), known.end(), said.begin(), said.end(), std::back_inserter(missing),
                      by_path);
  return missing;
}

// Both; of two nodes with one path the right one.
Nodes merged(const Nodes& left, const Nodes& right) {
  Nodes all;
  std::set_union(right.begin(), right.end(), left.begin(), left.end(), std::back_inserter(all), by_path);
  return all;
}

const std::vector<std::string>& derived_scopes() {
  static const std::vector<std::string> scopes{std::string(vrf_config::kVrfScope)};
  return scopes;
}

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

void log_mistakes(const Program& program, const std::vector<frr::Mistake>& mistakes) {
  for (std::size_t i = 0; i < std::min(mistakes.size(), kMistakesLogged); ++i) {
    log_line("frr: %s, line %zu of its running configuration: %s; the item is left out", program.name.data(),
             mistakes[i].line, mistakes[i].what.c_str());
  }
  if (mistakes.size() > kMistakesLogged) {
    log_line("frr: %s: %zu more such lines", program.name.data(), mistakes.size() - kMistakesLogged);
  }
}

}  // namespace

struct FrrSource::Follower {
  Follower(const Program& followed, const FrrSource::Options& options)
      : program(followed), conversation(options.shell, followed.name, options.limits) {}

  const Program& program;
  frr::Conversation conversation;
  EventTimerId timer = 0;
  std::uint64_t asked = 0;  // when, on the monotonic clock
  bool silence_said = false;
  bool answering = false;             // its last answer was whole
  bool answered = false;              // once, or in an earlier life
  std::uint64_t pause = kFirstPause;  // before the next question, while it does not answer

  std::string text{};                   // of the last whole answer
  std::vector<std::string> commands{};  // asked for behind the configuration
  std::vector<std::string> shown{};     // what they printed
  bool exports = true;                  // among them those that print VPN routes
  bool asked_twice = false;             // the last answer was not taken, since it had not all commands
  std::uint64_t text_since = 0;
  bool settling = true;
  bool unknown = false;  // the suite has no such program
  bool failed = false;   // it was asked and did not answer, and never has
  std::optional<frr::RunningConfig> config{};
  std::uint64_t router_changes = 0;  // at which the nodes were worked out
  Nodes said{};                      // of the last whole answer
  Nodes derived{};                   // what it says that it derives
};

FrrSource::FrrSource(const router::Router* router, Options options)
    : router_(router), options_(std::move(options)) {
  for (std::size_t i = 0; i < followers_.size(); ++i) {
    followers_[i] = std::make_unique<Follower>(frr::kPrograms[i], options_);
    if (frr::kPrograms[i].name == frr::kManagementProgram) management_ = followers_[i].get();
  }
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
  for (const auto& follower : followers_) ask_later(*follower, 0);
  return kStatusOk;
}

std::size_t FrrSource::awaited_answers() const {
  const auto awaits = [](const auto& follower) { return follower->conversation.awaits_answer(); };
  return static_cast<std::size_t>(std::count_if(followers_.begin(), followers_.end(), awaits));
}

Status FrrSource::release(std::string* error) {
  constexpr char kComment[] = "the routing suite is not followed";
  Status status = kvtree_config_replace(kConfigOwnerFrrDerived, derived_scopes(), {}, kComment);
  if (!status) status = kvtree_config_replace(kConfigOwnerFrr, frr::config_scopes(), {}, kComment);
  if (status)
    *error = std::string("cannot remove the configuration of the routing suite: ") + err_text(status);
  return status;
}

Status FrrSource::load(std::string* /*error*/) {
  for (const std::string& scope : frr::config_scopes()) {
    kvtree_config_owned(kConfigOwnerFrr, scope, [this](const KvConfigNode& node) {
      held_.push_back(node);
      for (const auto& follower : followers_) follower->answered |= follower->program.owns(node.path);
    });
  }
  std::sort(held_.begin(), held_.end(), by_path);
  kvtree_config_owned(kConfigOwnerFrrDerived, vrf_config::kVrfScope,
                      [this](const KvConfigNode& node) { derived_.push_back(node); });
  std::sort(derived_.begin(), derived_.end(), by_path);
  return kStatusOk;
}

void FrrSource::ask_later(Follower& follower, std::uint64_t nanoseconds) {
  follower.timer = event_timer_start(manager_, nanoseconds, [this, &follower] { ask(follower); });
}

void FrrSource::ask(Follower& follower) {
  follower.timer = 0;
  follower.asked = clock_monotonic();
  const auto heard = [this, &follower](const Answer& answer) { hear(follower, answer); };
  const Status status = follower.conversation.ask(manager_, heard, follower.commands);
  if (!status) return;
  lose(follower, err_text(status), false);
  ask_later(follower, pause_after(follower, 0));
}

void FrrSource::hear(Follower& follower, const Answer& answer) {
  if (answer.too_large && !follower.commands.empty()) {
    follower.exports = false;
    follower.commands.clear();
  }
  if (!answer.whole) {
    lose(follower, answer.reason, answer.unknown);
  } else if (!take(follower, answer) && !std::exchange(follower.asked_twice, true)) {
    return ask_later(follower, 0);
  }
  ask_later(follower, pause_after(follower, answer.first ? 0 : clock_monotonic() - follower.asked));
}

void FrrSource::lose(Follower& follower, const std::string& reason, bool unknown) {
  const bool was_answering = std::exchange(follower.answering, false);
  follower.failed = !follower.config.has_value();
  if (unknown) {
    follower.answered = false;
    follower.said.clear();
  }
  log_loss(follower, reason);
  const std::uint64_t longest = follower.answered ? options_.longest_pause_of_lost : options_.longest_pause;
  follower.pause = was_answering ? options_.interval : std::min(follower.pause * 2, longest);
  if (std::exchange(follower.unknown, unknown) != unknown) follow(follower, {});
}

// Said once: many routers run a part of the suite only.
void FrrSource::log_loss(Follower& follower, const std::string& reason) {
  if (follower.answered && !follower.silence_said) {
    log_line("frr: %s does not answer (%s); its last known configuration stays", follower.program.name.data(),
             reason.c_str());
  }
  follower.silence_said = follower.answered;
  const auto failed = [](const auto& each) { return each->failed; };
  if (!options_.wanted || absence_said_ || !std::all_of(followers_.begin(), followers_.end(), failed)) return;
  absence_said_ = true;
  log_line(
      "frr: no program of the routing suite answers through '%s' (%s); start the suite or correct 'frr' in "
      "platform.yaml",
      joined(options_.shell).c_str(), reason.c_str());
}

std::uint64_t FrrSource::pause_after(const Follower& follower, std::uint64_t took) const {
  if (!follower.answering) return follower.pause;
  return std::max(options_.interval, took * kPausePerTime);
}

// False when the configuration calls for other commands than those that were asked for with it: then both are
// asked for again, so that what is derived comes with the configuration that it is derived from.
bool FrrSource::take(Follower& follower, const Answer& answer) {
  if (!follower.answering) log_line("frr: %s answers", follower.program.name.data());
  follower.answering = follower.answered = true;
  follower.unknown = follower.failed = follower.silence_said = false;
  const bool same_text =
      follower.config.has_value() && follower.text == answer.configuration && follower.shown == answer.shown;
  if (!same_text) parse(follower, answer);
  if (!same_text || answer.first) follower.text_since = clock_monotonic();
  if (answer.first) begin(follower);
  std::vector<std::string> commands = frr::derived_commands(*follower.config, follower.exports);
  if (commands != std::exchange(follower.commands, commands)) return false;
  follower.asked_twice = false;
  const bool same_router = !follower.program.needs_router || follower.router_changes == router_->changes();
  const bool written = written_ && derived_written_;
  if (!same_text || !same_router || follower.settling || !written) settle(follower);
  return true;
}

// The program may have been started since it answered last.
void FrrSource::begin(Follower& follower) {
  follower.settling = true;
  follower.said.clear();
  ask_silent_again();
}

// What the program derives, and the configuration without what is not effective for that reason.
void FrrSource::derive(Follower& follower, Nodes* said) {
  if (follower.program.name != frr::kDerivingProgram) return;
  std::optional<frr::Derived> derived =
      frr::derive(*follower.config, follower.exports, follower.shown, *said);
  if (!derived) {
    log_line("frr: %s: what it derives cannot be read; what it derived before stays",
             follower.program.name.data());
    return;
  }
  for (const std::string& mistake : derived->mistakes) {
    log_line("frr: %s: %s; the item is left out", follower.program.name.data(), mistake.c_str());
  }
  std::erase_if(*said, [&derived](const KvConfigNode& node) {
    return std::binary_search(derived->ineffective.begin(), derived->ineffective.end(), node.path);
  });
  follower.derived = std::move(derived->nodes);
}

void FrrSource::parse(Follower& follower, const Answer& answer) {
  follower.text = answer.configuration;
  follower.shown = answer.shown;
  follower.config = frr::parse_running_config(follower.text);
  log_mistakes(follower.program, follower.config->mistakes);
}

// The suite was started, possibly another version of it.
void FrrSource::ask_silent_again() {
  for (const auto& follower : followers_) {
    const bool is_lost = follower->answered && !follower->answering;
    if ((!follower->unknown && !is_lost) || follower->timer == 0) continue;
    follower->pause = options_.interval;
    event_timer_cancel(manager_, follower->timer);
    ask_later(*follower, std::exchange(follower->unknown, false) ? 0 : options_.interval);
  }
}

// Takes what the program says, and decides whether what it leaves out is believed.
void FrrSource::settle(Follower& follower) {
  follower.router_changes = router_->changes();
  Nodes now = follower.program.nodes(*follower.config, *router_);
  derive(follower, &now);
  const Nodes before = std::exchange(follower.said, std::move(now));
  const Nodes removed = follower.settling ? Nodes{} : left_out(before, follower.said);
  const bool derives = follower.program.name == frr::kDerivingProgram;
  const Nodes underived = derives ? left_out(derived_, follower.derived) : Nodes{};
  if ((misses_nothing(follower) && underived.empty()) || said_long_enough(follower))
    follower.settling = false;
  if (derives) commit_derived(follower.settling ? merged(follower.derived, underived) : follower.derived);
  for (const auto& each : followers_) {  // what does not answer cannot keep what another one has removed
    if (!each->answering) each->said = left_out(each->said, removed);
  }
  follow(follower, removed);
}

// Whether the programs that answer say everything that was known of this one.
bool FrrSource::misses_nothing(const Follower& follower) const {
  const Nodes missing = left_out(held_, said(false));
  return std::none_of(missing.begin(), missing.end(),
                      [&follower](const KvConfigNode& node) { return follower.program.owns(node.path); });
}

bool FrrSource::said_long_enough(const Follower& follower) const {
  const bool nothing = follower.said.empty() && follower.derived.empty();
  return clock_monotonic() - follower.text_since >= (nothing ? options_.settling_empty : options_.settling);
}

void FrrSource::commit_derived(Nodes nodes) {
  if (derived_written_ && nodes == derived_) return;
  derived_ = std::move(nodes);
  std::string mistake;
  const Status status = kvtree_config_replace(kConfigOwnerFrrDerived, derived_scopes(), derived_,
                                              "derived by the routing suite", nullptr, &mistake);
  if (status && derived_written_) {
    log_line("frr: cannot write what the routing suite derives: %s: %s", err_text(status), mistake.c_str());
  }
  derived_written_ = !status;
}

// What the programs say that answer, or what the others said last.
Nodes FrrSource::said(bool by_lost_programs) const {
  Nodes all;
  for (const auto& follower : followers_) {
    if (follower->answering != by_lost_programs) all = merged(all, follower->said);
  }
  return all;
}

// Whether a program may still come with the node.
bool FrrSource::is_awaited(std::string_view path) const {
  const bool is_managed = !management_->unknown && management_->program.owns(path);
  return std::any_of(followers_.begin(), followers_.end(), [&](const auto& follower) {
    if (follower->unknown || !follower->program.owns(path)) return false;
    if (follower->answering) return follower->settling;
    return !is_managed || follower.get() == management_;
  });
}

// Brings the tree to what is said now, with what was held, is not `removed` and may still be said.
void FrrSource::follow(const Follower& follower, const Nodes& removed) {
  const Nodes nodes = merged(said(true), said(false));
  Nodes kept = left_out(left_out(held_, nodes), removed);
  std::erase_if(kept, [this](const KvConfigNode& node) { return !is_awaited(node.path); });
  commit(follower, merged(nodes, kept));
}

void FrrSource::commit(const Follower& follower, Nodes nodes) {
  if (written_ && nodes == held_) return;
  held_ = std::move(nodes);
  std::string mistake;
  const std::string comment = std::string(follower.program.name) + ": running configuration";
  const Status status =
      kvtree_config_replace(kConfigOwnerFrr, frr::config_scopes(), held_, comment, nullptr, &mistake);
  if (status && written_) {
    log_line("frr: cannot write the configuration of %s: %s: %s", follower.program.name.data(),
             err_text(status), mistake.c_str());
  }
  written_ = !status;
}

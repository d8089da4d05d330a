// The answers of programs: their texts become nodes.
#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "sources/frr/derived.h"
#include "sources/frr/follower.h"
#include "sources/frr/frr_source.h"

using frr::Answer;
using frr::Nodes;
using frr::Program;

namespace {

constexpr std::size_t kErrorsLogged = 10;  // of one text

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

// Programs that do not answer: how long the pauses are, and what is logged.
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/core/base/log.h"
#include "sources/frr/follower.h"
#include "sources/frr/frr_source.h"
#include "sources/frr/sockets.h"

namespace {

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

}  // namespace

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

// The candidate: edits that a user collects to commit them together. Each user has a file for each daemon,
// below $XDG_STATE_HOME/mplsvpn or ~/.local/state/mplsvpn. It has a comment with the newest commit when it
// was begun, then lines for parse_edits; without lines there is none.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "cli/config/config_edits.h"
#include "cli/session.h"

namespace cli {

// How long a command waits for another one that uses the candidate: a commit may take seconds. Tests shorten
// it.
inline std::chrono::milliseconds candidate_patience{30'000};

// The candidate for the session's daemon, locked for this process while the object exists.
// Failure(kExitFailed) when the file cannot be used.
class Candidate {
 public:
  explicit Candidate(const Session& session);
  // Drops the session's candidate, even one that cannot be read. How many lines it had; none without one.
  static std::optional<std::size_t> discard(const Session& session);
  ~Candidate();
  Candidate(const Candidate&) = delete;
  Candidate& operator=(const Candidate&) = delete;

  const std::vector<ConfigEdit>& edits() const { return edits_; }
  // The newest commit when it was begun; empty when unknown.
  const std::string& begun_after() const { return begun_after_; }
  // The first edits begin the candidate; `newest_commit` is its comment.
  void append(const std::vector<ConfigEdit>& edits, const std::string& newest_commit);
  void clear();

 private:
  Candidate() = default;
  // Opens and locks the file; its text.
  std::string open(const Session& session);
  std::string read() const;
  void lock() const;
  Failure failure(int error) const;

  std::string path_;
  int file_ = -1;
  std::string begun_after_;
  std::vector<ConfigEdit> edits_;
};

}  // namespace cli

// The candidate: edits that a person collects before they are committed together. A file of its owner's own
// for each daemon, below $XDG_STATE_HOME/mplsvpn (or ~/.local/state/mplsvpn), of lines as parse_edits reads
// them, below a comment with the newest commit when it was begun; one without lines is none.
#pragma once

#include <string>
#include <vector>

#include "cli/config/config_edits.h"
#include "cli/session.h"

namespace cli {

// The candidate of the session's daemon, locked for this process alone while this lives. Failure(kExitFailed)
// when the file cannot be used.
class Candidate {
 public:
  explicit Candidate(const Session& session);
  ~Candidate();
  Candidate(const Candidate&) = delete;
  Candidate& operator=(const Candidate&) = delete;

  const std::vector<ConfigEdit>& edits() const { return edits_; }
  // The newest commit when it was begun; empty when it was not told.
  const std::string& begun_after() const { return begun_after_; }
  // The first edits begin it, after this commit.
  void append(const std::vector<ConfigEdit>& edits, const std::string& newest_commit);
  void clear();

 private:
  std::string read() const;
  Failure failure(int error) const;

  std::string path_;
  int file_ = -1;
  std::string begun_after_;
  std::vector<ConfigEdit> edits_;
};

}  // namespace cli

// The candidate: edits that a person collects before they are committed together. A file of its owner's own
// for each daemon, below $XDG_STATE_HOME/mplsvpn (or ~/.local/state/mplsvpn), of lines as parse_edits reads
// them; an empty one is none.
#pragma once

#include <string>
#include <vector>

#include "cli/config_edits.h"
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
  void append(const std::vector<ConfigEdit>& edits);
  void clear();

 private:
  std::string read() const;
  Failure failure(int error) const;

  std::string path_;
  int file_ = -1;
  std::vector<ConfigEdit> edits_;
};

}  // namespace cli

// What a person wants changed, as lines "set WORDS" and "delete WORDS", and the changes of nodes that come of
// it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/config/config_tree.h"
#include "cli/session.h"

namespace cli {

struct ConfigEdit {
  bool is_set = true;
  vrf_config::Words words;
  std::string place;  // "FILE:7"; empty for the words of a command
};
std::string edit_line(const ConfigEdit& edit);  // as parse_edits reads it, without its end
// The edits of a text, a line each; empty lines and comments are passed over. Failure(kExitFailed) names the
// first line that is none.
std::vector<ConfigEdit> parse_edits(std::string_view text, const std::string& name);

// Failure(kExitUsage) unless the words are an item's, or the beginning of one's from a VRF's name or a trap's
// item on.
void check_deletion(const vrf_config::Words& words);

// What the command line holds in the daemon, with edits made to it here. The daemon is asked when a deletion
// needs it. The client must remain live while this is.
class WorkingCopy {
 public:
  WorkingCopy(const Session& session, kvtree::Client& client) : session_(session), client_(client) {}

  // Edits in their order. Failure for the first that makes no sense, named by its place.
  void apply(const std::vector<ConfigEdit>& edits);
  // What is to be committed: sets, and deletions of what the daemon has.
  std::vector<KvConfigChange> changes();

 private:
  struct Item {
    KvValue value;
    std::optional<vrf_config::Words> words;
  };
  void apply(const ConfigEdit& edit);
  void set(const vrf_config::Words& words);
  void remove(const vrf_config::Words& words);
  bool remove_exactly(const vrf_config::Words& words, const std::vector<KvConfigNode>& nodes);
  bool remove_all_below(const vrf_config::Words& words);
  std::string other_owner(const vrf_config::Words& words, const std::vector<KvConfigNode>* nodes) const;
  void read_held();

  const Session& session_;
  kvtree::Client& client_;
  bool is_read_ = false;
  ConfigNodes held_;                   // in the daemon, when it was read
  std::map<std::string, Item> items_;  // after the edits: everything held, or only what was set
};

// What would change in force by these changes of the command line's nodes.
std::vector<KvConfigCommitChange> foresee_changes(const Session& session, kvtree::Client& client,
                                                  const std::vector<KvConfigChange>& changes);

}  // namespace cli

// Edits, as lines "set WORDS", "delete WORDS", "suppress WORDS" and "unsuppress WORDS", and the changes of
// nodes that they make.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/config/config_tree.h"
#include "cli/session.h"

namespace cli {

enum class EditVerb : std::uint8_t { kSet, kDelete, kSuppress, kUnsuppress };

struct ConfigEdit {
  EditVerb verb = EditVerb::kSet;
  vrf_config::Words words;
  std::string place;  // "FILE:7"; empty for the words of a command
};
std::string edit_line(const ConfigEdit& edit);  // for parse_edits, without the line's end
// The edits of a text, one a line, without empty lines and comments. Failure(kExitFailed) names the first
// line that is not an edit.
std::vector<ConfigEdit> parse_edits(std::string_view text, const std::string& name);

// Failure(kExitUsage) unless the words are an item or the beginning of one, with a VRF's name or a trap's
// item.
void check_deletion(const vrf_config::Words& words);

// The command line's nodes with edits applied. Reads the daemon's nodes when a deletion needs them. The
// client must outlive this.
class WorkingCopy {
 public:
  WorkingCopy(const Session& session, kvtree::Client& client) : session_(session), client_(client) {}

  // Deletes all of the command line's nodes, suppressions included.
  void clear();
  // In their order. The Failure of an edit names its place.
  void apply(const std::vector<ConfigEdit>& edits);
  // For a commit: sets, and deletions of nodes in the daemon.
  std::vector<KvConfigChange> changes();
  // The suppressed items that no other owner sets, printable.
  const std::vector<std::string>& needless_suppressions() const { return needless_suppressions_; }

 private:
  struct Item {
    KvValue value;
    std::optional<vrf_config::Words> words;
  };
  void apply(const ConfigEdit& edit);
  void set(const vrf_config::Words& words);
  void remove(const vrf_config::Words& words);
  void suppress(const vrf_config::Words& words);
  void unsuppress(const vrf_config::Words& words);
  void suppress_below(const vrf_config::Words& words);
  void suppress_node(const std::string& path, KvValue value, std::optional<vrf_config::Words> words);
  Failure not_set(const vrf_config::Words& words, const std::string& what) const;
  bool remove_exactly(const vrf_config::Words& words, const std::vector<KvConfigNode>& nodes);
  bool remove_all_below(const vrf_config::Words& words);
  std::string other_owner(const vrf_config::Words& words, const std::vector<KvConfigNode>* nodes) const;
  void read_held();

  const Session& session_;
  kvtree::Client& client_;
  bool is_read_ = false;
  std::optional<ConfigNodes> others_;  // what the first of the other owners sets, once a suppression needs it
  std::vector<std::string> needless_suppressions_;
  ConfigNodes held_;  // in the daemon, when it was read
  std::map<std::string, Item>
      items_;  // after the edits; only those that were set, until the daemon's nodes are read
};

// The changes of effective values and owners that these changes of the command line's nodes would make.
std::vector<KvConfigCommitChange> foresee_changes(const Session& session, kvtree::Client& client,
                                                  const std::vector<KvConfigChange>& changes);

// The effective nodes, and those that the command line suppresses.
ConfigNodes read_first_values(const Session& session, kvtree::Client& client);
// Who sets the route distinguisher of these words with the VRF, outside of the configuration, and what to do;
// empty for other words.
std::string text_of_item_outside(const Session& session, kvtree::Client& client,
                                 const vrf_config::Words& words);
// What the first of the owners other than the command line sets.
ConfigNodes read_others(const Session& session, kvtree::Client& client);

}  // namespace cli

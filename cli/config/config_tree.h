// The daemon's configuration: nodes by their path, their texts, and commits.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/output/json_list.h"
#include "cli/session.h"
#include "platform/config/vrf_config.h"
#include "platform/store/client/client.h"

namespace cli {

struct ConfigNode {
  KvValue value;
  std::string owner;
};
using ConfigNodes = std::map<std::string, ConfigNode>;  // by path

// All effective nodes, or all that an owner sets.
ConfigNodes read_config(const Session& session, kvtree::Client& client, std::string_view owner = {});

// The items of "traps" that are set: "vrf-up", "all" ...
std::vector<std::string> read_trap_items(const Session& session, kvtree::Client& client);

// A trap switch is true or false, whatever its number.
std::string value_text(const std::string& path, const KvValue& value);
Json value_json(const std::string& path, const std::optional<KvValue>& value);  // null for none
// The node in words or, if words cannot express it, as "PATH = VALUE". Printable.
std::string node_text(const std::string& path, const KvValue& value);

// Whether a list of words begins with these.
bool begins_with(const vrf_config::Words& words, const vrf_config::Words& beginning);
// Failure(kExitUsage) unless the words are an item or the beginning of one.
void check_beginning(const vrf_config::Words& words);

// The changes, one line for each side: "- " for the value before, "+ " for the value after, and "= " where
// only the owner changes; with owners other than "cli".
void print_changes(const Session& session, const std::vector<KvConfigCommitChange>& changes);

// A commit that is to be made. `what` names it in messages, and is its comment if that is empty.
struct CommitOrder {
  std::string what;
  std::string comment;
  std::chrono::seconds confirmed{0};  // it is undone unless it is confirmed within them; 0: it stays
};
// Makes the commit and prints its number and user, or that nothing changed. Failure when it is rejected.
void make_commit(const Session& session, kvtree::Client& client, const CommitOrder& order,
                 const std::vector<KvConfigChange>& changes);
// A number; null for none.
Json commit_json(const std::string& id);
// The user's name; null for a commit of no user.
Json user_json(const std::string& user);
// The commit that waits for its confirmation, as a line on standard error, unless the output is JSON.
void note_confirmation(const Session& session, kvtree::Client& client);

}  // namespace cli

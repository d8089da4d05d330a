// The daemon's configuration as this program reads and changes it: nodes by their path, lines that say what a
// node says, and changes of what is in force.
#pragma once

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

// All of what is in force, or of what the owner holds.
ConfigNodes read_config(const Session& session, kvtree::Client& client, std::string_view owner = {});

std::string value_text(const KvValue& value);
Json value_json(const std::optional<KvValue>& value);  // null for none
// What the node says, in words or, where words cannot say it, as "PATH = VALUE". Printable.
std::string node_text(const std::string& path, const KvValue& value);

// Whether a list of words begins with these.
bool begins_with(const vrf_config::Words& words, const vrf_config::Words& beginning);
// Failure(kExitUsage) unless the words are an item's, or the beginning of one's.
void check_beginning(const vrf_config::Words& words);

// The changes, a line each side: "- " what was, "+ " what is, and "= " where only the owner changes. Owners
// but "cli" are told.
void print_changes(const Session& session, const std::vector<KvConfigCommitChange>& changes);

// Makes the commit and answers its id; Failure when it is refused. `what` names it.
std::string make_commit(const Session& session, kvtree::Client& client, const std::string& what,
                        const std::vector<KvConfigChange>& changes, const std::string& comment);
// "commit 12", or that no effective item changed.
void print_commit(const Session& session, const std::string& id);

}  // namespace cli

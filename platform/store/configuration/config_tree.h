// What each owner holds of the configuration, and what follows from a commit. Not for other folders.
//
// The tree keeps a value an owner for every path that somebody holds; the first of them is in force. A commit
// is planned against it without changing anything, so that a mistake leaves no trace; the plan is what is
// written to the database, and afterwards made here and in the store's nodes.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/store/configuration/config.h"

namespace kvtree {

inline constexpr std::size_t kNoOwner = kConfigOwners.size();

// The owner's number, its precedence; kNoOwner for another text.
std::size_t find_owner(std::string_view owner);
// The owner's name; empty for kNoOwner.
std::string_view owner_name(std::size_t owner);

using SharedValue = std::shared_ptr<const KvValue>;

struct OwnedNode {
  std::array<SharedValue, kConfigOwners.size()> values;
  // Whose value is in force; kNoOwner when nobody holds the node.
  std::size_t in_force() const;
  // The same when the owner holds the node, or does not.
  std::size_t in_force_after(std::size_t owner, bool holds) const;
};

using ConfigTree = std::map<std::string, OwnedNode, std::less<>>;

// What an owner asks for. Path and value are the caller's and outlive the planning.
struct ProposedChange {
  std::string_view path;
  const KvValue* value;  // null: the owner lets go
};

// What an owner holds from now on, and what was and will be in force.
struct PlannedChange {
  std::string path;
  SharedValue value;  // null: the owner lets go
  SharedValue before;
  SharedValue after;
  std::size_t owner_before = kNoOwner;
  std::size_t owner_after = kNoOwner;
  bool tells = false;  // before and after are not the same (kConfigCountedScopes: not told for all that)
};

struct CommitPlan {
  std::size_t owner = kNoOwner;
  std::vector<PlannedChange> changes;  // only those that change what the owner holds
  std::size_t telling = 0;             // of them
};

// "/cfg/..." and not a folder; kStatusOk or what is wrong with the path.
Status check_configuration_path(std::string_view path);

// As readers of the history and observers know it.
KvConfigCommitChange to_public(PlannedChange change);

// Checks the changes and plans them. A failure and its *mistake are those of kvtree_config_commit.
Status plan_commit(const ConfigTree& tree, std::string_view owner, const std::vector<ProposedChange>& changes,
                   CommitPlan* plan, std::string* mistake);
// Makes the plan's changes of what the owner holds.
void apply_plan(ConfigTree* tree, const CommitPlan& plan);

}  // namespace kvtree

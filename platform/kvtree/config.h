// The configuration tree: the nodes below /cfg/ with their owners, changed by whole commits.
//
// A node's path may be held by several owners at once (the command line, a router file, a routing suite).
// The one with the highest precedence is in force: kConfigOwners, first wins. When it lets go, the next one's
// value comes into force. What is in force is what subscribers are told and what kvtree's readers see; a
// commit that changes nothing of it tells nobody.
//
// A commit is all or nothing: it is checked as a whole, written to the state directory in one transaction,
// then made in the tree, and delivered to the subscribers on their event manager's loop in bounded batches
// with requests in between. Each commit that changed what is in force has an entry in the history (newest
// kMaxCommits kept): id, time, owner, comment, and the changes with the values before and after.
//
// What owners held when the process last ran is in the tree before the first subscriber registers, so it
// reaches the daemon by the replay; a source that starts says what it knows with kvtree_config_replace and
// only the difference is a change. Main thread only. Every operation is a fault point of its own name.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/status.h"
#include "platform/kvtree/kvtree.h"

// Owners, highest precedence first.
inline constexpr std::string_view kConfigOwnerCli = "cli";    // operators: the command line
inline constexpr std::string_view kConfigOwnerFile = "file";  // the router file
inline constexpr std::string_view kConfigOwnerFrr = "frr";    // the routing suite

struct KvConfigNode {
  std::string path;  // whole: "/cfg/..."
  KvValue value;     // kNone (only that it is there counts), kText, kNumber or kTuple
  bool operator==(const KvConfigNode& other) const;
};

struct KvConfigChange {
  std::string path;
  std::optional<KvValue> value;  // none: the owner lets go of the node
};

// Makes the owner's changes as one commit. kStatusInvalid for an owner that is not known, a value of another
// type or two changes of one path; kStatusUnknownPath for a path that is not below /cfg/; kStatusNoSuchRow
// for letting go of what the owner does not hold; kStatusIo when it could not be written. Nothing is changed
// then, and *mistake (may be null) says what is wrong. *id (may be null) is the commit's, empty when nothing
// in force changed.
[[nodiscard]] Status kvtree_config_commit(std::string_view owner, const std::vector<KvConfigChange>& changes,
                                          std::string_view comment, std::string* id = nullptr,
                                          std::string* mistake = nullptr);

// Makes `nodes` all that the owner holds below the scopes (paths that end in '/'), as one commit of the
// difference; what it holds elsewhere stays. Every node must be below a scope (kStatusInvalid). Statuses as
// above; of two nodes with one path the last counts.
[[nodiscard]] Status kvtree_config_replace(std::string_view owner, const std::vector<std::string>& scopes,
                                           const std::vector<KvConfigNode>& nodes, std::string_view comment,
                                           std::string* id = nullptr, std::string* mistake = nullptr);

// What the owner holds below the path, in the order of the paths.
void kvtree_config_owned(std::string_view owner, std::string_view path,
                         const std::function<void(const KvConfigNode&)>& visit);

// What is in force below the path, in the order of the paths.
void kvtree_config_in_force(std::string_view path, const std::function<void(const KvConfigNode&)>& visit);

// Tells the subscribers of these nodes (those of them that are in force) as if each had been deleted and set
// again, first all deletions, then all sets: for handlers that lost what they derived from them. Nothing
// changes and the history has no entry.
[[nodiscard]] Status kvtree_config_retell(const std::vector<std::string>& paths);

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
// only the difference is a change. Main thread only. Every operation that answers a status is a fault point
// of its own name.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/store/tree/kvtree.h"

// Owners, highest precedence first.
inline constexpr std::string_view kConfigOwnerCli = "cli";    // operators: the command line
inline constexpr std::string_view kConfigOwnerFile = "file";  // the router file
inline constexpr std::string_view kConfigOwnerFrr = "frr";    // what is configured in the routing suite
inline constexpr std::string_view kConfigOwnerFrrDerived = "frr-derived";  // what the suite derives itself
inline constexpr std::string_view kConfigOwnerKernel = "kernel";           // what the kernel reports
inline constexpr std::array<std::string_view, 5> kConfigOwners = {
    kConfigOwnerCli, kConfigOwnerFile, kConfigOwnerFrr, kConfigOwnerFrrDerived, kConfigOwnerKernel};

// Where a value comes from, in the words that users read, by its owner. Empty for a text that does not name
// an owner.
std::string_view kvtree_config_origin(std::string_view owner);

// Parts of the configuration of routing protocols whose subscribers count items: a node's value means nothing
// there, and a second set without a deletion would count one item twice. So a commit that gives a node that
// is there another value changes the value, for readers and in the history, but is told to nobody.
inline constexpr std::array<std::string_view, 5> kConfigCountedScopes = {
    "/cfg/gl/ip-bgp/", "/cfg/gl/rip/ord_B/", "/cfg/gl/ipv4-ospf/proc/", "/cfg/gl/eigrp/proc/",
    "/cfg/gl/static/router/ord_v/"};

struct KvConfigNode {
  std::string path;  // whole: "/cfg/..."
  KvValue value;     // kNone (only that it is there counts), kText, kNumber or kTuple
  bool operator==(const KvConfigNode&) const = default;
};

struct KvConfigChange {
  std::string path;
  std::optional<KvValue> value;  // none: the owner lets go of the node
};

// One commit of the history. Ids are decimal numbers that grow; they are never used again.
struct KvConfigCommit {
  std::string id;
  std::uint64_t time = 0;  // nanoseconds since 1970-01-01 00:00:00 UTC
  std::string owner;
  std::string comment;
  std::uint32_t changes = 0;  // nodes whose value in force changed
};

// A change of what is in force, with who held it. No value and no owner: the node was not there.
struct KvConfigCommitChange {
  std::string path;
  std::optional<KvValue> before;
  std::optional<KvValue> after;
  std::string owner_before;
  std::string owner_after;
};

inline constexpr std::size_t kMaxCommits = 1000;             // of the history: the newest ones,
inline constexpr std::size_t kMaxHistoryOctets = 64U << 20;  // and no more than this, but for the newest one
inline constexpr std::size_t kMaxConfigChanges = 100000;     // of one commit
inline constexpr std::size_t kMaxCommitComment = 1024;       // octets; what is beyond is cut
inline constexpr std::size_t kMaxConfigText = 32U << 10;     // octets of a node's text
inline constexpr std::size_t kMaxConfigTuple = 256;          // numbers of a node's tuple

// Makes the owner's changes as one commit. kStatusInvalid for an owner that is not known, a value of another
// type or two changes of one path; kStatusUnknownPath for a path that is not below /cfg/; kStatusNoSuchRow
// for letting go of what the owner does not hold; kStatusMessageTooLarge beyond the limits above; kStatusIo
// when it could not be written. Nothing is changed then, and *mistake (may be null) says what is wrong. *id
// (may be null) is the commit's, empty when nothing in force changed. Deletions are told before sets, each
// in the order of `changes`.
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

// The effective nodes below the path, in the order of the paths.
void kvtree_config_effective(std::string_view path, const std::function<void(const KvConfigNode&)>& visit);

// The effective value of the path and its owner; none when no owner holds one.
struct KvConfigEffective {
  KvValue value;
  std::string_view owner;
};
std::optional<KvConfigEffective> kvtree_config_find(std::string_view path);

// While the result lives, `observer` is called in every commit that changes effective nodes below the path,
// with these changes, when they are made. Unlike a subscriber it gets the owner of each value, and is not
// called when a value is only announced again. It must not commit.
using KvConfigObserver = std::function<void(const std::vector<KvConfigCommitChange>& changes)>;
[[nodiscard]] std::shared_ptr<const void> kvtree_config_observe(std::string_view path,
                                                                KvConfigObserver observer);

// The newest commits, newest first, older than `before` when that is not empty. kStatusNoSuchRow for a
// `before` that is no commit's id, kStatusIo (logged) when the history cannot be read. Fault point
// "kvtree_config_history".
[[nodiscard]] Status kvtree_config_history(std::uint32_t maximum, std::string_view before,
                                           std::vector<KvConfigCommit>* commits);
// The changes of the commit, in the order in which subscribers were told. kStatusNoSuchRow for a commit that
// is not in the history (any more). Fault point "kvtree_config_changes".
[[nodiscard]] Status kvtree_config_changes(std::string_view id, std::vector<KvConfigCommitChange>* changes);

// Announces these nodes (those of them that are effective) to their subscribers as if each had been deleted
// and set again, first all deletions, then all sets: for handlers that lost what they derived from them.
// Nothing changes and the history has no entry.
[[nodiscard]] Status kvtree_config_replay(const std::vector<std::string>& paths);

// Announces the effective value of this node to its subscribers as set, or, when there is none, as deleted.
// Nothing changes and the history has no entry. kStatusUnknownPath for a path that is not below /cfg/.
[[nodiscard]] Status kvtree_config_announce(const std::string& path);

// kvtree_config_replay one node after the other, for handlers whose reading of a node depends on a setting
// that changes: `before_deletion` is called before each deletion and `before_set` before each set. That order
// holds for the subscribers on this manager; nothing new is delivered in between. Everything is in the
// manager's queue when the call returns.
[[nodiscard]] Status kvtree_config_replay_each(const std::vector<std::string>& paths, EventManager* manager,
                                               const std::function<void()>& before_deletion,
                                               const std::function<void()>& before_set);

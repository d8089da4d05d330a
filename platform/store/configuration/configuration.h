// The configuration tree: the nodes below /cfg/ with their owners, changed by whole commits.
//
// Several owners may set a node. The value of the owner with the highest precedence is effective: the owners
// are registered in this order. When an owner withdraws its value, the next one's becomes effective.
// Subscribers and kvtree's readers see effective values only; a commit that changes none of them notifies no
// subscriber.
//
// A commit is all or nothing: it is checked as a whole, written to the state directory in one transaction,
// then applied to the tree, and delivered to the subscribers on their event manager's loop in bounded batches
// with requests in between. Each commit that changed effective values or their owners has an entry in the
// history (the newest kMaxCommits): id, time, owner, user, comment, and the changes with the values before
// and after.
//
// The first owner, that of clients' commits, may suppress a node: a value with is_suppressed, which has the
// value that it suppressed. Then the node has no effective value, whatever the other owners set.
//
// A client may require that its commit is confirmed within a time; otherwise it is undone, also by a later
// process (platform/store/confirmation). At most one commit waits for its confirmation.
//
// The values that owners set in an earlier process are in the tree before the first subscriber registers, so
// the replay delivers them to the daemon; a starting source states its values with kvtree_config_replace, and
// only the difference is a change. Main thread only. Every operation that returns a status is a fault point
// of its own name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/store/tree/kvtree.h"

// An owner. Its number identifies it in the stored history: it is never changed or reused.
struct KvConfigOwner {
  std::string_view name;
  std::uint8_t number;
  bool operator==(const KvConfigOwner&) const = default;
};
inline constexpr std::size_t kMaxConfigOwners = 8;  // each is a pointer in every node

// Registers all owners, highest precedence first; commits of clients belong to the first one. The names must
// outlive the process's use of the store. kStatusInvalid for too many owners, or for two with one name or
// number; kStatusExists for other owners than before while nodes have values. kvtree_reset keeps them.
[[nodiscard]] Status kvtree_config_register_owners(std::span<const KvConfigOwner> owners);

// Registers all counted scopes: parts of the configuration whose subscribers count items. The value of a node
// has no meaning there, and a second set without a deletion would count an item twice. A commit that changes
// the value of an existing node changes it for readers and in the history, but notifies no subscriber.
// kvtree_reset keeps them.
void kvtree_config_register_counted_scopes(std::span<const std::string_view> scopes);

struct KvConfigNode {
  std::string path;  // whole: "/cfg/..."
  KvValue value;     // kNone (present without a value), kText, kNumber or kTuple
  bool operator==(const KvConfigNode&) const = default;
};

struct KvConfigChange {
  std::string path;
  std::optional<KvValue> value;  // none: the owner withdraws its value
};

// One commit of the history. Ids are increasing decimal numbers and are never reused.
struct KvConfigCommit {
  std::string id;
  std::uint64_t time = 0;  // nanoseconds since 1970-01-01 00:00:00 UTC
  std::string owner;
  std::string comment;
  std::uint32_t changes = 0;  // nodes whose effective value changed, or its owner
  std::string user;           // of a client's commit, by the name that the user had then; otherwise empty
};

// A change of an effective value or of its owner, with the owners. No value and no owner: the node did not
// exist. A value with is_suppressed: the node does not exist, because its owner suppresses it.
struct KvConfigCommitChange {
  std::string path;
  std::optional<KvValue> before;
  std::optional<KvValue> after;
  std::string owner_before;
  std::string owner_after;
};

// Of the history, for the commits of clients and again for those of all other owners: the newest ones, and at
// most this, except for the newest one.
inline constexpr std::size_t kMaxCommits = 1000;
inline constexpr std::size_t kMaxHistoryOctets = 64U << 20;
inline constexpr std::uint32_t kLongestConfirmation = 24 * 60 * 60;  // seconds
inline constexpr std::size_t kMaxConfigChanges = 100000;             // of kvtree_config_commit
inline constexpr std::size_t kMaxCommitComment = 1024;               // octets; the rest is cut
inline constexpr std::size_t kMaxConfigText = 32U << 10;             // octets of a node's text
inline constexpr std::size_t kMaxConfigTuple = 256;                  // numbers of a node's tuple

// What the memory and the start may cost. Tests lower the limits.
struct KvConfigLimits {
  std::size_t commit_octets = 64U << 20;     // of the paths and values that kvtree_config_commit sets
  std::size_t nodes = 1000000;               // of all owners together
  std::size_t octets = 256U << 20;           // of the paths and values of all owners
  std::size_t unprocessed_changes = 100000;  // of commits, from which on clients' commits are refused (EBUSY)
};
inline KvConfigLimits kv_config_limits;

// Makes the owner's changes as one commit. kStatusInvalid for an unknown owner, a value of another type or
// two changes of one path; kStatusUnknownPath for a path that is not below /cfg/; kStatusNoSuchRow for
// withdrawing a value that the owner does not set; kStatusMessageTooLarge beyond the limits above, which a
// commit that makes the configuration smaller never exceeds; kStatusIo
// if it cannot be written. Then nothing changes, and *error (may be null) has the reason. *id (may be null)
// is the commit's id, empty if no effective value changed. Deletions are notified before sets, each in the
// order of `changes`.
[[nodiscard]] Status kvtree_config_commit(std::string_view owner, const std::vector<KvConfigChange>& changes,
                                          std::string_view comment, std::string* id = nullptr,
                                          std::string* error = nullptr);

// Makes `nodes` the owner's only values, as one commit of the difference. Statuses as above, but only the
// size of the configuration is limited, not that of the commit. Of two nodes with one path the last counts.
[[nodiscard]] Status kvtree_config_replace(std::string_view owner, const std::vector<KvConfigNode>& nodes,
                                           std::string_view comment, std::string* id = nullptr,
                                           std::string* error = nullptr);

// Both without delaying the loop: planned and written on a thread, then applied in steps, of which readers
// see all or nothing. Commits are made in the order of the calls. `done` is called on the loop, never in this
// call, once the notifications of the subscribers are posted, or with the status and error of a failure.
// Another commit in the meantime waits for this one. Fault points "kvtree_config_commit" and
// "kvtree_config_replace".
using KvConfigDone = std::function<void(Status status, const std::string& id, const std::string& error)>;
void kvtree_config_begin_commit(EventManager* manager, std::string_view owner,
                                std::shared_ptr<const std::vector<KvConfigChange>> changes,
                                std::string_view comment, KvConfigDone done);
void kvtree_config_begin_replacement(EventManager* manager, std::string_view owner,
                                     std::shared_ptr<const std::vector<KvConfigNode>> nodes,
                                     std::string_view comment, KvConfigDone done);

// Visits the values that the owner sets, in the order of the paths.
void kvtree_config_owned(std::string_view owner, const std::function<void(const KvConfigNode&)>& visit);

// The effective nodes below the path, in the order of the paths.
void kvtree_config_effective(std::string_view path, const std::function<void(const KvConfigNode&)>& visit);

// The effective value of the path and its owner; none if no owner sets one.
struct KvConfigEffective {
  KvValue value;
  std::string_view owner;
};
std::optional<KvConfigEffective> kvtree_config_find(std::string_view path);

// While the result exists, `observer` is called in every commit that changes effective values below the path,
// with these changes, when they are applied. A commit of more than 256 changes is several calls; one of them
// has all changes below the same child of the path. Unlike a subscriber the observer gets the owner of each
// value, and it is not called for replayed values. It must not commit.
using KvConfigObserver = std::function<void(const std::vector<KvConfigCommitChange>& changes)>;
[[nodiscard]] std::shared_ptr<const void> kvtree_config_observe(std::string_view path,
                                                                KvConfigObserver observer);

// The newest commits, newest first, older than `before` if that is not empty. kStatusNoSuchRow if `before` is
// not the id of a commit, kStatusIo (logged) if the history cannot be read. Fault point
// "kvtree_config_history".
[[nodiscard]] Status kvtree_config_history(std::uint32_t maximum, std::string_view before,
                                           std::vector<KvConfigCommit>* commits);
// The changes of the commit that are in the page, in the order of the subscribers' notifications. The time
// for a page does not depend on the size of the commit, except for the first page of one that was not read
// before. kStatusNoSuchRow for a commit that is not, or no longer, in the history. Fault point
// "kvtree_config_changes".
struct KvConfigPage {
  std::uint32_t first = 0;             // from 0
  std::uint32_t maximum = UINT32_MAX;  // of the changes
  std::size_t octets = SIZE_MAX;       // of them; at least one change is in the page
};
[[nodiscard]] Status kvtree_config_changes(std::string_view id, std::vector<KvConfigCommitChange>* changes,
                                           const KvConfigPage& page = {});

// The commit that waits for its confirmation; with an empty id there is none.
struct KvConfigConfirmation {
  std::string id;
  std::string user;            // of the commit
  std::uint64_t deadline = 0;  // nanoseconds since 1970-01-01 00:00:00 UTC
};
KvConfigConfirmation kvtree_config_confirmation();

// Notifies the subscribers of these nodes (of the effective ones) as if each had been deleted and set again,
// first all deletions, then all sets: for handlers that lost the state derived from them. Nothing changes and
// the history has no entry.
[[nodiscard]] Status kvtree_config_replay(const std::vector<std::string>& paths);

// Notifies the subscribers of this node of its effective value as set or, without one, as deleted. Nothing
// changes and the history has no entry. kStatusUnknownPath for a path that is not below /cfg/.
[[nodiscard]] Status kvtree_config_announce(const std::string& path);

// kvtree_config_replay one node after the other, for handlers whose interpretation of a node depends on a
// setting that changes: `before_deletion` is called before each deletion and `before_set` before each set.
// That order holds for the subscribers on this manager; no other notification is delivered in between.
// Everything is in the manager's queue when the call returns.
[[nodiscard]] Status kvtree_config_replay_each(const std::vector<std::string>& paths, EventManager* manager,
                                               const std::function<void()>& before_deletion,
                                               const std::function<void()>& before_set);

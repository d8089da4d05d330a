// The values that owners set, and the planning of commits. Only for this folder.
//
// The tree has a value per owner for every path that an owner sets; the first of them is effective. A commit
// is planned without changing anything, so that an invalid one leaves no trace; the plan is written to the
// database and then applied here and to the store's nodes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/compact/shared_text.h"
#include "platform/store/configuration/configuration.h"

namespace kvtree {

inline constexpr std::size_t kNoOwner = kMaxConfigOwners;

// The owner's number, its precedence; kNoOwner for another text.
std::size_t find_owner(std::string_view owner);
// The owner's name; empty for kNoOwner.
std::string_view owner_name(std::size_t owner);
// The owner of clients' commits.
std::string_view client_owner();
// The owner's number in the history, and back; kNoOwnerNumber for kNoOwner.
inline constexpr std::uint8_t kNoOwnerNumber = 0xff;
std::uint8_t owner_number(std::size_t owner);
std::size_t find_owner_number(std::uint8_t number);

// Whether the path is in a counted scope.
bool is_counted(std::string_view path);

using SharedValue = std::shared_ptr<const KvValue>;

// What readers and subscribers see of an owner's value: null if it suppresses the node.
const SharedValue& seen_value(const SharedValue& value);

// The values of a path's owners. Mostly there is one: only a second owner's value needs more memory.
class OwnedNode {
 public:
  // Null if the owner sets none; so for kNoOwner.
  const SharedValue& value_of(std::size_t owner) const;
  void set(std::size_t owner, SharedValue value);
  // The first owner that sets or suppresses the node; kNoOwner if there is none.
  std::size_t effective_owner() const { return effective_owner_; }
  // Null also if that owner suppresses it.
  const SharedValue& effective_value() const { return seen_value(effective_); }
  // effective_owner() once the owner sets the node, or does not.
  std::size_t effective_owner_after(std::size_t owner, bool sets) const;

 private:
  using Values = std::array<SharedValue, kMaxConfigOwners>;
  std::size_t effective_owner_ = kNoOwner;
  SharedValue effective_;
  std::unique_ptr<Values> values_;  // of all owners, the effective one's included; null without a second one
};

using ConfigTree = std::map<SharedText, OwnedNode, std::less<>>;

// A requested change. Path and value are the caller's and outlive the planning.
struct ProposedChange {
  std::string_view path;
  const KvValue* value;  // null: the owner withdraws its value
};
struct Proposal {
  std::vector<ProposedChange> changes;
  bool ascends;  // every path follows the one before it, so that none is there twice
};
bool paths_ascend(const std::vector<ProposedChange>& changes);

// The owner's new value, and the values of the first owners before and after. The effective values are those
// that seen_value() returns of these. A commit has up to a million of these.
struct PlannedChange {
  SharedText path;
  SharedValue value;  // null: the owner withdraws its value
  SharedValue before;
  SharedValue after;
  std::uint8_t owner_before = kNoOwner;
  std::uint8_t owner_after = kNoOwner;
  bool is_effective = false;  // the effective values differ; notified, except in counted scopes

  bool sets() const { return is_effective && seen_value(after) != nullptr; }
  bool deletes() const { return is_effective && seen_value(after) == nullptr; }
  // Whether it is in the history.
  bool is_listed() const { return is_effective || owner_before != owner_after; }
};
static_assert(sizeof(PlannedChange) == 64);

struct CommitPlan {
  std::size_t owner = kNoOwner;
  std::vector<PlannedChange> changes;         // only those that change the owner's values
  bool ascends = false;                       // their paths do
  std::size_t listed_changes = 0;             // of them
  std::int64_t added_nodes = 0;               // to the tree; negative if it becomes smaller
  std::int64_t added_octets = 0;              // the same, in octets_of()
  std::size_t set_octets = 0;                 // octets_of() the new values
  std::vector<const PlannedChange*> by_path;  // the changes in the order of their paths
};

// kStatusOk for "/cfg/..." that is not a folder; otherwise what is wrong with the path.
Status check_configuration_path(std::string_view path);

// What an owner's value of this path counts in the limits; 0 for none.
std::size_t octets_of(std::string_view path, const KvValue* value);

// kStatusOk for a value that a node may have; otherwise *error is what is wrong with it.
Status check_configuration_value(const KvValue& value, std::string* error);

// For readers of the history: with suppressing values.
KvConfigCommitChange to_public(const PlannedChange& change);
// For observers: the effective values and their owners.
KvConfigCommitChange to_observed(const PlannedChange& change);

// Checks the changes and plans them. Status and *error are those of kvtree_config_commit.
Status plan_commit(const ConfigTree& tree, std::string_view owner, const Proposal& proposal, CommitPlan* plan,
                   std::string* error);
// Fills plan->by_path; the changes must not move afterwards.
void index_by_path(CommitPlan* plan);
// Applies the change to the owner's values. `place` is a hint; the result is the place after the path's.
ConfigTree::iterator apply_change(ConfigTree* tree, std::size_t owner, const PlannedChange& change,
                                  ConfigTree::iterator place);

}  // namespace kvtree

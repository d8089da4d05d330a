#include "platform/store/configuration/config_tree.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

#include "platform/store/tree/key_text.h"

namespace kvtree {

namespace {

constexpr std::string_view kConfiguration = "/cfg/";

bool same_or_both_none(const SharedValue& one, const SharedValue& other) {
  if (one == nullptr || other == nullptr) return one == other;
  return *one == *other;
}

// Plans the change of one node; `node` is null for one that no owner sets.
PlannedChange plan_change(const OwnedNode* node, std::size_t owner, const ProposedChange& change) {
  static const OwnedNode kUnset;
  const OwnedNode& now = node == nullptr ? kUnset : *node;
  PlannedChange planned;
  planned.path = change.path;
  if (change.value != nullptr) planned.value = std::make_shared<const KvValue>(*change.value);
  planned.owner_before = now.effective_owner();
  if (planned.owner_before != kNoOwner) planned.before = now.values[planned.owner_before];
  planned.owner_after = now.effective_owner_after(owner, planned.value != nullptr);
  if (planned.owner_after == owner) {
    planned.after = planned.value;
  } else if (planned.owner_after != kNoOwner) {
    planned.after = now.values[planned.owner_after];
  }
  planned.is_effective = !same_or_both_none(planned.before, planned.after);
  return planned;
}

Status check_change(const ProposedChange& change, std::string* error) {
  if (const Status status = check_configuration_path(change.path)) {
    *error = "it is not below /cfg/";
    if (status == kStatusMessageTooLarge) *error = "the path is too long";
    if (status == kStatusBadKey) *error = "the path has an octet 0";
    return status;
  }
  return change.value != nullptr ? check_configuration_value(*change.value, error) : kStatusOk;
}

// Finds places in a tree, mostly in the order of the paths: the place after the previous one is found without
// a search.
class Cursor {
 public:
  explicit Cursor(const ConfigTree& tree) : tree_(tree), at_(tree.begin()) {}
  // The node of the path, or null.
  const OwnedNode* find(std::string_view path) {
    if (!step_to(path)) at_ = tree_.lower_bound(path);
    return at_ != tree_.end() && at_->first == path ? &at_->second : nullptr;
  }

 private:
  // Moves on by one if needed. True if at_ is then the place of the path: everything before it precedes the
  // path, and nothing from it on does.
  bool step_to(std::string_view path) {
    if (at_ != tree_.end() && at_->first < path) ++at_;
    const bool is_after = at_ == tree_.begin() || std::prev(at_)->first < path;
    return is_after && (at_ == tree_.end() || at_->first >= path);
  }

  const ConfigTree& tree_;
  ConfigTree::const_iterator at_;
};

// The paths of a commit. While they ascend, each is compared with the one before it only.
class Seen {
 public:
  explicit Seen(const std::vector<ProposedChange>& changes) : changes_(changes) {}
  // Whether no change before this one has its path. In the order of the changes.
  bool is_new(std::size_t change) {
    const std::string_view path = changes_[change].path;
    if (unordered_.empty() && (change == 0 || changes_[change - 1].path < path)) return true;
    for (std::size_t i = 0; unordered_.size() < change; ++i) unordered_.insert(changes_[i].path);
    return unordered_.insert(path).second;
  }

 private:
  const std::vector<ProposedChange>& changes_;
  std::unordered_set<std::string_view> unordered_;  // all of them, once one was out of order
};

std::optional<KvValue> copy(const SharedValue& value) {
  return value == nullptr ? std::nullopt : std::optional<KvValue>(*value);
}

// `before`: octets_of() the owner's former value.
void count_change(const PlannedChange& change, std::size_t before, CommitPlan* plan) {
  const std::size_t after = octets_of(change.path, change.value.get());
  if (change.is_effective) ++plan->effective_changes;
  plan->added_nodes += (change.after != nullptr ? 1 : 0) - (change.before != nullptr ? 1 : 0);
  plan->added_octets += static_cast<std::int64_t>(after) - static_cast<std::int64_t>(before);
  plan->set_octets += after;
}

// Appends the planned change.
Status plan_one(Cursor* cursor, const ProposedChange& change, CommitPlan* plan, std::string* error) {
  if (const Status status = check_change(change, error)) return status;
  const OwnedNode* node = cursor->find(change.path);
  const SharedValue held = node == nullptr ? nullptr : node->values[plan->owner];
  if (change.value == nullptr && held == nullptr) {
    *error = std::string(owner_name(plan->owner)) + " does not set it";
    return kStatusNoSuchRow;
  }
  if (change.value != nullptr && held != nullptr && *change.value == *held) return kStatusOk;
  plan->changes.push_back(plan_change(node, plan->owner, change));
  count_change(plan->changes.back(), octets_of(change.path, held.get()), plan);
  return kStatusOk;
}

}  // namespace

std::size_t octets_of(std::string_view path, const KvValue* value) {
  if (value == nullptr) return 0;
  return path.size() + value->text.size() + value->tuple.size() * sizeof(std::int64_t);
}

std::size_t OwnedNode::effective_owner() const {
  return static_cast<std::size_t>(
      std::find_if(values.begin(), values.end(), [](const SharedValue& each) { return each != nullptr; }) -
      values.begin());
}

std::size_t OwnedNode::effective_owner_after(std::size_t owner, bool sets) const {
  std::size_t first = 0;
  while (first < values.size() && !(first == owner ? sets : values[first] != nullptr)) ++first;
  return first;
}

KvConfigCommitChange to_public(PlannedChange change) {
  return {std::move(change.path), copy(change.before), copy(change.after),
          std::string(owner_name(change.owner_before)), std::string(owner_name(change.owner_after))};
}

Status check_configuration_path(std::string_view path) {
  if (const Status status = check_path(path)) return status;
  const bool below =
      path.starts_with(kConfiguration) && path.size() > kConfiguration.size() && !path.ends_with('/');
  return below ? kStatusOk : kStatusUnknownPath;
}

Status check_configuration_value(const KvValue& value, std::string* error) {
  switch (value.type) {
    case KvValueType::kNone:
    case KvValueType::kNumber:
      return kStatusOk;
    case KvValueType::kText:
      if (value.text.size() <= kMaxConfigText) return kStatusOk;
      *error = "its text is too long";
      return kStatusMessageTooLarge;
    case KvValueType::kTuple:
      if (value.tuple.size() <= kMaxConfigTuple) return kStatusOk;
      *error = "it has too many numbers";
      return kStatusMessageTooLarge;
    case KvValueType::kRecord:
      break;
  }
  *error = "a configuration has no records";
  return kStatusInvalid;
}

Status plan_commit(const ConfigTree& tree, std::string_view owner, const std::vector<ProposedChange>& changes,
                   CommitPlan* plan, std::string* error) {
  *plan = {};
  plan->owner = find_owner(owner);
  if (plan->owner == kNoOwner) {
    *error = "unknown owner \"" + std::string(owner) + "\"";
    return kStatusInvalid;
  }
  Seen seen(changes);
  Cursor cursor(tree);
  plan->changes.reserve(changes.size());
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const ProposedChange& change = changes[i];
    Status status = plan_one(&cursor, change, plan, error);
    if (status == kStatusOk && !seen.is_new(i)) {
      *error = "it is changed twice";
      status = kStatusInvalid;
    }
    if (status == kStatusOk) continue;
    *error = std::string(change.path) + ": " + *error;
    return status;
  }
  return kStatusOk;
}

void index_by_path(CommitPlan* plan) {
  plan->by_path.reserve(plan->changes.size());
  for (const PlannedChange& change : plan->changes) plan->by_path.push_back(&change);
  const auto path = [](const PlannedChange* change) -> const std::string& { return change->path; };
  if (!std::ranges::is_sorted(plan->by_path, {}, path)) std::ranges::sort(plan->by_path, {}, path);
}

ConfigTree::iterator apply_change(ConfigTree* tree, std::size_t owner, const PlannedChange& change,
                                  ConfigTree::iterator place) {
  if (change.value != nullptr) {
    const auto node = tree->try_emplace(place, change.path);
    node->second.values[owner] = change.value;
    return std::next(node);
  }
  const bool is_there = place != tree->end() && place->first == change.path;
  const auto node = is_there ? place : tree->find(change.path);
  node->second.values[owner] = nullptr;
  return node->second.effective_owner() == kNoOwner ? tree->erase(node) : std::next(node);
}

}  // namespace kvtree

#include "platform/store/configuration/config_tree.h"

#include <algorithm>
#include <functional>
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

const OwnedNode kUnset;

// Plans the change of one node; `place` is null for one that no owner sets.
PlannedChange plan_change(const ConfigTree::value_type* place, std::size_t owner,
                          const ProposedChange& change) {
  const OwnedNode& now = place == nullptr ? kUnset : place->second;
  PlannedChange planned;
  planned.path = place == nullptr ? SharedText(change.path) : place->first;
  if (change.value != nullptr) planned.value = std::make_shared<const KvValue>(*change.value);
  planned.owner_before = static_cast<std::uint8_t>(now.effective_owner());
  planned.before = now.value_of(planned.owner_before);
  planned.owner_after = static_cast<std::uint8_t>(now.effective_owner_after(owner, planned.value != nullptr));
  planned.after = planned.owner_after == owner ? planned.value : now.value_of(planned.owner_after);
  planned.is_effective = !same_or_both_none(seen_value(planned.before), seen_value(planned.after));
  return planned;
}

Status check_change(std::size_t owner, const ProposedChange& change, std::string* error) {
  if (const Status status = check_configuration_path(change.path)) {
    *error = "it is not below /cfg/";
    if (status == kStatusMessageTooLarge) *error = "the path is too long";
    if (status == kStatusBadKey) *error = "the path has an octet 0";
    return status;
  }
  if (change.value == nullptr) return kStatusOk;
  if (change.value->is_suppressed && owner_name(owner) != client_owner()) {
    *error = "only " + std::string(client_owner()) + " suppresses nodes";
    return kStatusInvalid;
  }
  return check_configuration_value(*change.value, error);
}

// Finds places in a tree, mostly in the order of the paths: the place after the previous one is found without
// a search.
class Cursor {
 public:
  explicit Cursor(const ConfigTree& tree) : tree_(tree), at_(tree.begin()) {}
  // The place of the path, or null.
  const ConfigTree::value_type* find(std::string_view path) {
    if (!step_to(path)) at_ = tree_.lower_bound(path);
    return at_ != tree_.end() && at_->first == path ? &*at_ : nullptr;
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

std::optional<KvValue> copy(const SharedValue& value) {
  return value == nullptr ? std::nullopt : std::optional<KvValue>(*value);
}

// `before`: octets_of() the owner's former value.
void count_change(const PlannedChange& change, std::size_t before, CommitPlan* plan) {
  const std::size_t after = octets_of(change.path, change.value.get());
  if (change.is_listed()) ++plan->listed_changes;
  plan->added_nodes += (change.after != nullptr ? 1 : 0) - (change.before != nullptr ? 1 : 0);
  plan->added_octets += static_cast<std::int64_t>(after) - static_cast<std::int64_t>(before);
  plan->set_octets += after;
}

// Appends the planned change.
Status plan_one(Cursor* cursor, const ProposedChange& change, CommitPlan* plan, std::string* error) {
  if (const Status status = check_change(plan->owner, change, error)) return status;
  const ConfigTree::value_type* place = cursor->find(change.path);
  const SharedValue& held = (place == nullptr ? kUnset : place->second).value_of(plan->owner);
  if (change.value == nullptr && held == nullptr) {
    *error = std::string(owner_name(plan->owner)) + " does not set it";
    return kStatusNoSuchRow;
  }
  if (change.value != nullptr && held != nullptr && *change.value == *held) return kStatusOk;
  plan->changes.push_back(plan_change(place, plan->owner, change));
  count_change(plan->changes.back(), octets_of(change.path, held.get()), plan);
  return kStatusOk;
}

}  // namespace

bool paths_ascend(const std::vector<ProposedChange>& changes) {
  return std::ranges::adjacent_find(changes, std::greater_equal(), &ProposedChange::path) == changes.end();
}

std::size_t octets_of(std::string_view path, const KvValue* value) {
  if (value == nullptr) return 0;
  return path.size() + value->text.size() + value->tuple.size() * sizeof(std::int64_t);
}

const SharedValue& seen_value(const SharedValue& value) {
  static const SharedValue kNone;
  return value != nullptr && value->is_suppressed ? kNone : value;
}

const SharedValue& OwnedNode::value_of(std::size_t owner) const {
  static const SharedValue kNone;
  if (owner == effective_owner_) return effective_;
  return values_ == nullptr || owner == kNoOwner ? kNone : (*values_)[owner];
}

void OwnedNode::set(std::size_t owner, SharedValue value) {
  const bool is_only_owner = effective_owner_ == kNoOwner || effective_owner_ == owner;
  if (values_ == nullptr && is_only_owner) {
    effective_owner_ = value == nullptr ? kNoOwner : owner;
    effective_ = std::move(value);
    return;
  }
  if (values_ == nullptr) {
    values_ = std::make_unique<Values>();
    (*values_)[effective_owner_] = effective_;
  }
  effective_owner_ = effective_owner_after(owner, value != nullptr);
  (*values_)[owner] = std::move(value);
  effective_ = effective_owner_ == kNoOwner ? nullptr : (*values_)[effective_owner_];
}

std::size_t OwnedNode::effective_owner_after(std::size_t owner, bool sets) const {
  std::size_t first = 0;
  while (first < kNoOwner && !(first == owner ? sets : value_of(first) != nullptr)) ++first;
  return first;
}

KvConfigCommitChange to_public(const PlannedChange& change) {
  return {std::string(change.path), copy(change.before), copy(change.after),
          std::string(owner_name(change.owner_before)), std::string(owner_name(change.owner_after))};
}

KvConfigCommitChange to_observed(const PlannedChange& change) {
  KvConfigCommitChange observed = to_public(change);
  if (seen_value(change.before) == nullptr) observed.before.reset(), observed.owner_before.clear();
  if (seen_value(change.after) == nullptr) observed.after.reset(), observed.owner_after.clear();
  return observed;
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

Status plan_commit(const ConfigTree& tree, std::string_view owner, const Proposal& proposal, CommitPlan* plan,
                   std::string* error) {
  *plan = {};
  plan->owner = find_owner(owner);
  if (plan->owner == kNoOwner) {
    *error = "unknown owner \"" + std::string(owner) + "\"";
    return kStatusInvalid;
  }
  plan->ascends = proposal.ascends;
  std::unordered_set<std::string_view> seen;  // unless the paths ascend
  Cursor cursor(tree);
  plan->changes.reserve(proposal.changes.size());
  for (const ProposedChange& change : proposal.changes) {
    Status status = plan_one(&cursor, change, plan, error);
    if (status == kStatusOk && !plan->ascends && !seen.insert(change.path).second) {
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
  if (plan->ascends) return;
  std::ranges::sort(plan->by_path, {}, [](const PlannedChange* change) { return change->path.view(); });
}

ConfigTree::iterator apply_change(ConfigTree* tree, std::size_t owner, const PlannedChange& change,
                                  ConfigTree::iterator place) {
  if (change.value != nullptr) {
    const auto node = tree->try_emplace(place, change.path);
    node->second.set(owner, change.value);
    return std::next(node);
  }
  const bool is_there = place != tree->end() && place->first == change.path;
  const auto node = is_there ? place : tree->find(change.path);
  node->second.set(owner, nullptr);
  return node->second.effective_owner() == kNoOwner ? tree->erase(node) : std::next(node);
}

}  // namespace kvtree

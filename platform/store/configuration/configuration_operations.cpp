// A commit is planned (config_tree.h), written to the database in one transaction (node_store.h), applied to
// the tree and notified to the subscribers, in this order: a restart forgets nothing that the daemon acted
// on, and a commit that a power cut leaves in the database alone is effective afterwards. A notification
// posts a function per change and subscriber on the subscriber's event manager, which runs them in bounded
// batches with requests in between.
//
// The rows of a large commit are written to the database afterwards (NodeStore::fold_some), step by step on
// the event manager that serves requests, or at once without one. A step that fails is repeated every second.
// Without a directory the database is in memory, so there is one code path.
#include "platform/store/configuration/configuration.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/store/configuration/config_tree.h"
#include "platform/store/server/server.h"
#include "platform/store/server/store.h"

namespace kvtree {

namespace {

constexpr std::size_t kRowsPerFold = 500;
constexpr std::size_t kRowsAtOnce = 20000;  // without an event loop
constexpr std::uint64_t kFoldRetry = kNanosecondsPerSecond;

void fold_later(EventManager* manager);

// The database may be full or locked for a while; meanwhile commits wait in memory and in their records.
void fold_step(EventManager* manager, const std::weak_ptr<NodeStore>& weak) {
  const std::shared_ptr<NodeStore> node_store = weak.lock();
  if (node_store == nullptr || node_store != store().node_store) return;
  if (node_store->fold_some(kRowsPerFold)) {
    fold_later(manager);
  } else if (node_store->has_unfolded()) {
    event_timer_start(manager, kFoldRetry, [manager, weak] { fold_step(manager, weak); });
  } else {
    store().folding = false;
  }
}

void fold_later(EventManager* manager) {
  event_post(manager, [manager, weak = std::weak_ptr(store().node_store)] { fold_step(manager, weak); });
}

void fold() {
  if (!store().node_store->has_unfolded()) return;
  if (the_server() == nullptr) {
    while (store().node_store->fold_some(kRowsAtOnce)) {
    }
  } else if (!std::exchange(store().folding, true)) {
    fold_later(the_server()->manager);
  }
}

Status open_database(NodeStore** node_store) {
  if (store().node_store == nullptr) {
    if (const Status status = NodeStore::open_in_memory(&store().node_store)) return status;
  }
  *node_store = store().node_store.get();
  return kStatusOk;
}

// Deletions first: where one item replaces another, the place of the new item is free when it is added.
void apply_to_nodes(const CommitPlan& plan) {
  for (const PlannedChange& change : plan.changes) {
    if (change.is_effective && change.after == nullptr) erase_node(change.path);
  }
  auto place = store().nodes.end();
  for (const PlannedChange& change : plan.changes) {
    if (!change.is_effective || change.after == nullptr) continue;
    const bool is_quiet = change.before != nullptr && is_counted(change.path);
    place = std::next(put_node(change.path, change.after, place, is_quiet));
  }
}

void notify_observer(const ConfigObserver& observer, const CommitPlan& plan) {
  std::vector<KvConfigCommitChange> changes;
  for (const PlannedChange& change : plan.changes) {
    if (change.is_effective && change.path.starts_with(observer.path)) changes.push_back(to_public(change));
  }
  if (!changes.empty()) observer.function(changes);
}

void notify_observers(const CommitPlan& plan) {
  auto& observers = store().observers;
  std::erase_if(observers, [](const auto& observer) { return observer.expired(); });
  const auto current = observers;  // an observer may end itself
  for (const auto& weak : current) {
    if (const auto observer = weak.lock()) notify_observer(*observer, plan);
  }
}

// The database has a better reason than the status: "database or disk is full".
std::string why_not_stored(Status status) {
  const bool has_reason = store().node_store != nullptr && !store().node_store->write_error().empty();
  return has_reason ? store().node_store->write_error() : err_text(status);
}

Status write_to_database(const NodeStore::SharedPlan& plan, std::string_view comment, std::string* id,
                         std::string* error) {
  NodeStore* node_store = nullptr;
  Status status = open_database(&node_store);
  const CommitHead head{clock_stamp(), comment.substr(0, kMaxCommitComment)};
  if (status == kStatusOk) status = node_store->write(plan, head, id);
  if (status != kStatusOk) *error = "it could not be stored: " + why_not_stored(status);
  return status;
}

Status carry_out(const NodeStore::SharedPlan& plan, std::string_view comment, std::string* id,
                 std::string* error) {
  if (plan->changes.empty()) return kStatusOk;
  if (const Status status = write_to_database(plan, comment, id, error)) return status;
  if (const Status status = fault_check("configuration_apply")) {
    *error = std::string("it is stored but not applied before the next start: ") + err_text(status);
    log_error("configuration", "a commit was stored but not applied: %s", err_text(status));
    return status;
  }
  apply_plan(&store().configuration, *plan);
  store().configuration_octets += plan->added_octets;
  apply_to_nodes(*plan);
  notify_observers(*plan);
  fold();
  return kStatusOk;
}

bool grows_beyond(std::size_t now, std::int64_t added, std::size_t maximum) {
  return added > 0 && now + static_cast<std::size_t>(added) > maximum;
}

// Of the commit alone, which a replacement is not bound by: an owner may set the whole configuration.
Status check_commit_size(const CommitPlan& plan, std::string* error) {
  if (plan.set_octets <= kv_config_limits.commit_octets) return kStatusOk;
  *error = "a commit sets at most " + std::to_string(kv_config_limits.commit_octets) +
           " octets of paths and values";
  return kStatusMessageTooLarge;
}

// Of the configuration.
Status check_size(const CommitPlan& plan, std::string* error) {
  const auto octets = static_cast<std::size_t>(store().configuration_octets);
  if (grows_beyond(store().configuration.size(), plan.added_nodes, kv_config_limits.nodes)) {
    *error = "the configuration has at most " + std::to_string(kv_config_limits.nodes) + " nodes";
  } else if (grows_beyond(octets, plan.added_octets, kv_config_limits.octets)) {
    *error = "the configuration has at most " + std::to_string(kv_config_limits.octets) +
             " octets of paths and values";
  }
  return error->empty() ? kStatusOk : kStatusMessageTooLarge;
}

using Proposal = std::vector<ProposedChange>;

enum class CommitKind : std::uint8_t { kChanges, kReplacement };

Status commit(CommitKind kind, std::string_view owner, const Proposal& changes, std::string_view comment,
              std::string* id, std::string* error) {
  const auto plan = std::make_shared<CommitPlan>();
  if (const Status status = plan_commit(store().configuration, owner, changes, plan.get(), error))
    return status;
  if (kind == CommitKind::kChanges) {
    if (const Status status = check_commit_size(*plan, error)) return status;
  }
  if (const Status status = check_size(*plan, error)) return status;
  return carry_out(plan, comment, id, error);
}

// Visits the nodes below a path in order: visit(path, node).
template <typename Visit>
void visit_below(const ConfigTree& tree, std::string_view path, const Visit& visit) {
  auto node = tree.lower_bound(path);
  for (; node != tree.end() && node->first.starts_with(path); ++node) visit(node->first, node->second);
}

// The nodes in the order of the paths, each once: of two nodes with one path the last counts.
Proposal proposal_of(const std::vector<KvConfigNode>& nodes) {
  Proposal wanted;
  wanted.reserve(nodes.size());
  for (const KvConfigNode& node : nodes) wanted.push_back({node.path, &node.value});
  const auto path = [](const ProposedChange& change) { return change.path; };
  if (!std::ranges::is_sorted(wanted, {}, path)) std::ranges::stable_sort(wanted, {}, path);
  const auto same_path = [](const auto& one, const auto& other) { return one.path == other.path; };
  wanted.erase(wanted.begin(), std::unique(wanted.rbegin(), wanted.rend(), same_path).base());
  return wanted;
}

// The wanted values, and the withdrawal of the owner's others, in the order of the paths.
Proposal propose_replacement(std::size_t owner, const Proposal& wanted) {
  Proposal changes;
  auto next = wanted.begin();
  for (const auto& [path, node] : store().configuration) {
    if (owner == kNoOwner || node.values[owner] == nullptr) continue;
    while (next != wanted.end() && next->path < path) changes.push_back(*next++);
    if (next == wanted.end() || next->path != path) changes.push_back({path, nullptr});
  }
  changes.insert(changes.end(), next, wanted.end());
  return changes;
}

using Places = std::vector<ConfigTree::const_iterator>;

Places effective_places(const std::vector<std::string>& paths) {
  Places places;
  for (const std::string& path : paths) {
    const auto node = store().configuration.find(path);
    if (node != store().configuration.end()) places.push_back(node);
  }
  return places;
}

void notify_deletion(ConfigTree::const_iterator place) {
  notify_subscribers(place->first, nullptr, kKvEventDeleted);
}

void notify_set(ConfigTree::const_iterator place) {
  const OwnedNode& node = place->second;
  notify_subscribers(place->first, node.values[node.effective_owner()], kKvEventCreated | kKvEventSet);
}

using NotifiedPlaces = std::vector<std::pair<std::uint64_t, ConfigTree::const_iterator>>;

// Reads the stored values, and their places in the order of their last notification.
Status read_stored(NodeStore& node_store, ConfigTree* tree, NotifiedPlaces* places) {
  const Status status = node_store.for_each([&](std::string_view owner, std::string_view path, KvValue value,
                                                std::uint64_t notified) {
    const std::size_t number = find_owner(owner);
    if (check_configuration_path(path) != kStatusOk) return false;
    if (number == kNoOwner) {
      log_warning("configuration", "%.*s of \"%.*s\" is unknown and is skipped",
                  static_cast<int>(path.size()), path.data(), static_cast<int>(owner.size()), owner.data());
      return true;
    }
    const auto place = tree->try_emplace(tree->end(), std::string(path));
    place->second.values[number] = std::make_shared<const KvValue>(std::move(value));
    if (places->empty() || places->back().second != place) places->emplace_back(notified, place);
    return true;
  });
  std::ranges::stable_sort(*places, {}, [](const auto& each) { return each.first; });
  return status;
}

std::int64_t octets_of_all(const ConfigTree& tree) {
  std::size_t octets = 0;
  for (const auto& [path, node] : tree) {
    for (const SharedValue& value : node.values) octets += octets_of(path, value.get());
  }
  return static_cast<std::int64_t>(octets);
}

// A caller that passes no id or error gets one here.
struct Answers {
  Answers(std::string* wanted_id, std::string* wanted_error)
      : id(wanted_id == nullptr ? &own_id : wanted_id),
        error(wanted_error == nullptr ? &own_error : wanted_error) {
    id->clear();
    error->clear();
  }
  std::string own_id;
  std::string own_error;
  std::string* id;
  std::string* error;
};

}  // namespace

}  // namespace kvtree

using kvtree::store;

Status kvtree_config_commit(std::string_view owner, const std::vector<KvConfigChange>& changes,
                            std::string_view comment, std::string* id, std::string* error) {
  const kvtree::Answers answers(id, error);
  if (const Status status = fault_check("kvtree_config_commit")) return status;
  if (changes.size() > kMaxConfigChanges) {
    *answers.error = "a commit has at most " + std::to_string(kMaxConfigChanges) + " changes";
    return kStatusMessageTooLarge;
  }
  kvtree::Proposal proposal;
  proposal.reserve(changes.size());
  for (const auto& [path, value] : changes) proposal.push_back({path, value ? &*value : nullptr});
  return kvtree::commit(kvtree::CommitKind::kChanges, owner, proposal, comment, answers.id, answers.error);
}

Status kvtree_config_replace(std::string_view owner, const std::vector<KvConfigNode>& nodes,
                             std::string_view comment, std::string* id, std::string* error) {
  const kvtree::Answers answers(id, error);
  if (const Status status = fault_check("kvtree_config_replace")) return status;
  const kvtree::Proposal changes =
      kvtree::propose_replacement(kvtree::find_owner(owner), kvtree::proposal_of(nodes));
  return kvtree::commit(kvtree::CommitKind::kReplacement, owner, changes, comment, answers.id, answers.error);
}

void kvtree_config_owned(std::string_view owner, const std::function<void(const KvConfigNode&)>& visit) {
  const std::size_t number = kvtree::find_owner(owner);
  if (number == kvtree::kNoOwner) return;
  for (const auto& [path, node] : store().configuration) {
    if (node.values[number] != nullptr) visit({path, *node.values[number]});
  }
}

void kvtree_config_effective(std::string_view path, const std::function<void(const KvConfigNode&)>& visit) {
  kvtree::visit_below(store().configuration, path, [&](const std::string& place, const auto& node) {
    visit({place, *node.values[node.effective_owner()]});
  });
}

std::optional<KvConfigEffective> kvtree_config_find(std::string_view path) {
  const auto found = store().configuration.find(path);
  if (found == store().configuration.end()) return std::nullopt;
  const std::size_t owner = found->second.effective_owner();
  return KvConfigEffective{*found->second.values[owner], kvtree::owner_name(owner)};
}

std::shared_ptr<const void> kvtree_config_observe(std::string_view path, KvConfigObserver observer) {
  const auto added = std::make_shared<const kvtree::ConfigObserver>(
      kvtree::ConfigObserver{std::string(path), std::move(observer)});
  store().observers.push_back(added);
  return added;
}

Status kvtree_config_replay(const std::vector<std::string>& paths) {
  if (const Status status = fault_check("kvtree_config_replay")) return status;
  const kvtree::Places places = kvtree::effective_places(paths);
  for (const auto& place : places) kvtree::notify_deletion(place);
  for (const auto& place : places) kvtree::notify_set(place);
  return kStatusOk;
}

Status kvtree_config_announce(const std::string& path) {
  if (const Status status = fault_check("kvtree_config_announce")) return status;
  if (const Status status = kvtree::check_configuration_path(path)) return status;
  const auto place = store().configuration.find(path);
  if (place != store().configuration.end()) {
    kvtree::notify_set(place);
  } else {
    kvtree::notify_subscribers(path, nullptr, kKvEventDeleted);
  }
  return kStatusOk;
}

Status kvtree_config_replay_each(const std::vector<std::string>& paths, EventManager* manager,
                                 const std::function<void()>& before_deletion,
                                 const std::function<void()>& before_set) {
  if (const Status status = fault_check("kvtree_config_replay_each")) return status;
  if (manager == nullptr || !before_deletion || !before_set) return kStatusInvalid;
  const auto deletion = std::make_shared<const std::function<void()>>(before_deletion);
  const auto set = std::make_shared<const std::function<void()>>(before_set);
  for (const auto& place : kvtree::effective_places(paths)) {
    event_post(manager, [deletion] { (*deletion)(); });
    kvtree::notify_deletion(place);
    event_post(manager, [set] { (*set)(); });
    kvtree::notify_set(place);
  }
  return kStatusOk;
}

Status kvtree_config_history(std::uint32_t maximum, std::string_view before,
                             std::vector<KvConfigCommit>* commits) {
  commits->clear();
  if (const Status status = fault_check("kvtree_config_history")) return status;
  kvtree::NodeStore* node_store = nullptr;
  if (const Status status = kvtree::open_database(&node_store)) return status;
  return node_store->history(maximum, before, commits);
}

Status kvtree_config_changes(std::string_view id, std::vector<KvConfigCommitChange>* changes,
                             const KvConfigPage& page) {
  changes->clear();
  if (const Status status = fault_check("kvtree_config_changes")) return status;
  kvtree::NodeStore* node_store = nullptr;
  if (const Status status = kvtree::open_database(&node_store)) return status;
  return node_store->changes(id, page, changes);
}

Status kvtree_keep_configuration(const std::string& directory) {
  if (const Status status = fault_check("kvtree_keep_configuration")) return status;
  if (store().node_store != nullptr) return kStatusExists;
  std::shared_ptr<kvtree::NodeStore> node_store;
  if (const Status status = kvtree::NodeStore::open(directory, &node_store)) return status;
  kvtree::ConfigTree tree;
  kvtree::NotifiedPlaces places;
  if (const Status status = kvtree::read_stored(*node_store, &tree, &places)) return status;
  for (const auto& [notified, place] : places) {
    const kvtree::OwnedNode& node = place->second;
    kvtree::put_node(place->first, node.values[node.effective_owner()], store().nodes.end());
  }
  store().configuration = std::move(tree);
  store().configuration_octets = kvtree::octets_of_all(store().configuration);
  store().node_store = std::move(node_store);
  return kStatusOk;
}

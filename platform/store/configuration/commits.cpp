// Commits: see config.h.
//
// A commit is planned (config_tree.h), written to the database in one transaction (node_store.h), made in the
// tree and told to the subscribers, in this order: nothing that the daemon acted on is forgotten by a
// restart, and what a power cut leaves in the database alone is in force after it. Telling posts a function a
// change and subscriber on the subscriber's event manager, which runs them in bounded batches with requests
// in between.
//
// A large commit's rows are brought to their places in the database afterwards (NodeStore::fold_some), step
// by step on the event manager that serves requests; without one, at once. Without a directory the database
// is in memory, so there is one way of doing things.
#include "platform/store/configuration/config.h"

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

void fold_later(EventManager* manager) {
  event_post(manager, [manager, weak = std::weak_ptr(store().node_store)] {
    const std::shared_ptr<NodeStore> kept = weak.lock();
    if (kept == nullptr || kept != store().node_store) return;
    if (kept->fold_some(kRowsPerFold)) {
      fold_later(manager);
    } else {
      store().folding = false;
    }
  });
}

void fold() {
  if (!store().node_store->has_unfolded()) return;
  if (servers().empty()) {
    while (store().node_store->fold_some(kRowsPerFold)) {
    }
  } else if (!std::exchange(store().folding, true)) {
    fold_later(servers().begin()->first);
  }
}

Status open_database(NodeStore** kept) {
  if (store().node_store == nullptr) {
    if (const Status status = NodeStore::open_in_memory(&store().node_store)) return status;
  }
  *kept = store().node_store.get();
  return kStatusOk;
}

bool is_counted(std::string_view path) {
  return std::any_of(kConfigCountedScopes.begin(), kConfigCountedScopes.end(),
                     [path](std::string_view scope) { return path.starts_with(scope); });
}

// Deletions first: where one item replaces another, its place is free when it comes.
void make_in_tree(const CommitPlan& plan) {
  for (const PlannedChange& change : plan.changes) {
    if (change.tells && change.after == nullptr) erase_node(change.path);
  }
  auto place = store().nodes.end();
  for (const PlannedChange& change : plan.changes) {
    if (!change.tells || change.after == nullptr) continue;
    const bool is_quiet = change.before != nullptr && is_counted(change.path);
    place = std::next(put_node(change.path, change.after, place, is_quiet));
  }
}

void tell_observer(const ConfigObserver& observer, const CommitPlan& plan) {
  std::vector<KvConfigCommitChange> changes;
  for (const PlannedChange& change : plan.changes) {
    if (change.tells && change.path.starts_with(observer.path)) changes.push_back(to_public(change));
  }
  if (!changes.empty()) observer.function(changes);
}

void tell_observers(const CommitPlan& plan) {
  auto& observers = store().observers;
  std::erase_if(observers, [](const auto& observer) { return observer.expired(); });
  const auto present = observers;  // one that is called may end itself
  for (const auto& weak : present) {
    if (const auto observer = weak.lock()) tell_observer(*observer, plan);
  }
}

Status carry_out(const NodeStore::SharedPlan& plan, std::string_view comment, std::string* id) {
  if (plan->changes.empty()) return kStatusOk;
  NodeStore* kept = nullptr;
  if (const Status status = open_database(&kept)) return status;
  const CommitHead head{clock_stamp(), comment.substr(0, kMaxCommitComment)};
  if (const Status status = kept->write(plan, head, id)) return status;
  if (const Status status = fault_check("configuration_apply")) {
    log_line("configuration: a commit was kept but not made: %s", err_text(status));
    return status;
  }
  apply_plan(&store().configuration, *plan);
  make_in_tree(*plan);
  tell_observers(*plan);
  fold();
  return kStatusOk;
}

// The database says more than a status: "database or disk is full".
std::string why_not_kept(Status status) {
  const bool is_told = store().node_store != nullptr && !store().node_store->write_error().empty();
  return is_told ? store().node_store->write_error() : err_text(status);
}

using Proposal = std::vector<ProposedChange>;

Status commit(std::string_view owner, const Proposal& changes, std::string_view comment, std::string* id,
              std::string* mistake) {
  const auto plan = std::make_shared<CommitPlan>();
  if (const Status status = plan_commit(store().configuration, owner, changes, plan.get(), mistake))
    return status;
  const Status status = carry_out(plan, comment, id);
  if (status != kStatusOk) *mistake = "it could not be kept: " + why_not_kept(status);
  return status;
}

// The nodes below a path, from the first on: visit(path, node).
template <typename Visit>
void visit_below(const ConfigTree& tree, std::string_view path, const Visit& visit) {
  auto node = tree.lower_bound(path);
  for (; node != tree.end() && node->first.starts_with(path); ++node) visit(node->first, node->second);
}

bool is_below(std::string_view path, const std::vector<std::string>& scopes) {
  for (const std::string& scope : scopes) {
    if (path.starts_with(scope)) return true;
  }
  return false;
}

Status check_scopes(const std::vector<std::string>& scopes, std::string* mistake) {
  for (const std::string& scope : scopes) {
    if (scope.starts_with("/cfg/") && scope.ends_with('/')) continue;
    *mistake = scope + ": it is not part of the configuration";
    return kStatusUnknownPath;
  }
  return kStatusOk;
}

// The scopes in the order of the paths, without those that are below another one.
std::vector<std::string> outermost(std::vector<std::string> scopes) {
  std::ranges::sort(scopes);
  std::vector<std::string> outer;
  for (std::string& scope : scopes) {
    if (outer.empty() || !scope.starts_with(outer.back())) outer.push_back(std::move(scope));
  }
  return outer;
}

// What is asked for, in the order of the paths, each once: of two nodes with one path the last counts.
Status propose_wanted(const std::vector<std::string>& scopes, const std::vector<KvConfigNode>& nodes,
                      Proposal* wanted, std::string* mistake) {
  wanted->reserve(nodes.size());
  for (const KvConfigNode& node : nodes) {
    if (!is_below(node.path, scopes)) {
      *mistake = node.path + ": it is in none of the parts that are replaced";
      return kStatusInvalid;
    }
    wanted->push_back({node.path, &node.value});
  }
  const auto path = [](const ProposedChange& change) { return change.path; };
  if (!std::ranges::is_sorted(*wanted, {}, path)) std::ranges::stable_sort(*wanted, {}, path);
  const auto same_path = [](const auto& one, const auto& other) { return one.path == other.path; };
  wanted->erase(wanted->begin(), std::unique(wanted->rbegin(), wanted->rend(), same_path).base());
  return kStatusOk;
}

// What the owner holds below the scope and is not wanted any more.
void propose_letting_go(std::size_t owner, const std::string& scope, const Proposal& wanted,
                        Proposal* unwanted) {
  auto next = wanted.begin();  // both are in the order of the paths
  visit_below(store().configuration, scope, [&](const std::string& path, const OwnedNode& node) {
    if (node.values[owner] == nullptr) return;
    while (next != wanted.end() && next->path < path) ++next;
    if (next == wanted.end() || next->path != path) unwanted->push_back({path, nullptr});
  });
}

// What of these parts of the tree is not wanted any more, then what is wanted.
Status propose_replacement(std::size_t owner, const std::vector<std::string>& scopes,
                           const std::vector<KvConfigNode>& nodes, Proposal* changes, std::string* mistake) {
  if (const Status status = check_scopes(scopes, mistake)) return status;
  Proposal wanted;
  if (const Status status = propose_wanted(scopes, nodes, &wanted, mistake)) return status;
  for (const std::string& scope : outermost(scopes)) {
    if (owner != kNoOwner) propose_letting_go(owner, scope, wanted, changes);
  }
  changes->insert(changes->end(), wanted.begin(), wanted.end());
  return kStatusOk;
}

using Places = std::vector<ConfigTree::const_iterator>;

Places places_in_force(const std::vector<std::string>& paths) {
  Places places;
  for (const std::string& path : paths) {
    const auto node = store().configuration.find(path);
    if (node != store().configuration.end()) places.push_back(node);
  }
  return places;
}

void tell_deletion(ConfigTree::const_iterator place) {
  notify_subscribers(place->first, nullptr, kKvEventDeleted);
}

void tell_set(ConfigTree::const_iterator place) {
  const OwnedNode& node = place->second;
  notify_subscribers(place->first, node.values[node.in_force()], kKvEventCreated | kKvEventSet);
}

using ToldPlaces = std::vector<std::pair<std::uint64_t, ConfigTree::const_iterator>>;

// What the database has, and its places in the order in which they were last told.
Status read_kept(const NodeStore& kept, ConfigTree* tree, ToldPlaces* places) {
  const Status status =
      kept.for_each([&](std::string_view owner, std::string_view path, KvValue value, std::uint64_t told) {
        const std::size_t number = find_owner(owner);
        if (number == kNoOwner || check_configuration_path(path) != kStatusOk) {
          log_line("configuration: %.*s of \"%.*s\" is not understood and is left out",
                   static_cast<int>(path.size()), path.data(), static_cast<int>(owner.size()), owner.data());
          return;
        }
        const auto place = tree->try_emplace(tree->end(), std::string(path));
        place->second.values[number] = std::make_shared<const KvValue>(std::move(value));
        if (places->empty() || places->back().second != place) places->emplace_back(told, place);
      });
  std::ranges::stable_sort(*places, {}, [](const auto& each) { return each.first; });
  return status;
}

// A caller that wants no id or mistake gets one of its own.
struct Answers {
  Answers(std::string* wanted_id, std::string* wanted_mistake)
      : id(wanted_id == nullptr ? &own_id : wanted_id),
        mistake(wanted_mistake == nullptr ? &own_mistake : wanted_mistake) {
    id->clear();
    mistake->clear();
  }
  std::string own_id;
  std::string own_mistake;
  std::string* id;
  std::string* mistake;
};

}  // namespace

}  // namespace kvtree

using kvtree::store;

Status kvtree_config_commit(std::string_view owner, const std::vector<KvConfigChange>& changes,
                            std::string_view comment, std::string* id, std::string* mistake) {
  const kvtree::Answers answers(id, mistake);
  if (const Status status = fault_check("kvtree_config_commit")) return status;
  kvtree::Proposal proposal;
  proposal.reserve(changes.size());
  for (const auto& [path, value] : changes) proposal.push_back({path, value ? &*value : nullptr});
  return kvtree::commit(owner, proposal, comment, answers.id, answers.mistake);
}

Status kvtree_config_replace(std::string_view owner, const std::vector<std::string>& scopes,
                             const std::vector<KvConfigNode>& nodes, std::string_view comment,
                             std::string* id, std::string* mistake) {
  const kvtree::Answers answers(id, mistake);
  if (const Status status = fault_check("kvtree_config_replace")) return status;
  kvtree::Proposal changes;
  if (const Status status =
          kvtree::propose_replacement(kvtree::find_owner(owner), scopes, nodes, &changes, answers.mistake))
    return status;
  return kvtree::commit(owner, changes, comment, answers.id, answers.mistake);
}

void kvtree_config_owned(std::string_view owner, std::string_view path,
                         const std::function<void(const KvConfigNode&)>& visit) {
  const std::size_t number = kvtree::find_owner(owner);
  if (number == kvtree::kNoOwner) return;
  kvtree::visit_below(store().configuration, path, [&](const std::string& place, const auto& node) {
    if (node.values[number] != nullptr) visit({place, *node.values[number]});
  });
}

void kvtree_config_effective(std::string_view path, const std::function<void(const KvConfigNode&)>& visit) {
  kvtree::visit_below(store().configuration, path, [&](const std::string& place, const auto& node) {
    visit({place, *node.values[node.in_force()]});
  });
}

std::optional<KvConfigEffective> kvtree_config_find(std::string_view path) {
  const auto found = store().configuration.find(path);
  if (found == store().configuration.end()) return std::nullopt;
  const std::size_t owner = found->second.in_force();
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
  const kvtree::Places places = kvtree::places_in_force(paths);
  for (const auto& place : places) kvtree::tell_deletion(place);
  for (const auto& place : places) kvtree::tell_set(place);
  return kStatusOk;
}

Status kvtree_config_announce(const std::string& path) {
  if (const Status status = fault_check("kvtree_config_announce")) return status;
  if (const Status status = kvtree::check_configuration_path(path)) return status;
  const auto place = store().configuration.find(path);
  if (place != store().configuration.end()) {
    kvtree::tell_set(place);
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
  for (const auto& place : kvtree::places_in_force(paths)) {
    event_post(manager, [deletion] { (*deletion)(); });
    kvtree::tell_deletion(place);
    event_post(manager, [set] { (*set)(); });
    kvtree::tell_set(place);
  }
  return kStatusOk;
}

Status kvtree_config_history(std::uint32_t maximum, std::string_view before,
                             std::vector<KvConfigCommit>* commits) {
  commits->clear();
  if (const Status status = fault_check("kvtree_config_history")) return status;
  kvtree::NodeStore* kept = nullptr;
  if (const Status status = kvtree::open_database(&kept)) return status;
  return kept->history(maximum, before, commits);
}

Status kvtree_config_changes(std::string_view id, std::vector<KvConfigCommitChange>* changes) {
  changes->clear();
  if (const Status status = fault_check("kvtree_config_changes")) return status;
  kvtree::NodeStore* kept = nullptr;
  if (const Status status = kvtree::open_database(&kept)) return status;
  return kept->changes(id, changes);
}

Status kvtree_keep_configuration(const std::string& directory) {
  if (const Status status = fault_check("kvtree_keep_configuration")) return status;
  if (store().node_store != nullptr) return kStatusExists;
  std::shared_ptr<kvtree::NodeStore> kept;
  if (const Status status = kvtree::NodeStore::open(directory, &kept)) return status;
  kvtree::ConfigTree tree;
  kvtree::ToldPlaces places;
  if (const Status status = kvtree::read_kept(*kept, &tree, &places)) return status;
  for (const auto& [told, place] : places) {
    const kvtree::OwnedNode& node = place->second;
    kvtree::put_node(place->first, node.values[node.in_force()], store().nodes.end());
  }
  store().configuration = std::move(tree);
  store().node_store = std::move(kept);
  return kStatusOk;
}

// A commit is planned (config_tree.h), written to the database in one transaction (node_store.h), applied to
// the tree and notified to the subscribers, in this order: a restart forgets nothing that the daemon acted
// on, and a commit that a power cut leaves in the database alone is effective afterwards. A notification
// posts a function per change and subscriber on the subscriber's event manager, which runs them in bounded
// batches with requests in between.
//
// Commits are made one after the other, without delaying the loop where the caller can wait for a function to
// be called (commit_queue.h). Without a directory the database is in memory, so there is one code path.
#include "platform/store/configuration/configuration.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/store/commits/commit_preparation.h"
#include "platform/store/commits/commit_queue.h"
#include "platform/store/commits/config_view.h"
#include "platform/store/configuration/config_tree.h"
#include "platform/store/configuration/stored_configuration.h"
#include "platform/store/server/server.h"
#include "platform/store/server/store.h"

namespace kvtree {

namespace {

// Makes a commit at once, after those that are being made.
Status commit(const CommitRequest& request, std::string* id, std::string* error) {
  finish_commits();
  NodeStore* node_store = nullptr;
  if (const Status status = open_database(&node_store)) {
    *error = std::string(err_text(status)) + ": there is no database to store it";
    return status;
  }
  PreparedCommit prepared = prepare_commit(request, clock_stamp(), node_store);
  if (prepared.status == kStatusOk && !prepared.plan->changes.empty()) {
    prepared.status = begin_application(&prepared);
    if (prepared.status == kStatusOk) {
      store().application->step(UINT64_MAX);
      end_application();
    }
  }
  *id = prepared.id;
  *error = prepared.error;
  return prepared.status;
}

Status check_count(const std::vector<KvConfigChange>& changes, std::string* error) {
  if (changes.size() <= kMaxConfigChanges) return kStatusOk;
  *error = "a commit has at most " + std::to_string(kMaxConfigChanges) + " changes";
  return kStatusMessageTooLarge;
}

void fail_later(EventManager* manager, Status status, const std::string& error, KvConfigDone done) {
  event_post(manager, [done = std::move(done), status, error] { done(status, {}, error); });
}

// A replay sees and follows the whole commit that is being applied.
Status replay_later_or_now(std::function<void()> replay) {
  if (store().application != nullptr) {
    store().replays.push_back(std::move(replay));
  } else {
    replay();
  }
  return kStatusOk;
}

// The memory of the caller, which outlives the call.
template <typename Value>
std::shared_ptr<const Value> borrowed(const Value& value) {
  return {std::shared_ptr<const Value>(), &value};
}

using Places = std::vector<ConfigTree::const_iterator>;

Places effective_places(const std::vector<std::string>& paths) {
  Places places;
  for (const std::string& path : paths) {
    const auto node = store().configuration.find(path);
    if (node != store().configuration.end() && node->second.effective_value() != nullptr)
      places.push_back(node);
  }
  return places;
}

void notify_deletion(ConfigTree::const_iterator place) {
  notify_subscribers(place->first, nullptr, kKvEventDeleted);
}

void notify_set(ConfigTree::const_iterator place) {
  notify_subscribers(place->first, place->second.effective_value(), kKvEventCreated | kKvEventSet);
}

std::int64_t octets_of_all(const ConfigTree& tree) {
  std::size_t octets = 0;
  for (const auto& [path, node] : tree) {
    for (std::size_t owner = 0; owner < kNoOwner; ++owner)
      octets += octets_of(path, node.value_of(owner).get());
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

EffectiveValue find_effective(std::string_view path) {
  EffectiveValue found;
  visit_view(store().configuration, path, false, [&](const auto& viewed) {
    if (viewed.path == path) found = effective_value_of(viewed);
    return false;
  });
  return found;
}

}  // namespace kvtree

using kvtree::store;

Status kvtree_config_commit(std::string_view owner, const std::vector<KvConfigChange>& changes,
                            std::string_view comment, std::string* id, std::string* error) {
  const kvtree::Answers answers(id, error);
  if (const Status status = fault_check("kvtree_config_commit")) return status;
  if (const Status status = kvtree::check_count(changes, answers.error)) return status;
  return kvtree::commit({std::string(owner), std::string(comment), kvtree::borrowed(changes), nullptr},
                        answers.id, answers.error);
}

Status kvtree_config_replace(std::string_view owner, const std::vector<KvConfigNode>& nodes,
                             std::string_view comment, std::string* id, std::string* error) {
  const kvtree::Answers answers(id, error);
  if (const Status status = fault_check("kvtree_config_replace")) return status;
  return kvtree::commit({std::string(owner), std::string(comment), nullptr, kvtree::borrowed(nodes)},
                        answers.id, answers.error);
}

void kvtree_config_begin_commit(EventManager* manager, std::string_view owner,
                                std::shared_ptr<const std::vector<KvConfigChange>> changes,
                                std::string_view comment, KvConfigDone done) {
  if (const Status status = fault_check("kvtree_config_commit"))
    return kvtree::fail_later(manager, status, {}, std::move(done));
  std::string error;
  if (const Status status = kvtree::check_count(*changes, &error))
    return kvtree::fail_later(manager, status, error, std::move(done));
  kvtree::commit_queue(manager).add({std::string(owner), std::string(comment), std::move(changes), nullptr},
                                    std::move(done));
}

void kvtree_config_begin_replacement(EventManager* manager, std::string_view owner,
                                     std::shared_ptr<const std::vector<KvConfigNode>> nodes,
                                     std::string_view comment, KvConfigDone done) {
  if (const Status status = fault_check("kvtree_config_replace"))
    return kvtree::fail_later(manager, status, {}, std::move(done));
  kvtree::commit_queue(manager).add({std::string(owner), std::string(comment), nullptr, std::move(nodes)},
                                    std::move(done));
}

void kvtree_config_owned(std::string_view owner, const std::function<void(const KvConfigNode&)>& visit) {
  const std::size_t number = kvtree::find_owner(owner);
  if (number == kvtree::kNoOwner) return;
  kvtree::visit_view(store().configuration, {}, false, [&](const auto& viewed) {
    if (const kvtree::SharedValue value = kvtree::value_of(viewed, number))
      visit({std::string(viewed.path), *value});
    return true;
  });
}

void kvtree_config_effective(std::string_view path, const std::function<void(const KvConfigNode&)>& visit) {
  kvtree::visit_view(store().configuration, path, false, [&](const auto& viewed) {
    if (!viewed.path.starts_with(path)) return false;
    if (const kvtree::SharedValue value = kvtree::effective_value_of(viewed).value)
      visit({std::string(viewed.path), *value});
    return true;
  });
}

std::optional<KvConfigEffective> kvtree_config_find(std::string_view path) {
  const kvtree::EffectiveValue found = kvtree::find_effective(path);
  if (found.value == nullptr) return std::nullopt;
  return KvConfigEffective{*found.value, kvtree::owner_name(found.owner)};
}

std::shared_ptr<const void> kvtree_config_observe(std::string_view path, KvConfigObserver observer) {
  const auto added = std::make_shared<const kvtree::ConfigObserver>(
      kvtree::ConfigObserver{std::string(path), std::move(observer)});
  store().observers.push_back(added);
  return added;
}

Status kvtree_config_replay(const std::vector<std::string>& paths) {
  if (const Status status = fault_check("kvtree_config_replay")) return status;
  return kvtree::replay_later_or_now([paths] {
    const kvtree::Places places = kvtree::effective_places(paths);
    for (const auto& place : places) kvtree::notify_deletion(place);
    for (const auto& place : places) kvtree::notify_set(place);
  });
}

Status kvtree_config_announce(const std::string& path) {
  if (const Status status = fault_check("kvtree_config_announce")) return status;
  if (const Status status = kvtree::check_configuration_path(path)) return status;
  return kvtree::replay_later_or_now([path] {
    const auto place = store().configuration.find(path);
    if (place != store().configuration.end() && place->second.effective_value() != nullptr) {
      kvtree::notify_set(place);
    } else {
      kvtree::notify_subscribers(path, nullptr, kKvEventDeleted);
    }
  });
}

Status kvtree_config_replay_each(const std::vector<std::string>& paths, EventManager* manager,
                                 const std::function<void()>& before_deletion,
                                 const std::function<void()>& before_set) {
  if (const Status status = fault_check("kvtree_config_replay_each")) return status;
  if (manager == nullptr || !before_deletion || !before_set) return kStatusInvalid;
  const auto deletion = std::make_shared<const std::function<void()>>(before_deletion);
  const auto set = std::make_shared<const std::function<void()>>(before_set);
  return kvtree::replay_later_or_now([paths, manager, deletion, set] {
    for (const auto& place : kvtree::effective_places(paths)) {
      event_post(manager, [deletion] { (*deletion)(); });
      kvtree::notify_deletion(place);
      event_post(manager, [set] { (*set)(); });
      kvtree::notify_set(place);
    }
  });
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

std::string kvtree_configuration_problem() {
  return store().node_store == nullptr ? "" : store().node_store->problem();
}

sqlite::Quarantine kvtree_configuration_quarantine() {
  return store().node_store == nullptr ? sqlite::Quarantine{} : store().node_store->quarantined();
}

Status kvtree_keep_configuration(const std::string& directory) {
  if (const Status status = fault_check("kvtree_keep_configuration")) return status;
  if (store().node_store != nullptr) return kStatusExists;
  std::shared_ptr<kvtree::NodeStore> node_store;
  if (const Status status = kvtree::NodeStore::open(directory, &node_store)) return status;
  kvtree::StoredConfiguration stored;
  if (const Status status = kvtree::read_stored(node_store.get(), &stored)) return status;
  for (const auto& place : stored.in_order) {
    if (place->second.effective_value() == nullptr) continue;
    kvtree::put_node(place->first, place->second.effective_value(), store().nodes.end(), true);
  }
  store().configuration = std::move(stored.tree);
  store().configuration_octets = kvtree::octets_of_all(store().configuration);
  store().node_store = std::move(node_store);
  kvtree::fold();
  return kStatusOk;
}

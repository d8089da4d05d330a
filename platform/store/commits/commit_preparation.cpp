#include "platform/store/commits/commit_preparation.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/files/user_name.h"
#include "platform/store/commits/application.h"
#include "platform/store/server/store.h"

namespace kvtree {

namespace {

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

Proposal proposal_of(const std::vector<KvConfigChange>& changes) {
  std::vector<ProposedChange> proposed;
  proposed.reserve(changes.size());
  for (const auto& [path, value] : changes) proposed.push_back({path, value ? &*value : nullptr});
  const bool ascends = paths_ascend(proposed);
  return {std::move(proposed), ascends};
}

// The nodes in the order of the paths, each once: of two nodes with one path the last counts.
std::vector<ProposedChange> wanted_of(const std::vector<KvConfigNode>& nodes) {
  std::vector<ProposedChange> wanted;
  wanted.reserve(nodes.size());
  for (const KvConfigNode& node : nodes) wanted.push_back({node.path, &node.value});
  if (paths_ascend(wanted)) return wanted;
  std::ranges::stable_sort(wanted, {}, &ProposedChange::path);
  const auto same_path = [](const auto& one, const auto& other) { return one.path == other.path; };
  wanted.erase(wanted.begin(), std::unique(wanted.rbegin(), wanted.rend(), same_path).base());
  return wanted;
}

// The wanted values, and the withdrawal of the owner's others, in the order of the paths.
Proposal propose_replacement(std::size_t owner, std::vector<ProposedChange> wanted) {
  std::vector<ProposedChange> changes;
  auto next = wanted.begin();
  for (const auto& [path, node] : store().configuration) {
    if (owner == kNoOwner || node.value_of(owner) == nullptr) continue;
    while (next != wanted.end() && next->path < path) changes.push_back(*next++);
    if (next == wanted.end() || next->path != path) changes.push_back({path, nullptr});
  }
  if (changes.empty()) return {std::move(wanted), true};
  changes.insert(changes.end(), next, wanted.end());
  return {std::move(changes), true};
}

bool waits_for_confirmation(const std::string& id, NodeStore* node_store) {
  const std::optional<Confirmation> waiting = node_store->confirmation();
  return waiting && std::to_string(waiting->commit) == id;
}

Status check_confirmation(const CommitRequest& request, NodeStore* node_store, std::string* error) {
  const std::optional<Confirmation> waiting = node_store->confirmation();
  if (request.confirmation == 0 || !waiting) return kStatusOk;
  *error = "commit " + std::to_string(waiting->commit) +
           " waits for its confirmation; confirm it, or wait until it is undone";
  return kStatusExists;
}

Status plan(const CommitRequest& request, NodeStore* node_store, CommitPlan* plan, std::string* error) {
  if (const Status status = check_confirmation(request, node_store, error)) return status;
  const bool is_replacement = request.nodes != nullptr;
  std::vector<KvConfigChange> undoing;
  if (!request.undone.empty() && waits_for_confirmation(request.undone, node_store))
    undoing = node_store->undo_waiting_commit(store().configuration);
  const Proposal proposal = is_replacement
                                ? propose_replacement(find_owner(request.owner), wanted_of(*request.nodes))
                                : proposal_of(request.undone.empty() ? *request.changes : undoing);
  if (const Status status = plan_commit(store().configuration, request.owner, proposal, plan, error))
    return status;
  if (!is_replacement) {
    if (const Status status = check_commit_size(*plan, error)) return status;
  }
  return check_size(*plan, error);
}

Status write(const CommitRequest& request, std::uint64_t time, NodeStore* node_store,
             PreparedCommit* prepared) {
  CommitHead head{time, std::string_view(request.comment).substr(0, kMaxCommitComment)};
  if (request.author != nullptr) head.user = request.author->name;
  head.confirmation = request.confirmation;
  head.ends_confirmation = !request.undone.empty();
  return node_store->write(prepared->plan, head, &prepared->id, &prepared->error);
}

}  // namespace

Status open_database(NodeStore** node_store) {
  if (store().node_store == nullptr) {
    if (const Status status = NodeStore::open_in_memory(&store().node_store)) return status;
  }
  *node_store = store().node_store.get();
  return kStatusOk;
}

PreparedCommit prepare_commit(const CommitRequest& request, std::uint64_t time, NodeStore* node_store) {
  PreparedCommit prepared;
  prepared.plan = std::make_shared<CommitPlan>();
  if (request.author != nullptr) request.author->name = user_name(request.author->user);
  prepared.status = plan(request, node_store, prepared.plan.get(), &prepared.error);
  if (prepared.status != kStatusOk) return prepared;
  if (prepared.plan->changes.empty()) {
    if (!request.undone.empty() && waits_for_confirmation(request.undone, node_store))
      prepared.status = node_store->end_confirmation("", &prepared.error);
    return prepared;
  }
  index_by_path(prepared.plan.get());
  prepared.status = write(request, time, node_store, &prepared);
  return prepared;
}

Status begin_application(PreparedCommit* prepared) {
  if (const Status status = fault_check("configuration_apply")) {
    prepared->error = std::string("it is stored but not applied before the next start: ") + err_text(status);
    log_error("configuration", "a commit was stored but not applied: %s", err_text(status));
    return status;
  }
  store().configuration_octets += prepared->plan->added_octets;
  store().application = std::make_shared<Application>(prepared->plan);
  return kStatusOk;
}

void end_application() {
  store().application = nullptr;
  for (const auto& replay : std::exchange(store().replays, {})) replay();
  fold();
}

}  // namespace kvtree

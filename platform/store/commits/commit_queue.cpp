#include "platform/store/commits/commit_queue.h"

#include <utility>

#include "platform/core/base/clock.h"
#include "platform/store/commits/application.h"
#include "platform/store/commits/commit_preparation.h"
#include "platform/store/server/store.h"

namespace kvtree {

namespace {

constexpr std::uint64_t kStep = kNanosecondsPerMillisecond;

std::size_t count_changes(const CommitRequest& request) {
  return request.changes == nullptr ? 0 : request.changes->size();
}

// What was large is freed on the thread, once the notifications, which share it, are delivered.
void free_later(EventManager* manager, std::shared_ptr<void> large) {
  event_post(manager, [large = std::move(large)]() mutable {
    if (store().commits != nullptr) store().commits->worker().run([freed = std::move(large)] {}, [] {});
  });
}

}  // namespace

void CommitQueue::add(CommitRequest request, KvConfigDone done) {
  commits_.push_back(std::make_shared<Commit>(Commit{std::move(request), std::move(done), clock_stamp()}));
  if (commits_.size() == 1) begin_next();
}

void CommitQueue::begin_next() {
  if (commits_.empty()) return;
  const std::shared_ptr<Commit>& commit = commits_.front();
  NodeStore* node_store = nullptr;
  commit->prepared.status = open_database(&node_store);
  const auto prepare = [commit, node_store_owner = store().node_store] {
    if (commit->prepared.status == kStatusOk)
      commit->prepared = prepare_commit(commit->request, commit->time, node_store_owner.get());
  };
  worker_.run(prepare, [this] { apply(); });
}

void CommitQueue::apply() {
  PreparedCommit& prepared = commits_.front()->prepared;
  const bool is_planned = prepared.status == kStatusOk && !prepared.plan->changes.empty();
  if (is_planned) prepared.status = begin_application(&prepared);
  if (store().application == nullptr) return conclude();
  step();
}

// The notifications of a step are delivered before the next one: their queues stay short.
void CommitQueue::step() {
  if (store().application->step(kStep)) return conclude();
  event_post(worker_.manager(), [this, weak = std::weak_ptr(store().application)] {
    if (!weak.expired()) step();
  });
}

// `done` may end the queue.
void CommitQueue::conclude() {
  if (store().application != nullptr) end_application();
  std::shared_ptr<Commit> commit = std::move(commits_.front());
  commits_.pop_front();
  begin_next();
  const KvConfigDone done = std::move(commit->done);
  const Status status = commit->prepared.status;
  const std::string id = commit->prepared.id;
  const std::string error = commit->prepared.error;
  free_later(worker_.manager(), std::move(commit));
  if (done) done(status, id, error);
}

void CommitQueue::finish() {
  while (!commits_.empty()) {
    if (store().application == nullptr) {
      worker_.finish();
      continue;
    }
    while (!store().application->step(UINT64_MAX)) {
    }
    conclude();
  }
}

std::size_t CommitQueue::count_unapplied() const {
  std::size_t count = store().application == nullptr ? 0 : store().application->count_left();
  for (const auto& commit : commits_) count += count_changes(commit->request);
  return count;
}

CommitQueue& commit_queue(EventManager* manager) {
  auto& queue = store().commits;
  if (queue != nullptr && queue->worker().manager() != manager) {
    queue->finish();
    queue = nullptr;
  }
  if (queue == nullptr) queue = std::make_shared<CommitQueue>(manager);
  return *queue;
}

void finish_commits() {
  if (store().commits != nullptr) store().commits->finish();
}

}  // namespace kvtree

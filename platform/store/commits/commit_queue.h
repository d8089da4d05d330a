// Commits that are made one after the other without delaying the event loop. Only for this folder and the
// store.
//
// A commit is planned and written to the database on the worker's thread, then applied in steps on the loop
// (application.h). Only the application changes the tree, and nothing is planned before it ends: so the
// thread reads the tree while the loop answers requests from it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/core/evm/worker.h"
#include "platform/store/commits/commit_preparation.h"
#include "platform/store/configuration/configuration.h"

namespace kvtree {

class CommitQueue {
 public:
  explicit CommitQueue(EventManager* manager) : worker_(manager) {}
  CommitQueue(const CommitQueue&) = delete;
  CommitQueue& operator=(const CommitQueue&) = delete;

  EventWorker& worker() { return worker_; }
  bool is_empty() const { return commits_.empty(); }
  // Makes the commit after those before it. `done` is called on the loop, never in this call, once the commit
  // is applied and its notifications are posted to the subscribers, or when it has failed.
  void add(CommitRequest request, KvConfigDone done);
  // Makes all commits before it returns.
  void finish();
  // Changes of clients' commits that are not applied yet.
  std::size_t count_unapplied() const;

 private:
  struct Commit {
    CommitRequest request;
    KvConfigDone done;
    std::uint64_t time = 0;
    PreparedCommit prepared{};
  };
  void begin_next();
  void apply();
  void step();
  void conclude();

  std::deque<std::shared_ptr<Commit>> commits_;  // the first is being made
  EventWorker worker_;
};

// The store's queue on this manager's loop.
CommitQueue& commit_queue(EventManager* manager);
// Makes the commits of the queue, if there is one, before it returns.
void finish_commits();

}  // namespace kvtree

// From what an owner wants to a commit in the database. Only for the store.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/store/configuration/configuration.h"
#include "platform/store/configuration/node_store.h"

namespace kvtree {

// The user of a client's commit. The name is set before the commit is done: it may take the name service some
// time to find it.
struct CommitAuthor {
  uid_t user = 0;
  std::string name{};
};

// What an owner wants: changes (then `nodes` is null), or nodes that replace all others of the owner.
struct CommitRequest {
  std::string owner;
  std::string comment;
  std::shared_ptr<const std::vector<KvConfigChange>> changes;
  std::shared_ptr<const std::vector<KvConfigNode>> nodes{};
  std::shared_ptr<CommitAuthor> author{};
  std::uint64_t confirmation = 0;  // nanoseconds for confirming it; 0: it needs none
  std::string undone{};            // the commit, if it still waits for its confirmation; then no changes
};

struct PreparedCommit {
  Status status = kStatusOk;
  std::string id;
  std::string error;
  std::shared_ptr<CommitPlan> plan;
};

// Opens a database in memory if the store has none.
[[nodiscard]] Status open_database(NodeStore** node_store);
// Plans the commit and writes it to the database. It is then to be applied, unless it failed or changes
// nothing. Any thread: it reads the tree, which nothing may change meanwhile.
PreparedCommit prepare_commit(const CommitRequest& request, std::uint64_t time, NodeStore* node_store);
// Begins to apply the commit: readers see it.
[[nodiscard]] Status begin_application(PreparedCommit* prepared);
// What follows an application: replays that waited for it, and the rows of the database.
void end_application();
// Begins to write the rows of commits to the database, if the store is served.
void fold();

}  // namespace kvtree

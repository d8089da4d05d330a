// For tests of commits: owners that commit, a subscriber that records its notifications, a database that
// outlives the process.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/sqlite/sqlite.h"
#include "platform/store/commits/commit_queue.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/configuration/node_store.h"
#include "platform/store/server/store.h"
#include "platform/store/server/test_store.h"

inline KvValue TextValue(const std::string& text) {
  KvValue value;
  value.type = KvValueType::kText;
  value.text = text;
  return value;
}

inline KvValue NumberValue(std::int64_t number) {
  KvValue value;
  value.type = KvValueType::kNumber;
  value.number = number;
  return value;
}

inline KvValue TupleValue(std::vector<std::int64_t> numbers) {
  KvValue value;
  value.type = KvValueType::kTuple;
  value.tuple = std::move(numbers);
  return value;
}

inline KvConfigChange SetTo(const std::string& path, const std::string& text) {
  return {path, TextValue(text)};
}
inline KvConfigChange Withdraw(const std::string& path) {
  return {path, std::nullopt};
}

// "text", "#5", "(1 2)", "." for a node without a value, "none" for no node.
inline std::string Describe(const std::optional<KvValue>& value) {
  if (!value) return "none";
  switch (value->type) {
    case KvValueType::kText:
      return value->text;
    case KvValueType::kNumber:
      return "#" + std::to_string(value->number);
    case KvValueType::kTuple: {
      std::string text;
      for (const std::int64_t number : value->tuple)
        text += (text.empty() ? "" : " ") + std::to_string(number);
      return "(" + text + ")";
    }
    default:
      return ".";
  }
}

inline void ExecuteOn(const std::string& file, const std::string& sql) {
  sqlite::Connection database;
  ASSERT_EQ(sqlite::open(file, &database), SQLITE_OK);
  EXPECT_EQ(sqlite::run(database.get(), sql.c_str()), SQLITE_OK) << sqlite3_errmsg(database.get());
}

namespace kvtree {

// The store has locked its database: a test that changes it uses the store's connection.
struct NodeStoreInTests {
  static void Execute(const std::shared_ptr<NodeStore>& node_store, const std::string& sql) {
    sqlite3* database = node_store->database_.get();
    EXPECT_EQ(sqlite::run(database, sql.c_str()), SQLITE_OK) << sqlite3_errmsg(database);
  }
  // The thread of the commits waits meanwhile, as for a slow disk.
  static std::unique_lock<std::mutex> Lock(const std::shared_ptr<NodeStore>& node_store) {
    return std::unique_lock(node_store->mutex_);
  }
  // As if the places of so many further changes of commits were known.
  static void AddKnownPlaces(const std::shared_ptr<NodeStore>& node_store, std::size_t places) {
    node_store->known_places_ += places;
  }
  static std::size_t CountReadCommits(const std::shared_ptr<NodeStore>& node_store) {
    return node_store->read_commits_.size();
  }
};

// The rows of all commits, without an event loop.
inline void fold_all() {
  while (store().node_store->fold_some(1000)) {
  }
}

// Runs the loop until nothing is pending there or on the thread of the commits.
inline void run_with_commits(EventManager* manager) {
  const auto is_busy = [] {
    return store().commits != nullptr &&
           (!store().commits->is_empty() || store().commits->worker().is_busy());
  };
  while (event_run_pending(manager, is_busy() ? kNanosecondsPerMillisecond : 0) || is_busy()) {
  }
}

}  // namespace kvtree

class ConfigTest : public StoreTest {
 protected:
  std::string File() const { return directory.path() + "/configuration.db"; }
  Status Keep() const { return kvtree_keep_configuration(directory.path()); }
  // Ends the process and starts another one.
  void Restart() const {
    kvtree_reset();
    ASSERT_EQ(Keep(), kStatusOk);
  }
  void Make(std::string_view owner, const std::vector<KvConfigChange>& changes, std::string_view comment) {
    ASSERT_EQ(kvtree_config_commit(owner, changes, comment, &id, &error), kStatusOk) << error;
  }
  // Makes a commit and returns the subscriber's notifications.
  std::vector<std::string> Commit(std::string_view owner, const std::vector<KvConfigChange>& changes) {
    EXPECT_EQ(kvtree_config_commit(owner, changes, "", &id, &error), kStatusOk) << error;
    Run();
    return TakeReceived();
  }
  // Makes a commit that is refused with the status; returns the error.
  std::string Refused(std::string_view owner, const std::vector<KvConfigChange>& changes, Status status) {
    EXPECT_EQ(kvtree_config_commit(owner, changes, "", &id, &error), status);
    EXPECT_EQ(id, "");
    Run();
    EXPECT_THAT(TakeReceived(), ::testing::IsEmpty());
    return error;
  }
  // "path=value" of the effective values, or of those that an owner sets.
  static std::vector<std::string> Effective(std::string_view path = "/cfg/") {
    std::vector<std::string> all;
    kvtree_config_effective(
        path, [&](const KvConfigNode& node) { all.push_back(node.path + "=" + Describe(node.value)); });
    return all;
  }
  static std::vector<std::string> Owned(std::string_view owner) {
    std::vector<std::string> all;
    kvtree_config_owned(
        owner, [&](const KvConfigNode& node) { all.push_back(node.path + "=" + Describe(node.value)); });
    return all;
  }
  // "id owner changes comment", newest first.
  static std::vector<std::string> History(std::uint32_t maximum = 100, std::string_view before = {}) {
    std::vector<KvConfigCommit> commits;
    EXPECT_EQ(kvtree_config_history(maximum, before, &commits), kStatusOk);
    std::vector<std::string> all;
    for (const KvConfigCommit& commit : commits) {
      all.push_back(commit.id + " " + commit.owner + " " + std::to_string(commit.changes) + " " +
                    commit.comment);
    }
    return all;
  }
  // "path: before (owner) -> after (owner)".
  static std::vector<std::string> Changes(std::string_view id) {
    std::vector<KvConfigCommitChange> changes;
    EXPECT_EQ(kvtree_config_changes(id, &changes), kStatusOk);
    std::vector<std::string> all;
    for (const KvConfigCommitChange& change : changes) {
      all.push_back(change.path + ": " + Describe(change.before) + " (" + change.owner_before + ") -> " +
                    Describe(change.after) + " (" + change.owner_after + ")");
    }
    return all;
  }
  void Execute(const std::string& sql) const {
    if (kvtree::store().node_store == nullptr) return ExecuteOn(File(), sql);
    kvtree::NodeStoreInTests::Execute(kvtree::store().node_store, sql);
  }
  // The damage is not visible in the checksums, as if the process itself had written it.
  void ExecuteWithChecksums(const std::string& sql) const {
    Execute(sql +
            "; UPDATE node SET checksum = row_checksum(path, owner, value, told, suppressed);"
            "UPDATE log SET checksum = row_checksum(id, time, owner, comment, changes, octets, folded, user);"
            "UPDATE content SET checksum = row_checksum(id, octets)");
  }
  // Changes of so many nodes, "/cfg/many/000000" on.
  static std::vector<KvConfigChange> Many(std::size_t count, const std::string& text) {
    std::vector<KvConfigChange> changes;
    for (std::size_t i = 0; i < count; ++i) {
      std::string number = std::to_string(i);
      number.insert(0, 6 - number.size(), '0');
      changes.push_back(SetTo("/cfg/many/" + number, text));
    }
    return changes;
  }

  std::string id;
  std::string error;
};

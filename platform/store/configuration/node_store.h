// The configuration on disk: the owners' values and the history of commits, in
// STATE_DIRECTORY/configuration.db (SQLite, configuration_database.cpp). Only for this folder.
//
// A commit is one transaction, on the disk when write() returns. A large commit first writes only its record;
// fold_some() writes its nodes' rows afterwards, a bounded number at a time, in the order of the commits, so
// that a commit never waits for all rows of another. A small commit with no other pending writes its rows in
// the same transaction. A process that ends leaves the rest to the next one.
//
// Once opened, any thread: a call waits for that of another thread.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/core/sqlite/quarantine.h"
#include "platform/core/sqlite/sqlite.h"
#include "platform/store/codec/commit_codec.h"
#include "platform/store/configuration/config_tree.h"

namespace kvtree {

// Opens or creates DIRECTORY/configuration.db, of this version. A foreign or damaged file is renamed to
// configuration.db.unusable.N next to a new one, and logged; the new one has what can be read in a damaged
// one. kStatusIo (logged) for a file of a newer version, which is unchanged, and if the directory or the file
// cannot be used for another reason. Fault points "configuration_open", "configuration_migrate".
[[nodiscard]] Status open_configuration(const std::string& directory, sqlite::Connection* database);
// A database in memory, which exists while it is open. Fault point "configuration_open".
[[nodiscard]] Status open_configuration_in_memory(sqlite::Connection* database);

// The tables that a database may have, for what cannot be used.
inline constexpr char kMakeQuarantine[] =
    "CREATE TABLE IF NOT EXISTS quarantine_commit(id, time, owner, comment, changes, octets, user, folded);"
    "CREATE TABLE IF NOT EXISTS quarantine_node(path, owner, value, told, suppressed)";

// An id is the upper part of the number of a notification (node_store.cpp).
inline constexpr std::int64_t kMaxCommitId = (std::int64_t{1} << 42) - 1;

struct CommitHead {
  std::uint64_t time = 0;  // nanoseconds since 1970
  std::string_view comment;
  std::string_view user{};         // empty for none
  std::uint64_t confirmation = 0;  // nanoseconds for confirming it; 0: it needs none
  bool ends_confirmation = false;  // of the commit that it undoes
};

// The commit that is undone unless it is confirmed in time.
struct Confirmation {
  std::int64_t commit = 0;
  std::uint64_t deadline = 0;  // nanoseconds since 1970
  std::uint64_t duration = 0;  // nanoseconds
  std::string user;            // of the commit
};

class NodeStore {
 public:
  // open_configuration(), and the commits that are not folded are read.
  [[nodiscard]] static Status open(const std::string& directory, std::shared_ptr<NodeStore>* store);
  [[nodiscard]] static Status open_in_memory(std::shared_ptr<NodeStore>* store);
  NodeStore(const NodeStore&) = delete;
  NodeStore& operator=(const NodeStore&) = delete;

  // The folded values, in the order of the paths; those of for_each_unfolded() may be among them. `notified`
  // is the number of the last notification of the path, the same for all its owners: later is larger. A row
  // whose checksum differs, whose value cannot be one, or for which the visitor returns false, is
  // quarantined. Fault point "configuration_read".
  using Visitor = std::function<bool(std::string_view owner, std::string_view path, KvValue value,
                                     std::uint64_t notified)>;
  [[nodiscard]] Status for_each(const Visitor& visit);
  // The commits that are not folded, in their order.
  void for_each_unfolded(const std::function<void(std::int64_t id, const CommitPlan& plan)>& visit) const;
  // The number of the notification of a commit's change.
  static std::uint64_t notification_number(std::int64_t id, std::size_t change);
  // If it cannot be written, nothing changes, and *reason, which is logged, has the cause and the file;
  // ENOSPC and other statuses of what an operator can change, otherwise kStatusIo. *id is the commit's id if
  // an effective value changes. Fault points "configuration_write" before and "configuration_commit" at the
  // end of the transaction.
  using SharedPlan = std::shared_ptr<const CommitPlan>;
  [[nodiscard]] Status write(const SharedPlan& plan, const CommitHead& head, std::string* id,
                             std::string* reason);

  // Why the last commit was refused or not folded; empty if it was not. Does not wait for another thread.
  std::string problem() const;

  // As for_each() has left it. Main thread.
  const sqlite::Quarantine& quarantined() const { return quarantine_; }

  // Do not wait for another thread.
  bool has_unfolded() const { return unfolded_commits_ > 0; }
  std::size_t count_unfolded() const { return unfolded_changes_; }
  // Writes at most so many rows. Returns true iff more are pending; false at the end, and after a failure
  // (logged once; then has_unfolded()). Fault point "configuration_fold".
  bool fold_some(std::size_t rows);

  // The commit that waits for its confirmation. Does not wait for another thread.
  std::optional<Confirmation> confirmation();
  // The commit, which waits for it, is confirmed, by this user if it has a name. *reason as for write().
  [[nodiscard]] Status end_confirmation(std::string_view user, std::string* reason);
  // The changes of the first owner that undo the commit that waits, where no later commit changed the node.
  std::vector<KvConfigChange> undo_waiting_commit(const ConfigTree& tree);

  // configuration.h; fault points are the callers'.
  [[nodiscard]] Status history(std::uint32_t maximum, std::string_view before,
                               std::vector<KvConfigCommit>* commits);
  [[nodiscard]] Status changes(std::string_view id, const KvConfigPage& page,
                               std::vector<KvConfigCommitChange>* changes);

 private:
  friend struct NodeStoreInTests;  // damages the open database
  struct Unfolded {
    std::int64_t id;
    SharedPlan plan;
    std::size_t next = 0;  // the first change that is not folded
  };
  // The history's size, of the commits of clients and of those of other owners.
  struct Size {
    std::size_t commits = 0;
    std::size_t octets = 0;  // of the commits' contents
    bool is_too_large() const;
  };
  struct Sizes {
    Size clients;
    Size others;
    Size& of(bool is_clients) { return is_clients ? clients : others; }
  };

  explicit NodeStore(sqlite::Connection database) : database_(std::move(database)) {}
  static Status start(sqlite::Connection database, std::shared_ptr<NodeStore>* store);
  Status read_size();
  Status read_unfolded();
  Status read_plan(std::int64_t id, std::string_view owner, SharedPlan* plan) const;
  Status quarantine_commit(std::int64_t id, const char* consequence);
  Status quarantine_damaged_commits();
  void quarantine_damaged_rows(const std::string& first);
  void quarantine_row(const std::string& path, const std::string& owner);
  bool quarantine(const std::function<bool()>& move);
  bool transact(const std::function<bool()>& change);
  Status fail_quarantine(const char* what) const;
  Status count_quarantined();
  Status visit_content(std::int64_t id, const std::function<void(PlannedChange)>& visit) const;
  using ContentReader = std::function<bool(std::size_t owner, wire::OctetSpan octets)>;
  Status read_content(std::int64_t id, const ContentReader& read) const;
  Status report_unreadable(std::int64_t id) const;
  // A commit whose changes were read: where they are in its octets.
  struct ReadCommit {
    std::size_t owner = kNoOwner;
    std::vector<ChangePlace> places;
  };
  Status find_places(std::int64_t id, const ReadCommit** commit);
  void forget_places();
  bool read_page(std::int64_t id, const ReadCommit& commit, const KvConfigPage& page,
                 std::vector<KvConfigCommitChange>* changes) const;
  bool write_all(const CommitPlan& plan, const CommitHead& head, bool folded, std::int64_t* id, Sizes* sizes);
  bool write_log(const CommitPlan& plan, const CommitHead& head, bool folded, std::int64_t* id, Sizes* sizes);
  bool write_rows(std::int64_t id, const CommitPlan& plan, std::size_t first, std::size_t end);
  struct RowStatements;
  bool write_row(RowStatements& statements, std::string_view owner, const PlannedChange& change,
                 std::int64_t notified);
  bool find_notified(RowStatements& statements, std::string_view path, std::int64_t* notified);
  bool fold_batch(const Unfolded& unfolded, std::size_t end);
  bool finish_fold(const Unfolded& unfolded);
  void report_fold_failure(const char* why);
  bool forget_oldest(Sizes* sizes);
  bool forget_beyond_limits(bool of_clients, Sizes* sizes);
  bool forget_others_before(std::int64_t id, Size* size);
  Status read_confirmation();
  bool read_waiting_commit(std::int64_t id);
  bool read_later_changes();
  bool write_confirmation(std::int64_t id, const CommitPlan& plan, const CommitHead& head);
  void note_confirmation(std::int64_t id, const SharedPlan& plan, const CommitHead& head);
  void set_confirmation(std::optional<Confirmation> confirmation);
  void begin_waiting(SharedPlan plan);
  void end_waiting();
  std::vector<std::string_view> find_later_changes(const CommitPlan& plan) const;
  bool write_later_changes(const std::vector<std::string_view>& paths);
  bool hide(std::int64_t id);
  bool write_end_of_confirmation();
  bool add_to_comment(std::int64_t id, std::string_view note);
  bool forget(std::int64_t id);
  bool run(sqlite::Statement& statement);  // for a statement without result rows
  bool fail_write();
  void set_problem(const std::string& problem);
  std::string file() const;  // for messages
  bool execute(const char* sql);
  void roll_back();
  Status fail(const char* what) const;
  Status find_commit(std::string_view id, std::int64_t* number) const;

  Status write_plan(const SharedPlan& plan, const CommitHead& head, std::string* id);
  void add_unfolded(std::int64_t id, SharedPlan plan);

  std::mutex mutex_;  // of everything but the two counts
  std::atomic<std::size_t> unfolded_commits_{0};
  std::atomic<std::size_t> unfolded_changes_{0};  // of them, without those that are folded
  sqlite::Connection database_;
  sqlite::Quarantine quarantine_;
  std::deque<Unfolded> unfolded_;
  Sizes sizes_;
  mutable std::mutex problem_mutex_;  // of problem_ alone, as the next one
  std::string problem_;
  std::mutex confirmation_mutex_;  // of confirmation_ alone, never held while the database is used
  std::optional<Confirmation> confirmation_;
  SharedPlan waiting_;                               // the commit that waits for its confirmation
  std::unordered_set<std::string_view> unchanged_;   // its paths that no later commit of its owner changed
  std::map<std::int64_t, ReadCommit> read_commits_;  // by id
  std::size_t known_places_ = 0;                     // in all of them
  mutable std::set<std::int64_t> unreadable_;        // commits that were logged as such
  std::string write_error_;                          // why the latest statement failed that was to write
  Status write_status_ = kStatusIo;
  bool fold_fails_ = false;  // the last step failed
};

}  // namespace kvtree

// Reading the stored values and writing commits. node_rows.cpp writes the rows of the nodes and folds;
// quarantine.cpp moves away what cannot be used; commit_history.cpp reads and limits the history;
// platform/store/confirmation has the commit that waits for its confirmation.
//
// The counts that a transaction changes are computed on a copy, which takes effect with the transaction.
#include "platform/store/configuration/node_store.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/store/configuration/row_checksums.h"
#include "platform/store/configuration/value_columns.h"

namespace kvtree {

namespace {

constexpr std::size_t kFoldedAtOnce = 256;  // changes of a commit whose rows are in its own transaction

// Commits follow each other by their ids, and the changes of one by their places in it. The changes of a
// replacement are in the order of the paths, which is also the order among equal places.
constexpr int kPlaceBits = 20;
constexpr std::size_t kLastPlace = (std::size_t{1} << kPlaceBits) - 1;
static_assert(kMaxConfigChanges <= kLastPlace);

// Clients take other statuses, such as that of a missing permission, for their own failures.
constexpr Status kOperatorsStatuses[] = {ENOSPC, EDQUOT, EROFS, EMFILE, ENFILE, kStatusNoMemory};

}  // namespace

// --- Opening

Status NodeStore::open(const std::string& directory, std::shared_ptr<NodeStore>* store) {
  sqlite::Connection database;
  if (const Status status = open_configuration(directory, &database)) return status;
  return start(std::move(database), store);
}

Status NodeStore::open_in_memory(std::shared_ptr<NodeStore>* store) {
  sqlite::Connection database;
  if (const Status status = open_configuration_in_memory(&database)) return status;
  return start(std::move(database), store);
}

Status NodeStore::start(sqlite::Connection database, std::shared_ptr<NodeStore>* store) {
  const std::shared_ptr<NodeStore> made(new NodeStore(std::move(database)));
  if (const Status status = made->quarantine_damaged_commits()) return status;
  if (const Status status = made->read_unfolded()) return status;
  if (const Status status = made->read_size()) return status;
  if (const Status status = made->read_confirmation()) return status;
  *store = made;
  return kStatusOk;
}

Status NodeStore::read_size() {
  sqlite::Statement statement(
      database_.get(), "SELECT owner = ?, count(*), sum(octets) FROM log WHERE changes > 0 GROUP BY 1");
  statement.bind_text(1, client_owner());
  int code = SQLITE_ROW;
  while ((code = statement.step()) == SQLITE_ROW) {
    sizes_.of(statement.integer(0) != 0) = {static_cast<std::size_t>(statement.integer(1)),
                                            static_cast<std::size_t>(statement.integer(2))};
  }
  return code == SQLITE_DONE ? kStatusOk : fail("the history cannot be read");
}

Status NodeStore::read_unfolded() {
  struct Commit {
    std::int64_t id;
    std::string owner;
    std::int64_t changes;
  };
  std::vector<Commit> commits;
  sqlite::Statement statement(database_.get(),
                              "SELECT id, owner, changes FROM log WHERE folded = 0 ORDER BY id");
  int code = SQLITE_ROW;
  while ((code = statement.step()) == SQLITE_ROW)
    commits.push_back({statement.integer(0), std::string(statement.text(1)), statement.integer(2)});
  if (code != SQLITE_DONE) return fail("the commits cannot be read");
  statement.reset();
  for (const Commit& commit : commits) {
    SharedPlan plan;
    if (read_plan(commit.id, commit.owner, &plan) == kStatusOk) {
      add_unfolded(commit.id, std::move(plan));
      continue;
    }
    const std::string lost = "its " + std::to_string(commit.changes) + " changes have no effect";
    if (const Status status = quarantine_commit(commit.id, lost.c_str())) return status;
  }
  return kStatusOk;
}

Status NodeStore::read_plan(std::int64_t id, std::string_view owner, SharedPlan* plan) const {
  const auto read = std::make_shared<CommitPlan>();
  read->owner = find_owner(owner);  // reading the contents fails for an unknown owner
  bool is_valid = true;
  const Status status = visit_content(id, [&](PlannedChange change) {
    is_valid = is_valid && check_configuration_path(change.path) == kStatusOk;
    if (change.is_listed()) ++read->listed_changes;
    read->changes.push_back(std::move(change));
  });
  *plan = read;
  return status == kStatusOk && !is_valid ? report_unreadable(id) : status;
}

void NodeStore::for_each_unfolded(
    const std::function<void(std::int64_t id, const CommitPlan& plan)>& visit) const {
  for (const Unfolded& unfolded : unfolded_) visit(unfolded.id, *unfolded.plan);
}

std::uint64_t NodeStore::notification_number(std::int64_t id, std::size_t change) {
  return (static_cast<std::uint64_t>(id) << kPlaceBits) + change;
}

Status NodeStore::for_each(const Visitor& visit) {
  if (const Status status = fault_check("configuration_read")) return status;
  sqlite::Statement statement(database_.get(),
                              "SELECT owner, path, value, told, suppressed, checksum = " NODE_CHECKSUM
                              " FROM node ORDER BY path, owner");
  int code = SQLITE_ROW;
  std::vector<std::pair<std::string, std::string>> invalid;
  std::string damaged;
  while ((code = statement.step()) == SQLITE_ROW) {
    if (statement.integer(5) == 0) {
      if (damaged.empty()) damaged = statement.text(1);
      continue;
    }
    KvValue value;
    value.is_suppressed = statement.integer(4) != 0;
    const bool is_valid =
        column_value(statement, 2, &value) && visit(statement.text(0), statement.text(1), std::move(value),
                                                    static_cast<std::uint64_t>(statement.integer(3)));
    if (!is_valid) invalid.emplace_back(statement.text(1), statement.text(0));
  }
  if (code != SQLITE_DONE) return fail("the nodes cannot be read");
  statement.reset();
  if (!damaged.empty()) quarantine_damaged_rows(damaged);
  for (const auto& [path, owner] : invalid) quarantine_row(path, owner);
  return count_quarantined();
}

// --- Writing

Status NodeStore::write(const SharedPlan& plan, const CommitHead& head, std::string* id,
                        std::string* reason) {
  const std::lock_guard lock(mutex_);
  write_error_.clear();
  const Status status = write_plan(plan, head, id);
  const std::string problem = status != kStatusOk && write_error_.empty() ? err_text(status) : write_error_;
  set_problem(status == kStatusOk ? "" : problem);
  if (status == kStatusOk) return kStatusOk;
  *reason = problem + ": " + file() + " cannot be written";
  log_error("configuration", "a commit is refused: %s", reason->c_str());
  return status;
}

Status NodeStore::write_plan(const SharedPlan& plan, const CommitHead& head, std::string* id) {
  if (const Status status = fault_check("configuration_write")) return status;
  const bool folded = unfolded_.empty() && plan->changes.size() <= kFoldedAtOnce;
  std::int64_t number = 0;
  Sizes sizes = sizes_;
  bool written = execute("BEGIN IMMEDIATE") && write_all(*plan, head, folded, &number, &sizes);
  if (written) {
    if (const Status status = fault_check("configuration_commit")) {
      roll_back();
      return status;
    }
    written = execute("COMMIT");
  }
  if (!written) {
    roll_back();
    return write_status_;
  }
  sizes_ = sizes;
  note_confirmation(number, plan, head);
  if (!folded) add_unfolded(number, plan);
  if (plan->listed_changes > 0) *id = std::to_string(number);
  return kStatusOk;
}

bool NodeStore::write_all(const CommitPlan& plan, const CommitHead& head, bool folded, std::int64_t* id,
                          Sizes* sizes) {
  const bool logged = !folded || plan.listed_changes > 0;
  if (logged && !write_log(plan, head, folded, id, sizes)) return false;
  if (folded && !write_rows(*id, plan, 0, plan.changes.size())) return false;
  return write_confirmation(*id, plan, head) && forget_oldest(sizes);
}

bool NodeStore::write_log(const CommitPlan& plan, const CommitHead& head, bool folded, std::int64_t* id,
                          Sizes* sizes) {
  wire::Octets octets;
  write_commit(plan, &octets);
  sqlite::Statement log(
      database_.get(),
      "INSERT INTO log(time, owner, comment, changes, octets, folded, user, checksum) VALUES "
      "(?, ?, ?, ?, ?, ?, ?, 0)");
  log.bind(1, static_cast<std::int64_t>(head.time));
  log.bind_text(2, owner_name(plan.owner));
  log.bind_text(3, head.comment);
  log.bind(4, static_cast<std::int64_t>(plan.listed_changes));
  log.bind(5, static_cast<std::int64_t>(octets.size()));
  log.bind(6, folded ? 1 : 0);
  log.bind_text(7, head.user);
  if (!run(log)) return false;
  *id = sqlite3_last_insert_rowid(database_.get());
  sqlite::Statement sign(database_.get(), "UPDATE log SET checksum = " LOG_CHECKSUM " WHERE id = ?");
  sign.bind(1, *id);
  if (!run(sign)) return false;
  sqlite::Statement content(database_.get(), "INSERT INTO content VALUES (?1, ?2, row_checksum(?1, ?2))");
  content.bind(1, *id);
  content.bind_octets(2, octets);
  if (plan.listed_changes > 0) {
    Size& size = sizes->of(owner_name(plan.owner) == client_owner());
    ++size.commits;
    size.octets += octets.size();
  }
  return run(content);
}

bool NodeStore::forget(std::int64_t id) {
  if (const auto read = read_commits_.extract(id)) known_places_ -= read.mapped().places.size();
  for (const char* sql : {"DELETE FROM content WHERE id = ?", "DELETE FROM log WHERE id = ?"}) {
    sqlite::Statement statement(database_.get(), sql);
    statement.bind(1, id);
    if (!run(statement)) return false;
  }
  return true;
}

// --- Helpers

// After a failure the reason is that of `change`.
bool NodeStore::transact(const std::function<bool()>& change) {
  if (execute("BEGIN IMMEDIATE") && change() && execute("COMMIT")) return true;
  const std::string reason = std::move(write_error_);
  roll_back();
  write_error_ = reason;
  return false;
}

bool NodeStore::run(sqlite::Statement& statement) {
  return statement.step() == SQLITE_DONE || fail_write();
}

bool NodeStore::execute(const char* sql) {
  return sqlite::run(database_.get(), sql) == SQLITE_OK || fail_write();
}

// Copies the reason at once: the end of another statement would overwrite it.
bool NodeStore::fail_write() {
  const int code = sqlite3_extended_errcode(database_.get());
  write_error_ = sqlite::reason_of(database_.get(), code);
  const Status status = sqlite::status_of(database_.get(), code);
  write_status_ =
      std::ranges::find(kOperatorsStatuses, status) != std::end(kOperatorsStatuses) ? status : kStatusIo;
  return false;
}

std::string NodeStore::problem() const {
  const std::lock_guard lock(problem_mutex_);
  return problem_;
}

void NodeStore::set_problem(const std::string& problem) {
  const std::lock_guard lock(problem_mutex_);
  problem_ = problem;
}

std::string NodeStore::file() const {
  const std::string name = sqlite3_db_filename(database_.get(), "main");
  return name.empty() ? "the database in memory" : name;
}

// SQLite may have rolled back by itself.
void NodeStore::roll_back() {
  if (sqlite3_get_autocommit(database_.get()) == 0 && !execute("ROLLBACK"))
    static_cast<void>(fail("a commit cannot be rolled back"));
}

Status NodeStore::fail(const char* what) const {
  const int code = sqlite3_extended_errcode(database_.get());
  log_error("configuration", "%s: %s: %s", file().c_str(), what,
            sqlite::reason_of(database_.get(), code).c_str());
  return kStatusIo;
}

}  // namespace kvtree

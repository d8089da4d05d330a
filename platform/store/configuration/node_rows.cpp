// The rows of the nodes: written with their commit, or folded later.
#include <algorithm>
#include <string>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/store/configuration/node_store.h"
#include "platform/store/configuration/row_checksums.h"
#include "platform/store/configuration/value_columns.h"

namespace kvtree {

struct NodeStore::RowStatements {
  sqlite::Statement put;
  sqlite::Statement erase;
  sqlite::Statement find;
  sqlite::Statement notify;
};

bool NodeStore::write_rows(std::int64_t id, const CommitPlan& plan, std::size_t first, std::size_t end) {
  RowStatements statements{
      sqlite::Statement(
          database_.get(),
          "INSERT INTO node(path, owner, value, told, suppressed, checksum) VALUES (?1, ?2, ?3, ?4, ?5, "
          "row_checksum(?1, ?2, ?3, ?4, ?5)) ON CONFLICT DO UPDATE SET value = excluded.value, told = "
          "excluded.told, suppressed = excluded.suppressed, checksum = excluded.checksum"),
      sqlite::Statement(database_.get(), "DELETE FROM node WHERE path = ? AND owner = ?"),
      sqlite::Statement(database_.get(), "SELECT coalesce(max(told), 0) FROM node WHERE path = ?"),
      sqlite::Statement(database_.get(),
                        "UPDATE node SET told = ?1, checksum = row_checksum(path, owner, value, ?1, "
                        "suppressed) WHERE path = "
                        "?2 AND owner <> ?3 AND checksum = " NODE_CHECKSUM)};
  for (std::size_t i = first; i < end; ++i) {
    const auto notified = static_cast<std::int64_t>(notification_number(id, i));
    if (!write_row(statements, owner_name(plan.owner), plan.changes[i], notified)) return false;
  }
  return true;
}

// Every owner's row has the number of the last notification: any owner may withdraw its value unnoticed.
bool NodeStore::write_row(RowStatements& statements, std::string_view owner, const PlannedChange& change,
                          std::int64_t notified) {
  const bool notifies = change.sets();
  if (!notifies && change.value != nullptr && !find_notified(statements, change.path, &notified))
    return false;
  sqlite::Statement& statement = change.value == nullptr ? statements.erase : statements.put;
  wire::Octets octets;
  statement.reset();
  statement.bind_text(1, change.path);
  statement.bind_text(2, owner);
  if (change.value != nullptr) {
    bind_value(statement, 3, *change.value, &octets);
    statement.bind(4, notified);
    statement.bind(5, change.value->is_suppressed ? 1 : 0);
  }
  if (!run(statement)) return false;
  if (!notifies) return true;
  statements.notify.reset();
  statements.notify.bind(1, notified);
  statements.notify.bind_text(2, change.path);
  statements.notify.bind_text(3, owner);
  return run(statements.notify);
}

bool NodeStore::find_notified(RowStatements& statements, std::string_view path, std::int64_t* notified) {
  statements.find.reset();
  statements.find.bind_text(1, path);
  if (statements.find.step() != SQLITE_ROW) return fail_write();
  *notified = statements.find.integer(0);
  statements.find.reset();
  return true;
}

void NodeStore::add_unfolded(std::int64_t id, SharedPlan plan) {
  ++unfolded_commits_;
  unfolded_changes_ += plan->changes.size();
  unfolded_.push_back({id, std::move(plan)});
}

bool NodeStore::fold_some(std::size_t rows) {
  const std::lock_guard lock(mutex_);
  if (unfolded_.empty()) return false;
  Unfolded& oldest = unfolded_.front();
  const std::size_t end = std::min(oldest.plan->changes.size(), oldest.next + rows);
  if (!fold_batch(oldest, end)) return false;
  unfolded_changes_ -= end - oldest.next;
  oldest.next = end;
  if (end == oldest.plan->changes.size()) {
    unfolded_.pop_front();
    --unfolded_commits_;
  }
  return !unfolded_.empty();
}

bool NodeStore::fold_batch(const Unfolded& unfolded, std::size_t end) {
  if (const Status status = fault_check("configuration_fold")) {
    report_fold_failure(err_text(status));
    return false;
  }
  const bool is_last = end == unfolded.plan->changes.size();
  const bool folded = execute("BEGIN IMMEDIATE") &&
                      write_rows(unfolded.id, *unfolded.plan, unfolded.next, end) &&
                      (!is_last || finish_fold(unfolded)) && execute("COMMIT");
  if (folded) {
    set_problem("");
    if (std::exchange(fold_fails_, false)) log_notice("configuration", "commits are folded again");
    return true;
  }
  report_fold_failure(write_error_.c_str());
  roll_back();
  return false;
}

// Once, however often folding is tried.
void NodeStore::report_fold_failure(const char* why) {
  set_problem(why);
  if (std::exchange(fold_fails_, true)) return;
  log_warning("configuration", "%s: a commit cannot be folded and is tried again every second: %s",
              file().c_str(), why);
}

// The record of a commit without effective changes was needed for its rows only.
bool NodeStore::finish_fold(const Unfolded& unfolded) {
  if (unfolded.plan->listed_changes == 0) return forget(unfolded.id);
  sqlite::Statement statement(database_.get(),
                              "UPDATE log SET folded = 1, checksum = row_checksum(id, time, owner, comment, "
                              "changes, octets, 1, user) WHERE id = ? AND checksum = " LOG_CHECKSUM);
  statement.bind(1, unfolded.id);
  return run(statement);
}

}  // namespace kvtree

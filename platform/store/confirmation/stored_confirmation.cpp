// The commit that waits for its confirmation, in the table `confirmation`: see node_store.h. At most one
// does.
//
// The table `later_change` has those of its paths that a later commit of its owner changed: they belong to
// that commit, even with the same value, and are not undone. When no other path is left, the commit no longer
// waits. A commit that waits is not in the history once it is older than what the history has, which would
// have a gap otherwise; its record is deleted when it no longer waits.
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/store/configuration/node_store.h"
#include "platform/store/confirmation/undoing.h"

namespace kvtree {

namespace {

#define HIDDEN_COMMIT \
  "(SELECT log.id FROM log JOIN confirmation ON log.id = commit_id WHERE changes = 0 AND folded = 1)"
constexpr char kEndConfirmation[] =
    "DELETE FROM content WHERE id IN " HIDDEN_COMMIT "; DELETE FROM log WHERE id IN " HIDDEN_COMMIT
    "; DELETE FROM confirmation; DELETE FROM later_change";
#undef HIDDEN_COMMIT

bool needs_confirmation(const CommitPlan& plan, const CommitHead& head) {
  return head.confirmation > 0 && plan.listed_changes > 0;
}

}  // namespace

// --- At the start

// A confirmation that is damaged, or whose commit cannot be read, cannot be used: its commit stays.
Status NodeStore::read_confirmation() {
  sqlite::Statement statement(
      database_.get(),
      "SELECT commit_id, deadline, duration, user, confirmation.checksum = row_checksum(commit_id, deadline, "
      "duration) AND log.id IS NOT NULL FROM confirmation LEFT JOIN log ON log.id = commit_id ORDER BY "
      "commit_id DESC");
  const int code = statement.step();
  if (code == SQLITE_DONE) return kStatusOk;
  if (code != SQLITE_ROW) return fail("the confirmation of a commit cannot be read");
  const Confirmation read{statement.integer(0), static_cast<std::uint64_t>(statement.integer(1)),
                          static_cast<std::uint64_t>(statement.integer(2)), std::string(statement.text(3))};
  const bool is_sound = statement.integer(4) == 1;
  statement.reset();
  if (is_sound && read_waiting_commit(read.commit) && read_later_changes()) {
    set_confirmation(read);
    return kStatusOk;
  }
  log_error(
      "configuration",
      "the confirmation of commit %lld is damaged: the commit stays and is not undone by itself; \"mplsvpn "
      "config rollback\" undoes it",
      static_cast<long long>(read.commit));
  end_waiting();
  return write_end_of_confirmation() ? kStatusOk : fail("a damaged confirmation cannot be deleted");
}

bool NodeStore::read_waiting_commit(std::int64_t id) {
  SharedPlan plan;
  if (read_plan(id, client_owner(), &plan) != kStatusOk) return false;
  begin_waiting(std::move(plan));
  return true;
}

// False if one is damaged: undoing its path would be wrong.
bool NodeStore::read_later_changes() {
  sqlite::Statement statement(database_.get(),
                              "SELECT path, checksum = row_checksum(path) FROM later_change");
  int code = SQLITE_ROW;
  while ((code = statement.step()) == SQLITE_ROW) {
    if (statement.integer(1) != 1) return false;
    unchanged_.erase(statement.text(0));
  }
  return code == SQLITE_DONE;
}

// --- What waits

std::optional<Confirmation> NodeStore::confirmation() {
  const std::lock_guard lock(confirmation_mutex_);
  return confirmation_;
}

void NodeStore::set_confirmation(std::optional<Confirmation> confirmation) {
  const std::lock_guard lock(confirmation_mutex_);
  confirmation_ = std::move(confirmation);
}

void NodeStore::begin_waiting(SharedPlan plan) {
  waiting_ = std::move(plan);
  for (const PlannedChange& change : waiting_->changes) {
    if (change.is_listed()) unchanged_.insert(change.path.view());
  }
}

void NodeStore::end_waiting() {
  unchanged_.clear();
  waiting_ = nullptr;
  set_confirmation(std::nullopt);
}

std::vector<KvConfigChange> NodeStore::undo_waiting_commit(const ConfigTree& tree) {
  const std::lock_guard lock(mutex_);
  return waiting_ == nullptr ? std::vector<KvConfigChange>{} : undoing_changes(*waiting_, unchanged_, tree);
}

// The paths of the waiting commit that this one changes first.
std::vector<std::string_view> NodeStore::find_later_changes(const CommitPlan& plan) const {
  std::vector<std::string_view> paths;
  if (unchanged_.empty() || owner_name(plan.owner) != client_owner()) return paths;
  for (const PlannedChange& change : plan.changes) {
    if (unchanged_.contains(change.path.view())) paths.push_back(change.path.view());
  }
  return paths;
}

// --- In the transaction of a commit, and once it is on the disk

bool NodeStore::write_confirmation(std::int64_t id, const CommitPlan& plan, const CommitHead& head) {
  const std::vector<std::string_view> later = find_later_changes(plan);
  const bool ends = waiting_ != nullptr && (head.ends_confirmation || later.size() == unchanged_.size());
  if (ends ? !execute(kEndConfirmation) : !write_later_changes(later)) return false;
  if (!needs_confirmation(plan, head)) return true;
  sqlite::Statement statement(database_.get(),
                              "INSERT INTO confirmation VALUES (?1, ?2, ?3, row_checksum(?1, ?2, ?3))");
  statement.bind(1, id);
  statement.bind(2, static_cast<std::int64_t>(head.time + head.confirmation));
  statement.bind(3, static_cast<std::int64_t>(head.confirmation));
  return run(statement);
}

bool NodeStore::write_later_changes(const std::vector<std::string_view>& paths) {
  sqlite::Statement statement(database_.get(), "INSERT INTO later_change VALUES (?1, row_checksum(?1))");
  for (const std::string_view path : paths) {
    statement.reset();
    statement.bind_text(1, path);
    if (!run(statement)) return false;
  }
  return true;
}

void NodeStore::note_confirmation(std::int64_t id, const SharedPlan& plan, const CommitHead& head) {
  if (waiting_ != nullptr) {
    for (const std::string_view path : find_later_changes(*plan)) unchanged_.erase(path);
    if (unchanged_.empty() && !head.ends_confirmation) {
      log_notice("configuration",
                 "commit %lld no longer waits for its confirmation: later commits changed all that it set",
                 static_cast<long long>(confirmation()->commit));
    }
    if (unchanged_.empty() || head.ends_confirmation) end_waiting();
  }
  if (!needs_confirmation(*plan, head)) return;
  begin_waiting(plan);
  set_confirmation(
      Confirmation{id, head.time + head.confirmation, head.confirmation, std::string(head.user)});
}

bool NodeStore::hide(std::int64_t id) {
  sqlite::Statement statement(
      database_.get(),
      "UPDATE log SET changes = 0, checksum = row_checksum(id, time, owner, comment, 0, "
      "octets, folded, user) WHERE id = ?");
  statement.bind(1, id);
  return run(statement);
}

// What is damaged stays so.
bool NodeStore::add_to_comment(std::int64_t id, std::string_view note) {
#define WITH_NOTE "iif(comment = '', '', comment || ', ') || ?2"
  sqlite::Statement statement(
      database_.get(),
      "UPDATE log SET comment = " WITH_NOTE ", checksum = row_checksum(id, time, owner, " WITH_NOTE
      ", changes, octets, folded, user) WHERE id = ?1 AND checksum = row_checksum(id, "
      "time, owner, comment, changes, octets, folded, user)");
#undef WITH_NOTE
  statement.bind(1, id);
  statement.bind_text(2, note);
  return run(statement);
}

Status NodeStore::end_confirmation(std::string_view user, std::string* reason) {
  const std::lock_guard lock(mutex_);
  write_error_.clear();
  Status status = fault_check("configuration_write");
  const auto write = [this, user] {
    return (user.empty() || add_to_comment(confirmation()->commit, "confirmed by " + std::string(user))) &&
           execute(kEndConfirmation);
  };
  if (status == kStatusOk && !transact(write)) status = write_status_;
  if (status == kStatusOk) {
    end_waiting();
    return kStatusOk;
  }
  *reason = (write_error_.empty() ? err_text(status) : write_error_) + ": " + file() + " cannot be written";
  log_error("configuration", "a confirmation is refused: %s", reason->c_str());
  return status;
}

bool NodeStore::write_end_of_confirmation() {
  return transact([this] { return execute(kEndConfirmation); });
}

}  // namespace kvtree

// The commit that waits for its confirmation, in the table `confirmation`: see node_store.h. At most one
// does.
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/store/configuration/node_store.h"

namespace kvtree {

namespace {

constexpr char kNoConfirmation[] = "DELETE FROM confirmation";

bool needs_confirmation(const CommitPlan& plan, const CommitHead& head) {
  return head.confirmation > 0 && plan.listed_changes > 0;
}

}  // namespace

// A confirmation that is damaged, or whose commit is in quarantine, cannot be used: its commit stays.
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
  if (statement.integer(4) == 1) {
    set_confirmation(read);
    return kStatusOk;
  }
  statement.reset();
  log_error(
      "configuration",
      "the confirmation of commit %lld is damaged: the commit is not undone by itself; \"mplsvpn config "
      "rollback\" undoes it",
      static_cast<long long>(read.commit));
  return execute(kNoConfirmation) ? kStatusOk : fail("a damaged confirmation cannot be deleted");
}

std::optional<Confirmation> NodeStore::confirmation() {
  const std::lock_guard lock(confirmation_mutex_);
  return confirmation_;
}

void NodeStore::set_confirmation(std::optional<Confirmation> confirmation) {
  const std::lock_guard lock(confirmation_mutex_);
  confirmation_ = std::move(confirmation);
}

bool NodeStore::write_confirmation(std::int64_t id, const CommitPlan& plan, const CommitHead& head) {
  if (head.ends_confirmation && !execute(kNoConfirmation)) return false;
  if (!needs_confirmation(plan, head)) return true;
  sqlite::Statement statement(database_.get(),
                              "INSERT INTO confirmation VALUES (?1, ?2, ?3, row_checksum(?1, ?2, ?3))");
  statement.bind(1, id);
  statement.bind(2, static_cast<std::int64_t>(head.time + head.confirmation));
  statement.bind(3, static_cast<std::int64_t>(head.confirmation));
  return run(statement);
}

// What write_confirmation() has written is on the disk.
void NodeStore::note_confirmation(std::int64_t id, const CommitPlan& plan, const CommitHead& head) {
  if (head.ends_confirmation) set_confirmation(std::nullopt);
  if (needs_confirmation(plan, head))
    set_confirmation(
        Confirmation{id, head.time + head.confirmation, head.confirmation, std::string(head.user)});
}

Status NodeStore::end_confirmation(std::string* reason) {
  const std::lock_guard lock(mutex_);
  write_error_.clear();
  Status status = fault_check("configuration_write");
  if (status == kStatusOk && !execute(kNoConfirmation)) status = write_status_;
  if (status == kStatusOk) {
    set_confirmation(std::nullopt);
    return kStatusOk;
  }
  *reason = (write_error_.empty() ? err_text(status) : write_error_) + ": " + file() + " cannot be written";
  log_error("configuration", "a confirmation is refused: %s", reason->c_str());
  return status;
}

}  // namespace kvtree

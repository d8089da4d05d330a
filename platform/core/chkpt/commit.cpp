#include "platform/core/chkpt/commit.h"

#include "platform/core/base/fault.h"

namespace chkpt {

namespace {

// Within a transaction.
Status write_changes(Database* database, const Commit& commit) {
  for (const std::uint64_t object_id : commit.deleted) {
    if (const Status status = database->delete_record(object_id)) return status;
  }
  return database->put_records(commit.writes);
}

}  // namespace

Status write_commit(Database* database, const Commit& commit) {
  for (const auto& write : commit.before) write();
  if (const Status status = fault_check("chkpt_flush")) return status;
  return transact(database, [&] { return write_changes(database, commit); });
}

}  // namespace chkpt

// The changes of one commit, copied from the tables, so that a thread can write them while the tables change.
// Only for this folder.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/chkpt/database.h"

namespace chkpt {

struct Commit {
  std::uint64_t number = 0;
  std::vector<std::function<void()>> before;  // to be run before the transaction
  std::vector<std::uint64_t> deleted;
  std::vector<RecordRow> writes;
  Status status = kStatusOk;
};

// Runs `write` in a transaction.
template <typename Write>
Status transact(Database* database, Write write) {
  Status status = database->begin();
  if (status == kStatusOk) status = write();
  if (status == kStatusOk) status = database->commit();
  if (status != kStatusOk) database->roll_back();
  return status;
}

// Any thread, one at a time. Fault point "chkpt_flush".
Status write_commit(Database* database, const Commit& commit);

}  // namespace chkpt

// The history of commits, read from the database: see node_store.h.
#include <utility>

#include "platform/core/base/log.h"
#include "platform/core/text/numbers.h"
#include "platform/store/configuration/commit_codec.h"
#include "platform/store/configuration/node_store.h"

namespace kvtree {

namespace {

KvConfigCommit column_commit(sqlite::Statement& statement) {
  KvConfigCommit commit;
  commit.id = std::to_string(statement.integer(0));
  commit.time = static_cast<std::uint64_t>(statement.integer(1));
  commit.owner = statement.text(2);
  commit.comment = statement.text(3);
  commit.changes = static_cast<std::uint32_t>(statement.integer(4));
  return commit;
}

}  // namespace

// The number of the commit; kStatusNoSuchRow if the history does not have it. "007" is not an id.
Status NodeStore::find_commit(std::string_view id, std::int64_t* number) const {
  const auto parsed = text::parse_number<std::int64_t>(id);
  if (!parsed || std::to_string(*parsed) != id) return kStatusNoSuchRow;
  *number = *parsed;
  sqlite::Statement statement(database_.get(), "SELECT 1 FROM log WHERE id = ? AND changes > 0");
  statement.bind(1, *number);
  const int code = statement.step();
  if (code == SQLITE_ROW) return kStatusOk;
  return code == SQLITE_DONE ? kStatusNoSuchRow : fail("a commit cannot be found");
}

Status NodeStore::history(std::uint32_t maximum, std::string_view before,
                          std::vector<KvConfigCommit>* commits) const {
  std::int64_t end = INT64_MAX;
  if (!before.empty()) {
    if (const Status status = find_commit(before, &end)) return status;
  }
  sqlite::Statement statement(database_.get(),
                              "SELECT id, time, owner, comment, changes FROM log WHERE changes > 0 "
                              "AND id < ? ORDER BY id DESC LIMIT ?");
  statement.bind(1, end);
  statement.bind(2, maximum);
  int code = SQLITE_ROW;
  while ((code = statement.step()) == SQLITE_ROW) commits->push_back(column_commit(statement));
  if (code == SQLITE_DONE) return kStatusOk;
  commits->clear();
  return fail("the history cannot be read");
}

Status NodeStore::changes(std::string_view id, std::vector<KvConfigCommitChange>* changes) const {
  std::int64_t number = 0;
  if (const Status status = find_commit(id, &number)) return status;
  std::vector<KvConfigCommitChange> sets;
  const Status status = visit_content(number, [&](PlannedChange change) {
    if (change.is_effective)
      (change.after == nullptr ? *changes : sets).push_back(to_public(std::move(change)));
  });
  changes->insert(changes->end(), std::make_move_iterator(sets.begin()), std::make_move_iterator(sets.end()));
  if (status != kStatusOk) changes->clear();
  return status;
}

Status NodeStore::visit_content(std::int64_t id, const std::function<void(PlannedChange)>& visit) const {
  sqlite::Statement statement(database_.get(),
                              "SELECT content.octets, owner FROM content JOIN log USING (id) WHERE id = ?");
  statement.bind(1, id);
  const int code = statement.step();
  if (code != SQLITE_ROW && code != SQLITE_DONE) return fail("a commit cannot be read");
  const std::size_t owner = find_owner(statement.text(1));
  if (code == SQLITE_ROW && owner != kNoOwner && read_commit(statement.blob(0), owner, visit))
    return kStatusOk;
  log_error("configuration", "the contents of commit %lld cannot be read", static_cast<long long>(id));
  return kStatusIo;
}

}  // namespace kvtree

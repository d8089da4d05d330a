// What cannot be used of the configuration is moved to tables that nothing else reads.
#include <string>
#include <vector>

#include "platform/core/base/log.h"
#include "platform/store/configuration/node_store.h"
#include "platform/store/configuration/row_checksums.h"

namespace kvtree {

// A failure fails the start: at the next one the commit would follow those that were made after it.
Status NodeStore::quarantine_commit(std::int64_t id, const char* consequence) {
  const auto move = [this, id] {
    sqlite::Statement copy(
        database_.get(),
        "INSERT INTO quarantine_commit SELECT log.id, time, owner, comment, changes, "
        "content.octets, user, folded FROM log LEFT JOIN content USING (id) WHERE log.id = ?");
    copy.bind(1, id);
    return run(copy) && forget(id);
  };
  if (!quarantine(move)) return fail_quarantine("a commit that cannot be read");
  log_error("configuration",
            "commit %lld cannot be read and is stored in the table quarantine_commit of the database: %s",
            static_cast<long long>(id), consequence);
  return kStatusOk;
}

// Whether such a commit was folded is unknown.
Status NodeStore::quarantine_damaged_commits() {
  sqlite::Statement statement(
      database_.get(), "SELECT id FROM log WHERE checksum <> " LOG_CHECKSUM " OR id NOT BETWEEN 1 AND ?");
  statement.bind(1, kMaxCommitId);
  std::vector<std::int64_t> damaged;
  int code = SQLITE_ROW;
  while ((code = statement.step()) == SQLITE_ROW) damaged.push_back(statement.integer(0));
  if (code != SQLITE_DONE) return fail("the commits cannot be read");
  statement.reset();
  for (const std::int64_t id : damaged) {
    if (const Status status = quarantine_commit(id, "its changes have no effect unless the nodes have them"))
      return status;
  }
  const auto move_their_contents = [this] {
    return execute(
        "INSERT INTO quarantine_commit SELECT id, NULL, NULL, NULL, NULL, octets, NULL, NULL FROM content "
        "WHERE id NOT IN (SELECT id FROM log); DELETE FROM content WHERE id NOT IN (SELECT id FROM log)");
  };
  const bool is_moved = damaged.empty() || quarantine(move_their_contents);
  return is_moved ? kStatusOk : fail_quarantine("the contents of a damaged commit");
}

// After a failure the rows remain where they are, without an effect, and are found again at the next start.
void NodeStore::quarantine_damaged_rows(const std::string& first) {
  int rows = 0;
  const auto move = [this, &rows] {
    if (!execute("INSERT INTO quarantine_node SELECT path, owner, value, told, suppressed FROM node WHERE "
                 "checksum <> " NODE_CHECKSUM))
      return false;
    rows = sqlite3_changes(database_.get());
    return execute("DELETE FROM node WHERE checksum <> " NODE_CHECKSUM);
  };
  if (!quarantine(move)) {
    static_cast<void>(fail_quarantine("a damaged row"));
    return;
  }
  log_error(
      "configuration",
      "%d rows of nodes are damaged, the first is %s: they are stored in the table quarantine_node of the "
      "database and have no effect",
      rows, first.c_str());
}

// After a failure the row remains where it is, without an effect, and is found again at the next start.
void NodeStore::quarantine_row(const std::string& path, const std::string& owner) {
  const auto move = [&] {
    for (const char* sql :
         {"INSERT INTO quarantine_node SELECT path, owner, value, told, suppressed FROM node WHERE path "
          "= ? AND owner = ?",
          "DELETE FROM node WHERE path = ? AND owner = ?"}) {
      sqlite::Statement statement(database_.get(), sql);
      statement.bind_text(1, path);
      statement.bind_text(2, owner);
      if (!run(statement)) return false;
    }
    return true;
  };
  if (!quarantine(move)) {
    static_cast<void>(fail_quarantine("an invalid row"));
    return;
  }
  log_error("configuration",
            "%s of \"%s\" is not a node of a configuration and is stored in the table quarantine_node of the "
            "database: it has no effect",
            path.c_str(), owner.c_str());
}

bool NodeStore::quarantine(const std::function<bool()>& move) {
  return transact([&] { return execute(kMakeQuarantine) && move(); });
}

Status NodeStore::count_quarantined() {
  return sqlite::read_quarantine(database_.get(), &quarantine_) == SQLITE_OK
             ? kStatusOk
             : fail("the rows in quarantine cannot be read");
}

Status NodeStore::fail_quarantine(const char* what) const {
  log_error("configuration", "%s: %s cannot be moved to quarantine: %s", file().c_str(), what,
            write_error_.c_str());
  return kStatusIo;
}

}  // namespace kvtree

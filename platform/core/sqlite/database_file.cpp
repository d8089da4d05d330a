#include "platform/core/sqlite/database_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/core/files/lock_file.h"
#include "platform/core/files/set_aside.h"
#include "platform/core/files/synchronize.h"

namespace sqlite {

namespace {

constexpr std::int64_t kSkippedIds = 1000;  // may have been used by rows that no longer exist

constexpr char kFindImpossible[] =
    "SELECT count(*) FROM sqlite_sequence WHERE name = ?1 AND (typeof(seq) <> 'integer' OR seq NOT BETWEEN 0 "
    "AND ?2)";
constexpr char kSetSequence[] = "UPDATE sqlite_sequence SET seq = ?2 WHERE name = ?1";

}  // namespace

int read_integer(sqlite3* connection, const char* sql, std::int64_t* value) {
  Statement query;
  if (const int code = query.prepare(connection, sql)) return code;
  const int code = query.step();
  if (code != SQLITE_ROW) return code == SQLITE_DONE ? SQLITE_CORRUPT : code;
  *value = query.integer(0);
  return SQLITE_OK;
}

int read_identity(sqlite3* connection, Identity* identity) {
  if (const int code = read_integer(connection, "PRAGMA application_id", &identity->application)) return code;
  if (const int code = read_integer(connection, "PRAGMA user_version", &identity->version)) return code;
  return read_integer(connection, "SELECT count(*) FROM sqlite_schema", &identity->objects);
}

int check_contents(sqlite3* connection, std::string* damage) {
  Statement query;
  if (const int code = query.prepare(connection, "PRAGMA quick_check(1)")) return code;
  const int code = query.step();
  if (code != SQLITE_ROW) return code == SQLITE_DONE ? SQLITE_CORRUPT : code;
  const std::string answer = query.octets(0);
  *damage = answer == "ok" ? "" : answer.substr(answer.rfind('\n') + 1);  // the last line has the reason
  return SQLITE_OK;
}

bool has_unwritable_format(sqlite3* connection) {
  const char* file = sqlite3_db_filename(connection, "main");
  return sqlite3_db_readonly(connection, "main") == 1 && access(file, W_OK) == 0;
}

std::string describe_newer(std::int64_t version, std::int64_t supported) {
  return "it is of version " + std::to_string(version) + " and this release reads versions up to " +
         std::to_string(supported) + "; start the release that wrote it, or move the file away";
}

int correct_sequence(sqlite3* connection, const Sequence& sequence, std::int64_t* corrected) {
  Statement find(connection, kFindImpossible);
  find.bind_text(1, sequence.table);
  find.bind(2, sequence.maximum);
  *corrected = 0;
  if (const int code = find.step(); code != SQLITE_ROW) return code == SQLITE_DONE ? SQLITE_CORRUPT : code;
  if (find.integer(0) == 0) return SQLITE_OK;
  find.reset();
  std::int64_t highest = 0;
  if (const int code = read_integer(connection, sequence.highest, &highest)) return code;
  Statement set(connection, kSetSequence);
  set.bind_text(1, sequence.table);
  set.bind(2, highest + kSkippedIds);
  if (const int code = set.finish()) return code;
  *corrected = highest + kSkippedIds;
  return SQLITE_OK;
}

std::int64_t file_size(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_size : -1;
}

std::string describe_lock(const std::string& path) {
  return describe_process(find_lock_holder(path.c_str())) + " has it locked: end it, then start again";
}

// A journal or log belongs to its database; applied to a new one it would destroy that. The log is renamed
// last: if the process dies in between, a log alone is detected as damage, but a database without its log
// would look complete. The same holds for a power cut.
std::string set_aside(const std::string& path) {
  const std::string name = free_unusable_name(path, {"-wal"});
  if (name.empty()) {
    errno = EEXIST;
    return {};
  }
  for (const char* suffix : {"", "-journal", "-shm", "-wal"}) {
    const Status status = rename_durably(path + suffix, name + suffix);
    if (status == kStatusOk || status == static_cast<Status>(ENOENT)) continue;
    errno = static_cast<int>(status);
    return {};
  }
  return name;
}

}  // namespace sqlite

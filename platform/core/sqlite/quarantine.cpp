#include "platform/core/sqlite/quarantine.h"

#include <vector>

#include "platform/core/sqlite/database_file.h"
#include "platform/core/sqlite/sqlite.h"

namespace sqlite {

namespace {

constexpr char kFindTables[] =
    "SELECT name FROM sqlite_schema WHERE type = 'table' AND name GLOB 'quarantine_*' ORDER BY name";

int find_tables(sqlite3* connection, std::vector<std::string>* names) {
  Statement query;
  if (const int code = query.prepare(connection, kFindTables)) return code;
  int code = query.step();
  for (; code == SQLITE_ROW; code = query.step()) names->push_back(query.octets(0));
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

// The file may have any name of a table.
std::string count_of(std::string name) {
  for (std::size_t at = name.find('"'); at != std::string::npos; at = name.find('"', at + 2))
    name.insert(at, 1, '"');
  return "SELECT count(*) FROM \"" + name + '"';
}

}  // namespace

int read_quarantine(sqlite3* connection, Quarantine* quarantine) {
  std::vector<std::string> names;
  if (const int code = find_tables(connection, &names)) return code;
  Quarantine found;
  for (const std::string& name : names) {
    std::int64_t rows = 0;
    if (const int code = read_integer(connection, count_of(name).c_str(), &rows)) return code;
    if (rows == 0) continue;
    found.rows += static_cast<std::uint64_t>(rows);
    found.tables.append(found.tables.empty() ? "" : ",").append(name);
  }
  *quarantine = found;
  return SQLITE_OK;
}

}  // namespace sqlite

#include "platform/core/sqlite/schema.h"

#include <map>

namespace sqlite {

namespace {

#define OF_TABLES " FROM sqlite_schema WHERE type = 'table' AND substr(name, 1, 7) <> 'sqlite_'"
constexpr char kTexts[] = "SELECT name, sql" OF_TABLES;
// Without the default values that columns get which are added to a table with rows.
constexpr char kTables[] =
    "SELECT name, replace(replace(sql, ' DEFAULT 0', ''), ' DEFAULT ''''', '')" OF_TABLES;
#undef OF_TABLES
// SQLite names the indexes that it makes for a table itself.
constexpr char kAdded[] =
    "SELECT name, tbl_name FROM sqlite_schema WHERE type IN ('index', 'trigger') AND substr(name, 1, 7) <> "
    "'sqlite_'";

using Texts = std::map<std::string, std::string, std::less<>>;

int read(sqlite3* connection, const char* sql, Texts* texts) {
  Statement query;
  if (const int code = query.prepare(connection, sql)) return code;
  int code = SQLITE_ROW;
  while ((code = query.step()) == SQLITE_ROW) texts->emplace(query.text(0), query.text(1));
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

int make(const char* sql, Texts* tables) {
  Connection empty;
  if (const int code = open(":memory:", &empty)) return code;
  if (const int code = run(empty.get(), sql)) return code;
  return read(empty.get(), kTables, tables);
}

std::string find_difference(const Texts& expected, const Texts& found, bool is_required) {
  for (const auto& [name, text] : expected) {
    const auto table = found.find(name);
    if (table == found.end() && is_required) return "it has no table \"" + name + "\"";
    if (table != found.end() && table->second != text)
      return "the schema of its table \"" + name + "\" is damaged";
  }
  return {};
}

std::string find_added(const Texts& added, const Texts& tables) {
  for (const auto& [name, table] : added) {
    if (tables.contains(table))
      return "its table \"" + table + "\" has the unknown index or trigger \"" + name + "\"";
  }
  return {};
}

}  // namespace

int check_schema(sqlite3* connection, const Schema& schema, std::string* damage) {
  Texts required;
  Texts optional;
  Texts found;
  Texts added;
  if (const int code = make(schema.required, &required)) return code;
  if (const int code = make(schema.optional, &optional)) return code;
  if (const int code = read(connection, kTables, &found)) return code;
  if (const int code = read(connection, kAdded, &added)) return code;
  *damage = find_difference(required, found, true);
  if (damage->empty()) *damage = find_difference(optional, found, false);
  if (damage->empty()) *damage = find_added(added, required);
  return SQLITE_OK;
}

bool has_tables_of(sqlite3* connection, sqlite3* expected) {
  Texts tables;
  Texts found;
  return read(expected, kTables, &tables) == SQLITE_OK && read(connection, kTables, &found) == SQLITE_OK &&
         find_difference(tables, found, true).empty();
}

int set_tables(sqlite3* connection, sqlite3* expected) {
  Statement tables(expected, kTexts);
  if (const int code = run(connection, "PRAGMA writable_schema=ON")) return code;
  Statement set(connection, "UPDATE sqlite_schema SET sql = ?2 WHERE type = 'table' AND name = ?1");
  int code = SQLITE_ROW;
  while ((code = tables.step()) == SQLITE_ROW) {
    for (const int column : {0, 1}) set.bind_column(column + 1, tables, column);
    if (const int failed = set.finish()) return failed;
  }
  return code == SQLITE_DONE ? run(connection, "PRAGMA writable_schema=RESET") : code;
}

}  // namespace sqlite

// What a database has set aside row by row: rows that could not be used, in tables whose names begin with
// quarantine_ and that nothing else reads.
#pragma once

#include <cstdint>
#include <string>

struct sqlite3;

namespace sqlite {

struct Quarantine {
  std::uint64_t rows = 0;
  std::string tables{};  // those that have any, separated by ","
  bool operator==(const Quarantine&) const = default;
};

// SQLITE_OK or a code, with which *quarantine is unchanged.
int read_quarantine(sqlite3* connection, Quarantine* quarantine);

}  // namespace sqlite

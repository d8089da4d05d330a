// A new database with the rows that can be read in a damaged one. It is FILE.salvaged until the damaged file
// has been set aside; then it is renamed to FILE.
//
// The first page has the tables' texts and places. If a text is not that of a new database, rows are also
// read with that one: without its primary key a table has other columns. If the page cannot be read, the
// places of a new database are used, which every file has that this release, or a salvage, made. `insert` has
// to reject rows by their checksum, and keys that are NULL: other files have other contents at these places.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace sqlite {

// Copies rows: `insert` takes the columns that `select` reads and ignores rows that are damaged or exist. The
// two selections read the same rows from either end, each up to the damage.
struct RowCopy {
  const char* select;
  const char* select_backwards;
  const char* insert;
};

struct Salvage {
  const char* make;  // the tables, in a transaction of its own
  std::span<const RowCopy> copies;
  const char* finish;  // after the copies, in their transaction
};

// Makes FILE.salvaged, which is complete when it exists; FILE and its log are not changed. *rows: how many
// were copied. False if it cannot be written: then nothing remains of it.
bool salvage(const std::string& file, const Salvage& plan, std::size_t* rows);
void remove_salvaged(const std::string& file);
// Renames it to FILE, which no longer exists; what remains of its log is set aside too. False and errno.
bool use_salvaged(const std::string& file);
// For a start: use_salvaged() if a former process ended between setting the file aside and that.
bool finish_salvage(const std::string& file);

}  // namespace sqlite

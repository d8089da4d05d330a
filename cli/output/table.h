// Text tables with one line of titles. The first rows wait, so that their widest cells set the widths of the
// columns; a wider cell of a later row moves only the rest of its own line. On a terminal, a line ends at its
// width: what does not fit is cut, with "..." at its end, and columns without room are named after the table.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "cli/output/terminal.h"

namespace cli {

// Backslashes of names are doubled, so that "\x0a" in a name differs from an escaped octet. Texts that are
// quoted already, such as words of the configuration, are unchanged.
enum class Backslashes { kDoubled, kUnchanged };

struct TableColumn {
  const char* title = nullptr;
  bool is_number = false;  // right-aligned
  Backslashes backslashes = Backslashes::kDoubled;
  bool is_state = false;  // "up" and "down" have colors on a terminal
};
constexpr TableColumn number(const char* title) {
  return {title, true};
}
constexpr TableColumn state(const char* title) {
  return {title, false, Backslashes::kDoubled, true};
}
// Of texts that have their escapes already.
constexpr TableColumn escaped(const char* title) {
  return {title, false, Backslashes::kUnchanged};
}

class Table {
 public:
  // The terminal may be null; it must outlive the table.
  Table(std::ostream& out, std::vector<TableColumn> columns, const Terminal* terminal = nullptr);
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;
  ~Table();  // prints the rows that still wait, after a failure
  // As many cells as columns; octets that are not printable are shown as \xNN.
  void add(const std::vector<std::string>& cells);
  // The end of a batch: prints the new rows, unless they are too few to set the widths.
  void flush();
  // Prints all, and the titles of a table without rows, too.
  void end();

 private:
  void print_waiting();
  void print(const std::vector<std::string>& cells, bool is_title);
  std::size_t shown_columns() const;
  void print_left_out() const;
  std::string cell(std::size_t at, const std::string& text, bool is_title, std::size_t* room) const;

  std::ostream& out_;
  std::vector<TableColumn> columns_;
  std::vector<std::size_t> widths_;
  std::vector<std::vector<std::string>> rows_;
  const Terminal* terminal_;
  bool has_titles_ = false;  // they are printed
};

// The text with control characters, octets that are not UTF-8, and backslashes escaped, so that no name can
// control a terminal.
std::string printable(std::string_view text, Backslashes backslashes = Backslashes::kDoubled);

}  // namespace cli

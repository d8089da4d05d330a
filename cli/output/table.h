// Text tables, printed in batches: a column is as wide as its widest cell so far. Rows wait for flush(), so
// that a batch is aligned. When a later batch needs a wider column, the titles are printed again above it.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// Backslashes of names are doubled, so that "\x0a" in a name differs from an escaped octet. Texts that are
// quoted already, such as words of the configuration, are unchanged.
enum class Backslashes { kDoubled, kUnchanged };

struct TableColumn {
  const char* title = nullptr;
  bool is_number = false;  // right-aligned
  Backslashes backslashes = Backslashes::kDoubled;
};
constexpr TableColumn number(const char* title) {
  return {title, true};
}
// Of texts that have their escapes already.
constexpr TableColumn escaped(const char* title) {
  return {title, false, Backslashes::kUnchanged};
}

class Table {
 public:
  Table(std::ostream& out, std::vector<TableColumn> columns);
  // As many cells as columns; octets that are not printable are shown as \xNN.
  void add(const std::vector<std::string>& cells);
  // Prints the new rows, after the titles if a column became wider or there were none yet.
  void flush();

 private:
  void print(const std::vector<std::string>& cells);

  std::ostream& out_;
  std::vector<TableColumn> columns_;
  std::vector<std::size_t> widths_;
  std::vector<std::vector<std::string>> rows_;
  bool titles_due_ = true;
};

// The text with control characters, octets that are not UTF-8, and backslashes escaped, so that no name can
// control a terminal.
std::string printable(std::string_view text, Backslashes backslashes = Backslashes::kDoubled);

}  // namespace cli

// Text tables that are printed as rows come: a column is as wide as its widest cell so far. Rows are held
// back until flush(), so that a batch lines up; when a later batch needs a wider column, the titles are
// printed again above it.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// Names have theirs doubled, which tells "\x0a" from an octet that is shown so. Texts that are quoted
// already, such as words of the configuration, keep them.
enum class Backslashes { kDoubled, kKept };

struct Column {
  const char* title;
  bool is_number = false;  // right-aligned
  Backslashes backslashes = Backslashes::kDoubled;
};

class Table {
 public:
  Table(std::ostream& out, std::vector<Column> columns);
  // As many cells as columns; octets that are not printable are shown as \xNN.
  void add(const std::vector<std::string>& cells);
  // Prints what was added since the last time, with the titles where they are due.
  void flush();

 private:
  void print(const std::vector<std::string>& cells);

  std::ostream& out_;
  std::vector<Column> columns_;
  std::vector<std::size_t> widths_;
  std::vector<std::vector<std::string>> rows_;
  bool titles_due_ = true;
};

// The text with control characters, octets that are not UTF-8, and backslashes escaped, so that no name can
// steer a terminal.
std::string printable(std::string_view text, Backslashes backslashes = Backslashes::kDoubled);

}  // namespace cli

// See table.h.
#include "cli/table.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <cstring>
#include <utility>

namespace cli {

Table::Table(std::ostream& out, std::vector<Column> columns) : out_(out), columns_(std::move(columns)) {
  for (const Column& column : columns_) widths_.push_back(std::strlen(column.title));
}

void Table::add(const std::vector<std::string>& cells) {
  std::vector<std::string>& row = rows_.emplace_back();
  for (std::size_t at = 0; at < columns_.size(); ++at) {
    row.push_back(printable(cells.at(at)));
    if (row[at].size() <= widths_[at]) continue;
    widths_[at] = row[at].size();
    titles_due_ = true;
  }
}

void Table::flush() {
  if (titles_due_) {
    std::vector<std::string> titles;
    for (const Column& column : columns_) titles.emplace_back(column.title);
    print(titles);
    titles_due_ = false;
  }
  for (const std::vector<std::string>& row : rows_) print(row);
  rows_.clear();
}

void Table::print(const std::vector<std::string>& cells) {
  std::string line;
  for (std::size_t at = 0; at < cells.size(); ++at) {
    if (at != 0) line += "  ";
    line += columns_[at].is_number ? fmt::format("{:>{}}", cells[at], widths_[at])
                                   : fmt::format("{:<{}}", cells[at], widths_[at]);
  }
  line.erase(line.find_last_not_of(' ') + 1);
  fmt::print(out_, "{}\n", line);
}

std::string printable(const std::string& text) {
  std::string shown;
  for (const char octet : text) {
    const auto value = static_cast<unsigned char>(octet);
    if (octet == '\\') {
      shown += "\\\\";
    } else if (value < 0x20 || value == 0x7f) {
      shown += fmt::format("\\x{:02x}", value);
    } else {
      shown += octet;
    }
  }
  return shown;
}

}  // namespace cli

#include "cli/output/table.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/core/base/utf8.h"

namespace cli {

Table::Table(std::ostream& out, std::vector<TableColumn> columns) : out_(out), columns_(std::move(columns)) {
  for (const TableColumn& column : columns_) widths_.push_back(std::strlen(column.title));
}

void Table::add(const std::vector<std::string>& cells) {
  std::vector<std::string>& row = rows_.emplace_back();
  for (std::size_t at = 0; at < columns_.size(); ++at) {
    row.push_back(printable(cells.at(at), columns_[at].backslashes));
    if (row[at].size() <= widths_[at]) continue;
    widths_[at] = row[at].size();
    titles_due_ = true;
  }
}

void Table::flush() {
  if (titles_due_) {
    std::vector<std::string> titles;
    for (const TableColumn& column : columns_) titles.emplace_back(column.title);
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

std::string printable(std::string_view text, Backslashes backslashes) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t length = utf8_printable_length(text);
    if (length == 0) {
      shown += fmt::format("\\x{:02x}", static_cast<unsigned char>(text.front()));
    } else {
      if (text.front() == '\\' && backslashes == Backslashes::kDoubled) shown += '\\';
      shown.append(text.substr(0, length));
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return shown;
}

}  // namespace cli

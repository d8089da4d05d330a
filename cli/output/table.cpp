#include "cli/output/table.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "cli/output/wrap.h"
#include "platform/core/base/utf8.h"

namespace cli {

namespace {

constexpr std::size_t kRowsForWidths = 1000;
constexpr std::string_view kCut = "...";
constexpr std::size_t kLeastWidth = 6;  // of a column that is cut
constexpr std::size_t kGap = 2;         // between columns

// The beginning of a text that is wider than `width`.
std::string cut(std::string_view text, std::size_t width) {
  const std::string_view mark = kCut.substr(0, width);
  std::size_t length = 0;
  for (std::size_t used = mark.size(); used < width; ++used) length += utf8_length(text.substr(length));
  return std::string(text.substr(0, length)).append(mark);
}

std::string_view color_of(std::string_view state) {
  if (state == "up") return "\x1b[32m";
  return state == "down" ? "\x1b[31m" : "";
}

std::string colored(std::string_view state, const std::string& padded) {
  const std::string_view color = color_of(state);
  return color.empty() ? padded : std::string(color) + padded + "\x1b[0m";
}

}  // namespace

Table::Table(std::ostream& out, std::vector<TableColumn> columns, const Terminal* terminal)
    : out_(out), columns_(std::move(columns)), terminal_(terminal) {
  for (const TableColumn& column : columns_) widths_.push_back(std::strlen(column.title));
}

Table::~Table() {
  if (!rows_.empty()) print_waiting();
}

void Table::add(const std::vector<std::string>& cells) {
  std::vector<std::string>& row = rows_.emplace_back();
  for (std::size_t at = 0; at < columns_.size(); ++at) {
    row.push_back(printable(cells.at(at), columns_[at].backslashes));
    if (!has_titles_) widths_[at] = std::max(widths_[at], columns_of(row[at]));
  }
}

void Table::flush() {
  if (has_titles_ || rows_.size() >= kRowsForWidths) print_waiting();
}

void Table::end() {
  if (!has_titles_ || !rows_.empty()) print_waiting();
  print_left_out();
}

// Those that fit, and one that is cut.
std::size_t Table::shown_columns() const {
  if (terminal_ == nullptr || terminal_->width == 0) return columns_.size();
  std::size_t used = 0;
  for (std::size_t at = 0; at < columns_.size(); ++at) {
    const std::size_t gap = at == 0 ? 0 : kGap;
    if (at > 0 && used + gap + std::min(widths_[at], kLeastWidth) > terminal_->width) return at;
    used += gap + widths_[at];
  }
  return columns_.size();
}

void Table::print_left_out() const {
  std::vector<std::string> titles;
  for (std::size_t at = shown_columns(); at < columns_.size(); ++at) titles.emplace_back(columns_[at].title);
  if (titles.empty()) return;
  out_ << wrapped(fmt::format("not shown in {} columns: {}", terminal_->width, fmt::join(titles, ", ")),
                  terminal_->width);
}

void Table::print_waiting() {
  if (!has_titles_) {
    std::vector<std::string> titles;
    for (const TableColumn& column : columns_) titles.emplace_back(column.title);
    print(titles, true);
    has_titles_ = true;
  }
  for (const std::vector<std::string>& row : rows_) print(row, false);
  rows_.clear();
}

std::string Table::cell(std::size_t at, const std::string& text, bool is_title, std::size_t* room) const {
  const bool is_last = at + 1 == columns_.size();
  const std::size_t width = columns_of(text);
  const std::size_t wanted = std::max(is_last && !columns_[at].is_number ? 0 : widths_[at], width);
  const std::size_t shown = std::min(wanted, *room);
  *room -= shown;
  if (width > shown) return cut(text, shown);
  const std::string padding(shown - width, ' ');
  const std::string padded = columns_[at].is_number ? padding + text : text + padding;
  const bool has_color = !is_title && columns_[at].is_state && terminal_ != nullptr && terminal_->has_colors;
  return has_color ? colored(text, padded) : padded;
}

void Table::print(const std::vector<std::string>& cells, bool is_title) {
  std::size_t room = terminal_ == nullptr || terminal_->width == 0 ? SIZE_MAX : terminal_->width;
  std::string line;
  for (std::size_t at = 0; at < shown_columns(); ++at) {
    if (at != 0) {
      line.append(std::min(room, kGap), ' ');
      room -= std::min(room, kGap);
    }
    line += cell(at, cells[at], is_title, &room);
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

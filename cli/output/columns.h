// What a command shows of a row, one column a line: the JSON key with its value, the column of a table and
// the line among details, each optional. A list of columns is in the order of the JSON keys; places order the
// table and the details. From the list derive the table, the details and JSON (row_writer.h, details.h).
#pragma once

#include <algorithm>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "cli/output/json_list.h"
#include "cli/output/record.h"
#include "cli/output/table.h"

namespace cli {

using Lines = std::vector<std::string>;

template <typename Row>
struct Column {
  using Text = std::string (*)(const Row&);
  using Value = Json (*)(const Row&);

  const char* key = nullptr;
  Value value = nullptr;
  const char* suffix = nullptr;  // of a second key, with the name of the value
  Value name = nullptr;

  unsigned cell_place = 0;  // 0: not in tables
  TableColumn cell_column{};
  Text cell_text = nullptr;

  unsigned line_place = 0;  // 0: not among details
  const char* label = nullptr;
  Lines (*lines)(const Row&) = nullptr;
  bool are_words = false;  // fill lines, instead of one line each

  // The same column with a place in tables. Without a text the cell has the name, or else the value.
  constexpr Column cell(unsigned place, const char* title, Text text = nullptr) const {
    Column column = *this;
    column.cell_place = place;
    column.cell_column.title = title;
    column.cell_text = text;
    return column;
  }
  constexpr Column number(unsigned place, const char* title, Text text = nullptr) const {
    Column column = cell(place, title, text);
    column.cell_column.is_number = true;
    return column;
  }
  // The text has its escapes already.
  constexpr Column escaped(unsigned place, const char* title, Text text = nullptr) const {
    Column column = cell(place, title, text);
    column.cell_column.backslashes = Backslashes::kUnchanged;
    return column;
  }
  // The same column with a second key.
  constexpr Column with(const char* key_suffix, Value second) const {
    Column column = *this;
    column.suffix = key_suffix;
    column.name = second;
    return column;
  }
  // The same column with lines among the details.
  constexpr Column line(unsigned place, const char* line_label, Lines (*line_texts)(const Row&)) const {
    Column column = *this;
    column.line_place = place;
    column.label = line_label;
    column.lines = line_texts;
    return column;
  }
  constexpr Column words(unsigned place, const char* line_label, Lines (*line_words)(const Row&)) const {
    Column column = line(place, line_label, line_words);
    column.are_words = true;
    return column;
  }
};

// The record of a row: the row itself, or its member `row`.
template <typename Row>
const auto& record_of(const Row& row) {
  if constexpr (requires { row.row; }) {
    return row.row;
  } else {
    return row;
  }
}

template <auto kMember, typename Row>
Json member_json(const Row& row) {
  const auto& value = record_of(row).*kMember;
  if constexpr (std::is_same_v<std::decay_t<decltype(value)>, char*>) {
    return text_or_empty(value);
  } else {
    return value;
  }
}

template <auto kMember, typename Row>
std::string member_or_dash(const Row& row) {
  return text_or_dash(record_of(row).*kMember);
}

// Makes columns of a row's members and functions.
template <typename Row>
struct Columns {
  // A member of the record.
  template <auto kMember>
  static constexpr Column<Row> member(const char* key) {
    Column<Row> column;
    column.key = key;
    column.value = member_json<kMember, Row>;
    return column;
  }
  // A number of the record with its name, which has the key with a suffix.
  template <auto kMember, auto kName>
  static constexpr Column<Row> named(const char* key, const char* suffix = "Name") {
    return member<kMember>(key).with(suffix,
                                     [](const Row& row) -> Json { return kName(record_of(row).*kMember); });
  }
  // The value that a function computes.
  static constexpr Column<Row> value(const char* key, Json (*function)(const Row&)) {
    Column<Row> column;
    column.key = key;
    column.value = function;
    return column;
  }
  // A column without JSON.
  static constexpr Column<Row> text_only() { return {}; }
};

// As the text of a cell.
inline std::string text_of(const Json& json) {
  return json.is_string() ? json.get<std::string>() : json.dump();
}

template <typename Row>
Json row_json(std::span<const Column<Row>> columns, const Row& row) {
  Json json = Json::object();
  for (const Column<Row>& column : columns) {
    if (column.key == nullptr) continue;
    json[column.key] = column.value(row);
    if (column.suffix != nullptr) json[std::string(column.key) + column.suffix] = column.name(row);
  }
  return json;
}

// The columns that have a place, in its order.
template <typename Row>
std::vector<const Column<Row>*> by_place(std::span<const Column<Row>> columns, unsigned Column<Row>::*place) {
  std::vector<const Column<Row>*> found;
  for (const Column<Row>& column : columns) {
    if (column.*place != 0) found.push_back(&column);
  }
  std::sort(found.begin(), found.end(),
            [=](const Column<Row>* left, const Column<Row>* right) { return left->*place < right->*place; });
  return found;
}

}  // namespace cli

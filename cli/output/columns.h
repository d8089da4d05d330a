// The columns of a command's rows, in the order of listing: a key of JSON with its value, the title of a
// table's column with its text, or both. From the list derive the table and JSON (row_writer.h).
#pragma once

#include <span>
#include <string>
#include <type_traits>

#include "cli/output/json_list.h"
#include "cli/output/names.h"
#include "cli/output/record.h"
#include "cli/output/table.h"

namespace cli {

template <typename Row>
struct Column {
  const char* key = nullptr;  // null: not in JSON
  Json (*value)(const Row&) = nullptr;
  TableColumn cell = {};                      // without a title: not in tables
  std::string (*text)(const Row&) = nullptr;  // null: the value
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

// As the text of a cell.
inline std::string text_of(const Json& json) {
  return json.is_string() ? json.get<std::string>() : json.dump();
}

template <auto kMember, typename Row>
std::string member_text(const Row& row) {
  return text_of(member_json<kMember>(row));
}

template <auto kMember, typename Row>
std::string member_or_dash(const Row& row) {
  return text_or_dash(record_of(row).*kMember);
}

template <auto kMember, const mib::Syntax& kSyntax, typename Row>
std::string member_name(const Row& row) {
  return name_of(kSyntax, record_of(row).*kMember);
}

template <typename Row>
Json row_json(std::span<const Column<Row>> columns, const Row& row) {
  Json json = Json::object();
  for (const Column<Row>& column : columns) {
    if (column.key != nullptr) json[column.key] = column.value(row);
  }
  return json;
}

}  // namespace cli

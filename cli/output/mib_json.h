// JSON of the daemon's records, from their lists of columns (mpls/vpn/mib/src/records/column.h).
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "cli/output/columns.h"
#include "mpls/vpn/mib/src/records/column.h"

namespace cli {

// A key of the command's own, after that of a column.
template <typename Row>
struct AddedKey {
  std::string_view after;
  const char* key;
  Json (*value)(const Row&);
};

// Adds the value and, under the key with "Name" (of BITS "Names"), the name that its syntax has for it.
void add_value(const char* key, const mib::Syntax& syntax, const mib::Value& value, Json* json);

template <typename Row, typename Record, std::size_t kColumns>
Json mib_json(const mib::Column<Record> (&columns)[kColumns], const Row& row,
              std::span<const AddedKey<Row>> added = {}) {
  Json json = Json::object();
  for (const mib::Column<Record>& column : columns) {
    if (column.key == nullptr) continue;
    add_value(column.key, column.syntax, column.read(record_of(row)), &json);
    for (const AddedKey<Row>& own : added) {
      if (own.after == column.key) json[own.key] = own.value(row);
    }
  }
  return json;
}

}  // namespace cli

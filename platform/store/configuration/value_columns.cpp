#include "platform/store/configuration/value_columns.h"

#include <string>
#include <vector>

#include "platform/store/configuration/config_tree.h"

namespace kvtree {

namespace {

void bind_tuple(sqlite::Statement& statement, int place, const std::vector<std::int64_t>& tuple,
                wire::Octets* octets) {
  for (const std::int64_t number : tuple) wire::Writer(octets).u64(static_cast<std::uint64_t>(number));
  statement.bind_octets(place, *octets);
}

bool read_tuple_column(wire::OctetSpan octets, KvValue* value) {
  value->type = KvValueType::kTuple;
  wire::Reader reader(octets);
  while (reader.left() >= sizeof(std::int64_t))
    value->tuple.push_back(static_cast<std::int64_t>(reader.u64()));
  return reader.finished();
}

bool read_column(sqlite::Statement& statement, int column, KvValue* value) {
  switch (statement.type(column)) {
    case SQLITE_NULL:
      return true;
    case SQLITE_INTEGER:
      value->type = KvValueType::kNumber;
      value->number = statement.integer(column);
      return true;
    case SQLITE_BLOB:
      return read_tuple_column(statement.blob(column), value);
    case SQLITE_TEXT:
      value->type = KvValueType::kText;
      value->text = statement.text(column);
      return true;
    default:
      return false;
  }
}

}  // namespace

void bind_value(sqlite::Statement& statement, int place, const KvValue& value, wire::Octets* octets) {
  switch (value.type) {
    case KvValueType::kText:
      return statement.bind_text(place, value.text);
    case KvValueType::kNumber:
      statement.bind(place, value.number);
      return;
    case KvValueType::kTuple:
      return bind_tuple(statement, place, value.tuple, octets);
    case KvValueType::kNone:
    case KvValueType::kRecord:  // no plan has one
      statement.bind_null(place);
      return;
  }
}

bool column_value(sqlite::Statement& statement, int column, KvValue* value) {
  std::string error;
  return read_column(statement, column, value) && check_configuration_value(*value, &error) == kStatusOk;
}

}  // namespace kvtree

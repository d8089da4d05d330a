// Types and sizes are included, so that no two rows have the same words except for the first value.
#include "platform/core/sqlite/row_checksum.h"

#include <bit>

#include "platform/core/base/little_endian.h"

namespace sqlite {

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);

// Of less than a word.
std::uint64_t last_word(std::string_view octets) {
  std::uint64_t word = 0;
  for (std::size_t i = 0; i < octets.size(); ++i)
    word |= std::uint64_t{static_cast<std::uint8_t>(octets[i])} << (8 * i);
  return word;
}

std::string_view octets_of(sqlite3_value* value) {
  const auto* octets = static_cast<const char*>(sqlite3_value_blob(value));
  return {octets, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

void row_checksum(sqlite3_context* context, int count, sqlite3_value** values) {
  RowChecksum checksum;
  for (sqlite3_value* value : std::span(values, static_cast<std::size_t>(count))) checksum.value(value);
  sqlite3_result_int64(context, checksum.result());
}

}  // namespace

RowChecksum& RowChecksum::add_octets(int type, std::string_view octets) {
  add(static_cast<std::uint64_t>(type));
  add(octets.size());
  for (; octets.size() >= kWord; octets.remove_prefix(kWord))
    add(load_little_endian<std::uint64_t>(octets.data()));
  if (!octets.empty()) add(last_word(octets));
  return *this;
}

RowChecksum& RowChecksum::value(sqlite3_value* value) {
  const int type = sqlite3_value_type(value);
  switch (type) {
    case SQLITE_INTEGER:
      return integer(static_cast<std::uint64_t>(sqlite3_value_int64(value)));
    case SQLITE_TEXT:
    case SQLITE_BLOB:
      return add_octets(type, octets_of(value));
    case SQLITE_FLOAT:
      add(SQLITE_FLOAT);
      add(std::bit_cast<std::uint64_t>(sqlite3_value_double(value)));
      return *this;
    default:
      add(SQLITE_NULL);
      return *this;
  }
}

int define_row_checksum(sqlite3* connection) {
  constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
  return sqlite3_create_function_v2(connection, "row_checksum", -1, kFlags, nullptr, row_checksum, nullptr,
                                    nullptr, nullptr);
}

}  // namespace sqlite

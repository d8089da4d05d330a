// The checksum that a row stores of its other columns: a row whose checksum differs is damaged. It is part of
// the files' formats. Every connection that open() made has it as an SQL function, row_checksum(VALUE, ...).
// NULL as the first value has the checksum of the integer 4, so what reads rows whose key may be lost checks
// that.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <span>
#include <string_view>

namespace sqlite {

// Of the values that are added, in their order: the same as the SQL function's.
class RowChecksum {
 public:
  RowChecksum& integer(std::uint64_t value) {
    add(SQLITE_INTEGER);
    add(value);
    return *this;
  }
  RowChecksum& blob(std::string_view octets) { return add_octets(SQLITE_BLOB, octets); }
  RowChecksum& text(std::string_view octets) { return add_octets(SQLITE_TEXT, octets); }
  RowChecksum& value(sqlite3_value* value);
  std::int64_t result() const { return static_cast<std::int64_t>(state_); }

 private:
  // A bijection of the state for each word and of the word for each state: a change within one word always
  // changes the result, others do with a probability of 1 - 2^-64.
  void add(std::uint64_t word) {
    constexpr std::uint64_t kOdd = 0x9e3779b97f4a7c15;
    constexpr unsigned kHalf = 32;
    state_ = (state_ ^ word) * kOdd;
    state_ ^= state_ >> kHalf;
  }
  RowChecksum& add_octets(int type, std::string_view octets);

  std::uint64_t state_ = 1;
};

int define_row_checksum(sqlite3* connection);

}  // namespace sqlite

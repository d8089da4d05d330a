// Rows of some columns, packed: what a batch of columns (KvColumnBatch in kvtree.h) has instead of records.
//
// A row begins with a bit for each column, the first column's being the lowest of the first octet: 1 if the
// value differs from that of the row before it (for the first row: from 0 and the empty octets). Then follow
// the values that differ, a number in 1 to 5 octets of 7 bits each, the lowest bits first and the highest bit
// set in all but the last, or octets after their count, which is such a number. Which columns are numbers is
// known to both sides.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kvtree {

inline constexpr std::size_t kMaxColumns = 64;             // of a batch
inline constexpr std::size_t kEnoughColumns = 256U << 10;  // octets of rows, after which a batch ends

// Appends rows to a vector. Between two rows the vector may grow by nothing else.
class ColumnPacker {
 public:
  explicit ColumnPacker(std::size_t columns = 0) : last_(columns) {}
  void begin_row(std::vector<std::uint8_t>* out);
  // The columns in their order.
  void number(std::uint32_t value);
  void octets(std::span<const std::uint8_t> value);

 private:
  struct Last {
    std::uint32_t number = 0;  // or the count of octets
    std::size_t at = 0;        // of octets in *out_
  };
  void mark();
  void write(std::uint32_t value);

  std::vector<std::uint8_t>* out_ = nullptr;
  std::vector<Last> last_;
  std::size_t row_at_ = 0;
  std::size_t column_ = 0;
};

struct ColumnValue {
  std::uint32_t number = 0;
  std::span<const std::uint8_t> octets;  // in the packed rows
};

// Reads packed rows, which are untrusted. The octets and `is_octets` (for each column) must outlive it.
class ColumnUnpacker {
 public:
  ColumnUnpacker(std::span<const std::uint8_t> packed, std::span<const bool> is_octets)
      : rest_(packed), is_octets_(is_octets), values_(is_octets.size()) {}
  // False at the end of the octets, if they are malformed, and without columns.
  [[nodiscard]] bool next_row();
  std::span<const ColumnValue> values() const { return values_; }
  bool finished() const { return rest_.empty(); }

 private:
  bool read(std::uint32_t* value);
  bool read_value(std::size_t column);

  std::span<const std::uint8_t> rest_;
  std::span<const bool> is_octets_;
  std::vector<ColumnValue> values_;
};

}  // namespace kvtree

// Rows of the daemon's records: the objects and the values of each row follow from the record's list of
// columns (mpls/vpn/mib/src/records/column.h).
//
//   using VrfRows = RecordRows<mib::Vrf, add_vrf_index, mib::kVrfColumns, kVrfKeys>;
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "agent/tables/mib.h"

namespace tables {

// kRecordKeys are the keys of the columns that form the index, in the order of add_index's values.
template <typename Record, Taken (*kAddIndex)(std::span<const kvtree::ColumnValue>, Window*),
          const auto& kRecordColumns, const auto& kRecordKeys>
class RecordRows {
 public:
  // Rows that are read by a walk from `path`.
  static constexpr RowSet walked(const char* name, const char* path, IndexShape index) {
    return {name, path, false, index, kKeys, kSlots, kAddIndex};
  }
  // The single record at `path`.
  static constexpr RowSet single(const char* name, const char* path, IndexShape index) {
    return {name, path, true, index, kKeys, kSlots, kAddIndex};
  }
  static constexpr std::span<const Column> columns() { return kColumns; }

 private:
  using RecordColumn = mib::Column<Record>;

  static constexpr bool is_accessible(const RecordColumn& column) { return column.number != 0; }
  static constexpr std::size_t kCount = std::ranges::count_if(kRecordColumns, is_accessible);
  static_assert(kCount <= kMaxSlots);

  static constexpr BatchColumn batch_column(const RecordColumn& column) {
    return {static_cast<std::uint8_t>(&column - std::begin(kRecordColumns)), &column.syntax};
  }
  static constexpr BatchColumn find_key(std::string_view name) {
    for (const RecordColumn& column : kRecordColumns) {
      if (column.key != nullptr && column.key == name) return batch_column(column);
    }
    throw "the table lacks this column";
  }
  static constexpr auto make_keys() {
    std::array<BatchColumn, std::size(kRecordKeys)> keys{};
    std::size_t key = 0;
    for (const std::string_view name : kRecordKeys) keys[key++] = find_key(name);
    return keys;
  }
  static constexpr auto make_slots() {
    std::array<BatchColumn, kCount> slots{};
    std::size_t slot = 0;
    for (const RecordColumn& column : kRecordColumns) {
      if (is_accessible(column)) slots[slot++] = batch_column(column);
    }
    return slots;
  }
  static constexpr auto make_columns() {
    std::array<Column, kCount> columns{};
    std::size_t slot = 0;
    for (const RecordColumn& column : kRecordColumns) {
      if (!is_accessible(column)) continue;
      columns[slot] = {column.entry, column.number, column.syntax.type, slot, column.is_counted};
      ++slot;
    }
    return columns;
  }

  static constexpr auto kKeys = make_keys();
  static constexpr auto kSlots = make_slots();
  static constexpr auto kColumns = make_columns();
};

}  // namespace tables

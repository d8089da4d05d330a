// Rows of the daemon's records: the objects and the values of each row follow from the record's list of
// columns (mpls/vpn/mib/src/records/column.h).
//
//   using VrfRows = RecordRows<mib::Vrf, kMibVrfParcel, add_vrf_index, mib::kVrfColumns>;
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "agent/tables/mib.h"
#include "mpls/vpn/mib/src/records/decoded.h"

namespace tables {

// A text on one line, because managers truncate or refuse more (control characters become blanks), and of at
// most `most` octets, truncated between characters of UTF-8.
std::vector<std::uint8_t> one_line(mib::Octets text, std::size_t most);
// Adds a value as a manager receives it.
void add_value(const mib::Syntax& syntax, const mib::Value& value, Window* window);

// kAddIndex adds a record's index to the window.
template <typename Record, const ParcelDescription& kDescription, Taken (*kAddIndex)(const Record&, Window*),
          const auto& kRecordColumns>
class RecordRows {
 public:
  // Rows that are read by a walk from `path`.
  static constexpr RowSet walked(const char* name, const char* path, IndexShape index) {
    return {name, path, false, index, kSlots, take};
  }
  // The single record at `path`.
  static constexpr RowSet single(const char* name, const char* path, IndexShape index) {
    return {name, path, true, index, kSlots, take};
  }
  static constexpr std::span<const Column> columns() { return kColumns; }

  static Taken take(const kvtree::Octets& octets, Window* window) {
    const Decoded<Record> record(kDescription, octets.data(), octets.size());
    if (record.status() != kStatusOk) return Taken::kBad;
    const Taken taken = kAddIndex(*record, window);
    if (taken != Taken::kRow) return taken;
    for (const mib::Column<Record>& column : kRecordColumns) {
      if (is_accessible(column)) add_value(column.syntax, column.read(*record), window);
    }
    return taken;
  }

 private:
  static constexpr bool is_accessible(const mib::Column<Record>& column) { return column.number != 0; }
  static constexpr std::size_t kSlots = std::ranges::count_if(kRecordColumns, is_accessible);

  static constexpr std::array<Column, kSlots> make_columns() {
    std::array<Column, kSlots> columns{};
    std::size_t slot = 0;
    for (const mib::Column<Record>& column : kRecordColumns) {
      if (!is_accessible(column)) continue;
      columns[slot] = {column.entry, column.number, column.syntax.type, slot, column.is_counted};
      ++slot;
    }
    return columns;
  }
  static constexpr std::array<Column, kSlots> kColumns = make_columns();
};

}  // namespace tables

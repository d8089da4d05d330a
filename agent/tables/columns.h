// Columns of the daemon's records: one line per column with its number, its syntax and how it is read.
//
//   constexpr RecordColumn<mpls_vpn_mib_vrf> kVrfColumns[] = {
//       {5, Syntax::kTimeStamp, number<&mpls_vpn_mib_vrf::creationTime>},
//   };
//   using VrfRows = RecordRows<mpls_vpn_mib_vrf, kMibVrfParcel, add_vrf_index, kVrfColumns>;
//
// The columns of several tables can share one row set (a table that AUGMENTS another has its rows).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "agent/rows/decoded_record.h"
#include "agent/tables/mib.h"

namespace tables {

template <typename Record>
struct RecordColumn {
  std::uint32_t number;
  Syntax syntax;
  // Adds the column's value to the row.
  void (*read)(const Record& record, Window* window);
  // If set: the values are known only while a read of this path finds a record or no such row.
  const char* known_while = nullptr;
};

// --- How a column is read

template <typename Member>
struct MemberOf;
template <typename RecordType, typename Type>
struct MemberOf<Type RecordType::*> {
  using Record = RecordType;
};
template <auto kMember>
using RecordOf = typename MemberOf<decltype(kMember)>::Record;

// A number of up to 32 bits, signed or not.
template <auto kMember>
void number(const RecordOf<kMember>& record, Window* window) {
  window->add_number(static_cast<std::uint32_t>(record.*kMember));
}

// A text of at most kMost octets.
template <auto kMember, std::size_t kMost>
void text(const RecordOf<kMember>& record, Window* window) {
  add_text(window, record.*kMember, kMost);
}

// For objects that the daemon does not track.
template <typename Record>
void zero(const Record& /*record*/, Window* window) {
  window->add_number(0);
}
template <typename Record>
void no_octets(const Record& /*record*/, Window* window) {
  window->add_octets({});
}

// --- Rows

// The rows of one record type: kAddIndex adds a record's index to the window; the values of a row are those
// of the columns of all tables.
template <typename Record, const ParcelDescription& kDescription, Taken (*kAddIndex)(const Record&, Window*),
          const auto&... kTables>
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
  // The columns of the table with this number, counted from 0.
  template <std::size_t kTable>
  static constexpr std::span<const Column> columns() {
    std::size_t first = 0;
    for (std::size_t i = 0; i < kTable; ++i) first += kSizes[i];
    return std::span<const Column>(kColumns).subspan(first, kSizes[kTable]);
  }

  static Taken take(const kvtree::Octets& octets, Window* window) {
    const Decoded<Record> record(kDescription, octets);
    if (!record.good()) return Taken::kBad;
    const Taken taken = kAddIndex(*record, window);
    if (taken == Taken::kRow) (read_table(kTables, *record, window), ...);
    return taken;
  }

 private:
  static constexpr std::size_t kSizes[] = {std::size(kTables)...};
  static constexpr std::size_t kSlots = (std::size(kTables) + ...);

  static constexpr std::array<Column, kSlots> make_columns() {
    std::array<Column, kSlots> columns{};
    std::size_t slot = 0;
    const auto append = [&](const auto& table) {
      for (const RecordColumn<Record>& column : table) {
        columns[slot] = {column.number, column.syntax, slot, column.known_while};
        ++slot;
      }
    };
    (append(kTables), ...);
    return columns;
  }
  static constexpr std::array<Column, kSlots> kColumns = make_columns();

  static void read_table(std::span<const RecordColumn<Record>> table, const Record& record, Window* window) {
    for (const RecordColumn<Record>& column : table) column.read(record, window);
  }
};

}  // namespace tables

// A row set is the result of one kind of walk: records of one type, with an index and a fixed list of values,
// the slots. Several MIB tables can share a row set (a table that AUGMENTS another has its rows).
//
// A window is a run of consecutive rows as of one moment with some of their slots, decoded once into three
// arenas that are reused, so that filling a window again allocates nothing.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/oid/oid.h"
#include "agent/rows/index.h"
#include "agent/rows/row_source.h"
#include "mpls/vpn/mib/src/records/column.h"

namespace tables {

class Window;

// A set of slots: bit n is slot n.
using Slots = std::uint32_t;
inline constexpr std::size_t kMaxSlots = 32;

constexpr Slots slot_bit(std::size_t slot) {
  return Slots{1} << slot;
}

enum class Taken {
  kRow,      // the index was added
  kNoIndex,  // this and all later rows have names too long for an index of the MIB: the rows end before it
  kBad,      // the values are not those of an index
};

// A column of the record: its number in batches, and its syntax.
struct BatchColumn {
  std::uint8_t number;
  const mib::Syntax* syntax;
};

struct RowSet {
  Slots all_slots() const { return slots.size() == kMaxSlots ? ~Slots{0} : slot_bit(slots.size()) - 1; }

  const char* name;  // for messages
  const char* path;  // of the data store, without key
  bool single;       // one record without key
  IndexShape index;
  std::span<const BatchColumn> keys;   // of the index
  std::span<const BatchColumn> slots;  // at most kMaxSlots
  // Adds the parts of a row's index to the window, from the values of the keys.
  Taken (*add_index)(std::span<const kvtree::ColumnValue> keys, Window* window);
  // The path components after `path` that request the rows at or after an index.
  std::string (*key)(IndexShape shape, oid::View index) = index_path;
  std::size_t early_rows = 0;  // this many rows before the index may be first
};

class Window {
 public:
  explicit Window(const RowSet& set) : set_(&set) {}

  // --- Filling ---
  // Decodes a batch of the keys and these slots. False, and the window is empty and covers nothing, when it
  // is malformed, a value is longer than any of the MIB, or a row is out of order or before `from` (after the
  // set's early rows).
  [[nodiscard]] bool fill(oid::View from, Slots slots, const Batch& batch);
  void discard();
  // For RowSet::add_index. add_name: false for a name that no index can hold.
  [[nodiscard]] bool add_name(std::string_view name);
  void add_index(std::uint32_t number) { indexes_.push_back(number); }

  // --- Looking up ---
  // True when the window decides which row is the first at or after this index.
  bool covers(oid::View index) const;
  bool has(Slots slots) const { return (slots & ~slots_) == 0; }
  Slots slots() const { return slots_; }
  // True when both cover some index.
  bool overlaps(const Window& other) const;
  oid::View from() const { return from_.view(); }
  // True when rows may follow the last one.
  bool continues() const { return filled_ && !end_ && !rows_.empty(); }
  // True when no row follows the last one.
  bool ends() const { return end_; }
  // Number of the first row at or after the index; size() when there is none.
  std::size_t first_at_or_after(oid::View index) const;
  std::size_t size() const { return rows_.size(); }
  oid::View index_of(std::size_t row) const {
    return oid::View(indexes_).subspan(rows_[row].index_at, rows_[row].index_size);
  }
  // REQUIRES: has(slot_bit(slot)).
  mib::Value cell(std::size_t row, std::size_t slot) const;

 private:
  struct Row {
    std::uint32_t index_at;
    std::uint32_t index_size;
  };
  struct Value {
    std::uint32_t number;
    std::uint32_t octets_at;
    std::uint32_t octets_size;
  };

  enum class Added { kRow, kEarly, kEnd, kBad };
  Added add_row(std::span<const kvtree::ColumnValue> values, bool may_be_early);
  bool add_value(const mib::Syntax& syntax, const kvtree::ColumnValue& value);
  void discard_rows();
  bool is_early(oid::View index) const;
  bool in_order(oid::View index) const;

  const RowSet* set_;
  bool filled_ = false;
  bool end_ = false;  // covers everything after `from_`
  Slots slots_ = 0;
  oid::Oid from_;  // the first covered index
  std::vector<Row> rows_;
  std::vector<std::uint32_t> indexes_;
  std::vector<Value> values_;
  std::vector<std::uint8_t> octets_;
  std::vector<const mib::Syntax*> syntaxes_;  // of slots_
};

// The numbers of the columns in a batch of the keys and these slots.
std::vector<std::uint8_t> batch_columns(const RowSet& set, Slots slots);

}  // namespace tables

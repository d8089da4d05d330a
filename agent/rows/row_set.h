// A row set is the result of one kind of walk: records of one type, with an index and a fixed number of
// values. Several MIB tables can share a row set (a table that AUGMENTS another has its rows).
//
// A window is a run of consecutive rows as of one moment, decoded once into three arenas that are reused, so
// that filling a window again allocates nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/oid/oid.h"
#include "agent/rows/index.h"
#include "mpls/vpn/mib/src/records/column.h"
#include "platform/core/base/status.h"
#include "platform/store/client/client.h"

namespace tables {

class Window;

enum class Taken {
  kRow,      // the row was added
  kNoIndex,  // this and all later rows have names too long for an index of the MIB: the rows end before it
  kBad,      // the record does not match the row set
};

struct RowSet {
  const char* name;  // for messages
  const char* path;  // of the data store, without key
  bool single;       // one record without key, read by get; else rows read by walk
  IndexShape index;
  std::size_t slots;  // values in each row
  // Adds one row to the window: index parts in order, then values for the slots in order.
  Taken (*take)(const kvtree::Octets& record, Window* window);
  // The path components after `path` that request the rows at or after an index.
  std::string (*key)(IndexShape shape, oid::View index) = index_path;
  std::size_t early_rows = 0;  // this many rows before the index may be first
};

class Window {
 public:
  explicit Window(const RowSet& set) : set_(&set) {}

  // --- Filling ---
  // Decodes the records. False, and the window is empty and covers nothing, when one of them is bad, out of
  // order or before `from` (after the set's early rows). `end`: no row follows.
  [[nodiscard]] bool fill(oid::View from, const std::vector<kvtree::Octets>& records, bool end);
  void discard();
  // For RowSet::take. add_name: false for a name that no index can hold.
  [[nodiscard]] bool add_name(std::string_view name);
  void add_index(std::uint32_t number) { indexes_.push_back(number); }
  void add_number(std::uint32_t number) { values_.push_back({number, 0, 0}); }
  void add_octets(std::span<const std::uint8_t> octets);

  // --- Looking up ---
  // True when the window decides which row is the first at or after this index.
  bool covers(oid::View index) const;
  // True when both cover some index.
  bool overlaps(const Window& other) const;
  // Number of the first row at or after the index; size() when there is none.
  std::size_t first_at_or_after(oid::View index) const;
  std::size_t size() const { return rows_.size(); }
  oid::View index_of(std::size_t row) const;
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

  void discard_rows();
  bool is_early(oid::View index) const;
  bool in_order(oid::View index) const;

  const RowSet* set_;
  bool filled_ = false;
  bool end_ = false;  // covers everything after `from_`
  oid::Oid from_;     // the first covered index
  std::vector<Row> rows_;
  std::vector<std::uint32_t> indexes_;
  std::vector<Value> values_;
  std::vector<std::uint8_t> octets_;
};

}  // namespace tables

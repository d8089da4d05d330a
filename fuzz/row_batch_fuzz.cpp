// A daemon's batch of packed columns into a window of rows.
//
// The first octet chooses the table, four the columns, one whether the table ends, two the number of rows;
// the rest are the packed rows. A window is either refused whole, or its rows are indexes of the table in
// strictly increasing order with values that fit into an answer.
#include <algorithm>
#include <vector>

#include "agent/rows/row_set.h"
#include "agent/tables/l3vpn_tables.h"
#include "fuzz/support.h"

namespace {

using fuzz::require;
using tables::Window;

constexpr std::size_t kLongestValue = 256;

void check_rows(const tables::RowSet& set, tables::Slots slots, const Window& window) {
  for (std::size_t row = 0; row < window.size(); ++row) {
    const oid::View index = window.index_of(row);
    require(tables::is_index(set.index, index));
    require(window.covers(index) && window.first_at_or_after(index) == row);
    for (std::size_t slot = 0; slot < set.slots.size(); ++slot) {
      if ((slots & tables::slot_bit(slot)) == 0) continue;
      require(window.cell(row, slot).octets.size() <= kLongestValue);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const auto all = tables::l3vpn_tables();
  const tables::RowSet& set = *all[fuzz::take_octet(&input) % all.size()].rows;
  const tables::Slots slots = fuzz::take_number(&input, 4) & set.all_slots();
  const bool end = fuzz::take_octet(&input) % 2 != 0;
  const std::uint32_t rows = fuzz::take_number(&input, 2);
  // A copy of exactly its size, so that a sanitizer finds reads beyond its end.
  const std::vector<std::uint8_t> packed(input.begin(), input.end());
  oid::Oid from;
  require(tables::first_index(set.index, {}, false, &from));
  Window window(set);
  if (window.fill(from.view(), slots, {kStatusOk, end, rows, packed})) {
    check_rows(set, slots, window);
  } else {
    require(window.size() == 0 && !window.covers(from.view()));
  }
  return 0;
}

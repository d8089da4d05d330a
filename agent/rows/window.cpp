// A window covers the indexes from the requested one to its last row, or to the end of the table if the
// answer reached it. When the daemon answered, the table had no further row in this range.
//
// Filling checks the order: a look-up is a binary search, and strictly increasing OIDs depend on it.
#include <algorithm>
#include <compare>

#include "agent/rows/row_set.h"

namespace tables {

bool Window::fill(oid::View from, const std::vector<kvtree::Octets>& records, bool end) {
  discard();
  from_ = oid::Oid(from);
  end_ = end;
  std::size_t early = 0;
  for (const kvtree::Octets& record : records) {
    const std::size_t index_at = indexes_.size();
    const std::size_t value_at = values_.size();
    const Taken taken = set_->take(record, this);
    if (taken == Taken::kNoIndex) {
      indexes_.resize(index_at);
      values_.resize(value_at);
      end_ = true;
      break;
    }
    const oid::View index = oid::View(indexes_).subspan(index_at);
    if (taken == Taken::kRow && is_early(index) && early++ < set_->early_rows) {
      discard_rows();
      continue;
    }
    if (taken == Taken::kBad || values_.size() - value_at != set_->slots || !in_order(index)) {
      discard();
      return false;
    }
    rows_.push_back({static_cast<std::uint32_t>(index_at), static_cast<std::uint32_t>(index.size())});
  }
  filled_ = true;
  return true;
}

void Window::discard() {
  filled_ = false;
  end_ = false;
  discard_rows();
}

void Window::discard_rows() {
  rows_.clear();
  indexes_.clear();
  values_.clear();
  octets_.clear();
}

bool Window::is_early(oid::View index) const {
  return rows_.empty() && is_index(set_->index, index) && std::is_lt(oid::compare(index, from_.view()));
}

bool Window::in_order(oid::View index) const {
  if (!is_index(set_->index, index)) return false;
  if (rows_.empty()) return std::is_gteq(oid::compare(index, from_.view()));
  return std::is_gt(oid::compare(index, index_of(rows_.size() - 1)));
}

bool Window::add_name(std::string_view name) {
  if (name.size() > kMaxNameLength) return false;
  indexes_.push_back(static_cast<std::uint32_t>(name.size()));
  for (const char octet : name) indexes_.push_back(static_cast<std::uint8_t>(octet));
  return true;
}

void Window::add_octets(std::span<const std::uint8_t> octets) {
  values_.push_back(
      {0, static_cast<std::uint32_t>(octets_.size()), static_cast<std::uint32_t>(octets.size())});
  octets_.insert(octets_.end(), octets.begin(), octets.end());
}

bool Window::covers(oid::View index) const {
  if (!filled_ || std::is_lt(oid::compare(index, from_.view()))) return false;
  return end_ || (!rows_.empty() && std::is_lteq(oid::compare(index, index_of(rows_.size() - 1))));
}

bool Window::overlaps(const Window& other) const {
  return covers(other.from_.view()) || other.covers(from_.view());
}

std::size_t Window::first_at_or_after(oid::View index) const {
  const auto found = std::partition_point(rows_.begin(), rows_.end(), [&](const Row& row) {
    return std::is_lt(oid::compare(oid::View(indexes_).subspan(row.index_at, row.index_size), index));
  });
  return static_cast<std::size_t>(found - rows_.begin());
}

oid::View Window::index_of(std::size_t row) const {
  return oid::View(indexes_).subspan(rows_[row].index_at, rows_[row].index_size);
}

mib::Value Window::cell(std::size_t row, std::size_t slot) const {
  const Value& value = values_[row * set_->slots + slot];
  return {value.number, std::span(octets_).subspan(value.octets_at, value.octets_size)};
}

}  // namespace tables

// A window covers the indexes from the requested one to its last row, or to the end of the table if the
// answer reached it. When the daemon answered, the table had no further row in this range.
//
// Filling checks the order: a look-up is a binary search, and strictly increasing OIDs depend on it.
#include <algorithm>
#include <array>
#include <compare>

#include "agent/rows/row_set.h"
#include "agent/rows/text_line.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"

namespace tables {
namespace {

constexpr std::size_t kMostOctets = 256;  // of a value that is not a text

}  // namespace

bool Window::fill(oid::View from, Slots slots, const Batch& batch) {
  discard();
  from_ = oid::Oid(from);
  end_ = batch.end;
  slots_ = slots;
  const std::size_t keys = set_->keys.size();
  std::array<bool, kvtree::kMaxColumns> is_octets{};
  syntaxes_.clear();
  for (std::size_t i = 0; i < keys; ++i) is_octets[i] = is_octet_string(set_->keys[i].syntax->type);
  for (std::size_t slot = 0; slot < set_->slots.size(); ++slot) {
    if ((slots & slot_bit(slot)) == 0) continue;
    const mib::Syntax* const syntax = set_->slots[slot].syntax;
    is_octets[keys + syntaxes_.size()] = is_octet_string(syntax->type);
    syntaxes_.push_back(syntax);
  }
  kvtree::ColumnUnpacker unpacker(batch.packed, std::span(is_octets).first(keys + syntaxes_.size()));
  Added added = Added::kRow;
  for (std::uint32_t row = 0; row < batch.rows && added != Added::kEnd; ++row) {
    added = unpacker.next_row() ? add_row(unpacker.values(), row < set_->early_rows) : Added::kBad;
    if (added == Added::kBad) {
      discard();
      return false;
    }
  }
  end_ = end_ || added == Added::kEnd;
  filled_ = added == Added::kEnd || unpacker.finished();
  if (rows_.empty()) slots_ = set_->all_slots();  // there is nothing that it could lack
  if (!filled_) discard();
  return filled_;
}

Window::Added Window::add_row(std::span<const kvtree::ColumnValue> values, bool may_be_early) {
  const std::size_t index_at = indexes_.size();
  const std::size_t keys = set_->keys.size();
  const Taken taken = set_->add_index(values.first(keys), this);
  if (taken != Taken::kRow) {
    indexes_.resize(index_at);
    return taken == Taken::kNoIndex ? Added::kEnd : Added::kBad;
  }
  const oid::View index = oid::View(indexes_).subspan(index_at);
  if (may_be_early && is_early(index)) {
    discard_rows();
    return Added::kEarly;
  }
  if (!in_order(index)) return Added::kBad;
  for (std::size_t i = 0; i < syntaxes_.size(); ++i) {
    if (!add_value(*syntaxes_[i], values[keys + i])) return Added::kBad;
  }
  rows_.push_back({static_cast<std::uint32_t>(index_at), static_cast<std::uint32_t>(index.size())});
  return Added::kRow;
}

// As a manager receives it. What a text has too much is not copied: a batch may repeat it in every row
// without an octet.
bool Window::add_value(const mib::Syntax& syntax, const kvtree::ColumnValue& value) {
  if (!is_octet_string(syntax.type)) {
    const bool is_truth = syntax.type == mib::Type::kTruth;
    const std::uint32_t number = !is_truth ? value.number : value.number == 1 ? kTruthTrue : kTruthFalse;
    values_.push_back({number, 0, 0});
    return true;
  }
  const std::size_t at = octets_.size();
  const bool is_text = syntax.type == mib::Type::kText;
  if (!is_text && value.octets.size() > kMostOctets) return false;
  const auto copied =
      value.octets.first(std::min(value.octets.size(), is_text ? syntax.most + 1 : kMostOctets));
  octets_.insert(octets_.end(), copied.begin(), copied.end());
  if (is_text) make_one_line(&octets_, at, syntax.most);
  values_.push_back({0, static_cast<std::uint32_t>(at), static_cast<std::uint32_t>(octets_.size() - at)});
  return true;
}

void Window::discard() {
  slots_ = 0;
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
  const auto* const octets = reinterpret_cast<const std::uint8_t*>(name.data());
  indexes_.push_back(static_cast<std::uint32_t>(name.size()));
  indexes_.insert(indexes_.end(), octets, octets + name.size());
  return true;
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

mib::Value Window::cell(std::size_t row, std::size_t slot) const {
  const auto place = static_cast<std::size_t>(std::popcount(slots_ & (slot_bit(slot) - 1)));
  const Value& value = values_[row * syntaxes_.size() + place];
  return {value.number, std::span(octets_).subspan(value.octets_at, value.octets_size)};
}

std::vector<std::uint8_t> batch_columns(const RowSet& set, Slots slots) {
  std::vector<std::uint8_t> columns;
  for (const BatchColumn& key : set.keys) columns.push_back(key.number);
  for (std::size_t slot = 0; slot < set.slots.size(); ++slot) {
    if ((slots & slot_bit(slot)) != 0) columns.push_back(set.slots[slot].number);
  }
  return columns;
}

}  // namespace tables

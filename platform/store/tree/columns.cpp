#include "platform/store/tree/columns.h"

#include <algorithm>

namespace kvtree {

namespace {

constexpr unsigned kBitsPerOctet = 7;
constexpr std::uint8_t kMore = 0x80;
constexpr unsigned kNumberBits = 32;

constexpr std::size_t octets_of_bits(std::size_t columns) {
  return (columns + 7) / 8;
}

}  // namespace

void ColumnPacker::begin_row(std::vector<std::uint8_t>* out) {
  out_ = out;
  row_at_ = out->size();
  column_ = 0;
  out->resize(row_at_ + octets_of_bits(last_.size()));
}

void ColumnPacker::mark() {
  std::uint8_t& bits = (*out_)[row_at_ + column_ / 8];
  bits = static_cast<std::uint8_t>(bits | 1U << column_ % 8);
}

void ColumnPacker::write(std::uint32_t value) {
  for (; value >= kMore; value >>= kBitsPerOctet) out_->push_back(static_cast<std::uint8_t>(value | kMore));
  out_->push_back(static_cast<std::uint8_t>(value));
}

void ColumnPacker::number(std::uint32_t value) {
  if (Last& last = last_[column_]; last.number != value) {
    last.number = value;
    mark();
    write(value);
  }
  ++column_;
}

void ColumnPacker::octets(std::span<const std::uint8_t> value) {
  Last& last = last_[column_];
  const std::span before = std::span(*out_).subspan(last.at, last.number);
  if (!std::ranges::equal(before, value)) {
    mark();
    last.number = static_cast<std::uint32_t>(value.size());
    write(last.number);
    last.at = out_->size();
    out_->insert(out_->end(), value.begin(), value.end());
  }
  ++column_;
}

bool ColumnUnpacker::read(std::uint32_t* value) {
  *value = 0;
  for (unsigned shift = 0; shift < kNumberBits && !rest_.empty(); shift += kBitsPerOctet) {
    const std::uint8_t octet = rest_.front();
    rest_ = rest_.subspan(1);
    *value |= static_cast<std::uint32_t>(octet & ~kMore) << shift;
    if ((octet & kMore) == 0) return true;
  }
  return false;
}

bool ColumnUnpacker::read_value(std::size_t column) {
  std::uint32_t number = 0;
  if (!read(&number)) return false;
  if (!is_octets_[column]) {
    values_[column].number = number;
    return true;
  }
  if (number > rest_.size()) return false;
  values_[column].octets = rest_.first(number);
  rest_ = rest_.subspan(number);
  return true;
}

bool ColumnUnpacker::next_row() {
  const std::size_t size = octets_of_bits(values_.size());
  if (size == 0 || rest_.size() < size) return false;
  const std::span<const std::uint8_t> bits = rest_.first(size);
  rest_ = rest_.subspan(size);
  for (std::size_t column = 0; column < values_.size(); ++column) {
    if ((bits[column / 8] >> column % 8 & 1U) != 0 && !read_value(column)) return false;
  }
  return true;
}

}  // namespace kvtree

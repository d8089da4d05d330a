#include "cli/watch/known_rows.h"

#include <cstring>
#include <utility>

namespace cli {

namespace {

constexpr std::size_t kBlock = 64 * std::size_t{1024};

struct Lengths {
  std::uint32_t key;
  std::uint32_t value;
  std::size_t all() const { return sizeof(Lengths) + key + value; }
};

void append(const KnownRow& row, std::string* block) {
  const Lengths lengths = {static_cast<std::uint32_t>(row.key.size()),
                           static_cast<std::uint32_t>(row.value.size())};
  block->append(reinterpret_cast<const char*>(&lengths), sizeof lengths);
  block->append(row.key).append(row.value);
}

Lengths lengths_at(const std::string& block, std::size_t at) {
  Lengths lengths{};
  std::memcpy(&lengths, block.data() + at, sizeof lengths);
  return lengths;
}

}  // namespace

void RowQueue::push(const KnownRow& row) {
  const std::size_t length = sizeof(Lengths) + row.key.size() + row.value.size();
  if (blocks_.empty() || blocks_.back().size() + length > kBlock) blocks_.emplace_back().reserve(kBlock);
  append(row, &blocks_.back());
  ++size_;
}

KnownRow RowQueue::front() const {
  const Lengths lengths = lengths_at(blocks_.front(), first_);
  const std::string_view octets = std::string_view(blocks_.front()).substr(first_ + sizeof lengths);
  return {octets.substr(0, lengths.key), octets.substr(lengths.key, lengths.value)};
}

void RowQueue::pop() {
  first_ += lengths_at(blocks_.front(), first_).all();
  --size_;
  if (first_ < blocks_.front().size()) return;
  blocks_.pop_front();
  first_ = 0;
}

bool KnownRows::take(const KnownRow& row, const RowDifference& differs) {
  if (!now_.is_empty() && row.key <= last_) return false;
  pop_before(row.key, differs);
  if (!before_.is_empty() && before_.front().key == row.key) {
    const KnownRow before = before_.front();
    if (before.value != row.value) differs(&before, &row);
    before_.pop();
  } else {
    differs(nullptr, &row);
  }
  now_.push(row);
  last_ = row.key;
  return true;
}

void KnownRows::pop_before(std::string_view key, const RowDifference& differs) {
  for (; !before_.is_empty() && before_.front().key < key; before_.pop()) {
    const KnownRow before = before_.front();
    differs(&before, nullptr);
  }
}

void KnownRows::end(const RowDifference& differs) {
  for (; !before_.is_empty(); before_.pop()) {
    const KnownRow before = before_.front();
    differs(&before, nullptr);
  }
  before_ = std::exchange(now_, {});
}

void KnownRows::abandon() {
  for (; !before_.is_empty(); before_.pop()) now_.push(before_.front());
  before_ = std::exchange(now_, {});
}

}  // namespace cli

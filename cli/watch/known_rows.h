// The rows of a table as a watch knows them: sorted by key and packed, since a table may have a million rows.
// A reading replaces them row by row, so that the rows of one reading are all that is held.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

namespace cli {

struct KnownRow {
  std::string_view key;
  std::string_view value;
};

// Rows in the order in which they were pushed. Blocks are freed as soon as their rows are popped.
class RowQueue {
 public:
  void push(const KnownRow& row);
  bool is_empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  // REQUIRES: !is_empty(). Valid until the row is popped.
  KnownRow front() const;
  void pop();

 private:
  std::deque<std::string> blocks_;
  std::size_t first_ = 0;  // octets of the first block that are popped
  std::size_t size_ = 0;
};

// `before` is null for an added row, `now` for a removed one. Both are valid during the call only.
using RowDifference = std::function<void(const KnownRow* before, const KnownRow* now)>;

class KnownRows {
 public:
  // The next row of a reading. False, without effect, unless its key is greater than that of the row before.
  [[nodiscard]] bool take(const KnownRow& row, const RowDifference& differs);
  // The reading is complete: what it lacks was removed.
  void end(const RowDifference& differs);
  // The reading ended early: rows after the last one are as they were.
  void abandon();
  std::size_t size() const { return before_.size() + now_.size(); }

 private:
  void pop_before(std::string_view key, const RowDifference& differs);

  RowQueue before_;  // that the reading has not reached yet
  RowQueue now_;
  std::string last_;  // the key of the row before
};

}  // namespace cli

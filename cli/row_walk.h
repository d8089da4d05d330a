// Walks of the daemon's tables in batches, so that memory does not grow with a table. Each row is delivered
// once.
//
// A batch begins at the last row of the previous batch or right after it; a repeated row is dropped. Rows
// that are added or deleted meanwhile neither repeat nor hide others. Only the daemon knows the order of the
// keys.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "cli/output/record.h"
#include "cli/session.h"

namespace cli {

template <typename T>
struct RowTable {
  const char* name;  // "interface table", in messages
  const ParcelDescription& description;
  std::string (*first_path)(const std::string& vrf);  // of the read that begins with its first row
  std::string (*path_at)(const T& row);               // of the read that begins at this row or right after it
};

// Receives the rows, and the end of each batch.
template <typename T>
struct RowSink {
  std::function<void(const T&)> row;
  std::function<void()> batch_end = [] {};
};

inline constexpr std::uint32_t kRowBatch = 512;

// At most `most` rows; `end` when there are none. Throws Failure.
inline kvtree::WalkResult fetch_rows(const Session& session, kvtree::Client& client, const std::string& path,
                                     std::uint32_t most) {
  kvtree::WalkResult result = client.walk(path, most);
  if (result.status == kStatusNoSuchRow) return {kStatusOk, {}, true};
  if (result.status) throw request_failure(session, result.status);
  return result;
}

template <typename T>
class RowWalk {
 public:
  // Everything must outlive the walk. It ends when `take` returns false.
  RowWalk(
      const Session& session, kvtree::Client& client, const RowTable<T>& table,
      std::function<bool(const T&)> take, std::function<void()> batch_end = [] {})
      : session_(session),
        client_(client),
        table_(table),
        take_row_(std::move(take)),
        batch_end_(std::move(batch_end)) {}

  // From this path to the end of the table, unless `take` or the output ends the walk.
  void run(std::string path, std::uint32_t batch = kRowBatch) {
    path_ = std::move(path);
    while (!is_over_ && session_.out) {
      take(fetch_rows(session_, client_, path_, batch));
      batch_end_();
    }
  }

 private:
  void take(const kvtree::WalkResult& batch) {
    is_further_ = false;
    for (const kvtree::Octets& octets : batch.rows) {
      if (!is_over_) take_row(octets);
    }
    if (batch.end) is_over_ = true;
    if (!is_over_ && !is_further_)
      throw Failure(kExitFailed, std::string("the daemon repeats a row of the ") + table_.name +
                                     "; the output is incomplete");
  }

  void take_row(const kvtree::Octets& octets) {
    const Record<T> row(session_, path_, table_.description, octets);
    std::string path = table_.path_at(*row);
    if (has_last_ && path == path_) return;
    is_over_ = !take_row_(*row);
    path_ = std::move(path);
    has_last_ = true;
    is_further_ = true;
  }

  const Session& session_;
  kvtree::Client& client_;
  const RowTable<T>& table_;
  const std::function<bool(const T&)> take_row_;
  const std::function<void()> batch_end_;
  std::string path_;         // where the next batch begins
  bool has_last_ = false;    // path_ is that of a delivered row
  bool is_further_ = false;  // the batch had a row
  bool is_over_ = false;
};

}  // namespace cli

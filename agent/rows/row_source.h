// Where rows are read from: the daemon, in the running programs; test doubles elsewhere.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "platform/core/base/status.h"
#include "platform/store/client/async_client.h"

namespace tables {

// The rows from `path` on, in the order of their index, or the single one there.
struct BatchRequest {
  std::string path;  // a full path of the data store
  std::uint32_t max_rows = 1;
  std::span<const std::uint8_t> columns;  // numbers in the list of the record's columns
};

using Batch = kvtree::ColumnsResult;

class RowSource {
 public:
  using Done = std::function<void(const Batch&)>;

  virtual ~RowSource() = default;
  // Calls `done` once, now or later, within a bound that the implementation states. Another status than
  // kStatusOk and kStatusNoSuchRow says nothing about the rows that exist. Never waits.
  virtual void read(const BatchRequest& request, Done done) = 0;
};

}  // namespace tables

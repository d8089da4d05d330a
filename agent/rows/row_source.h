// Where rows are read from: the daemon, in the running sub-agent; test doubles elsewhere.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/store/client/client.h"

namespace tables {

// Paths are full paths of the data store. Every call ends within a bound that the implementation states, and
// fails with a status when it has no answer; a failure says nothing about the rows that exist.
class RowSource {
 public:
  virtual ~RowSource() = default;
  virtual kvtree::GetResult get(std::string_view path) = 0;
  // Rows from `path` on, in the order of their index; `end` when no row follows the last of them.
  virtual kvtree::WalkResult walk(std::string_view path, std::uint32_t max_rows) = 0;
};

}  // namespace tables

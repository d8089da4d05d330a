// For tests of batches.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "platform/core/evm/evm.h"

namespace feed {

// Runs the loop and returns what `count` returns in `looks` events that are dispatched between the batches.
inline std::vector<std::size_t> counts_between_batches(EventManager* manager, std::size_t looks,
                                                       const std::function<std::size_t()>& count) {
  std::vector<std::size_t> counts;
  std::function<void()> look = [&] {
    counts.push_back(count());
    if (counts.size() < looks) event_post(manager, look);
  };
  event_post(manager, look);
  while (event_run_pending(manager)) {
  }
  return counts;
}

}  // namespace feed

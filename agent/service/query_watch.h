// Notices that the master agent never asks for the subtree although it is registered: its access control
// hides the subtree then, and managers get "No Such Object" although everything else works.
#pragma once

#include <cstdint>

#include "platform/core/base/clock.h"

namespace agent {

class QueryWatch {
 public:
  // Managers commonly poll every five minutes: two of their rounds.
  static constexpr std::uint64_t kPatience = 11 * 60 * kNanosecondsPerSecond;

  void note_query() {
    deadline_ = UINT64_MAX;
    is_over_ = true;
  }
  // Logs the likely cause, once, when the subtree has been registered for kPatience without a query.
  void step(bool registered);
  // When step() is next needed, by clock_monotonic().
  std::uint64_t deadline() const { return deadline_; }

 private:
  std::uint64_t deadline_ = UINT64_MAX;
  bool is_over_ = false;  // a query has arrived, or the cause is logged
};

}  // namespace agent

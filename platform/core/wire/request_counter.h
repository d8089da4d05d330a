// How many requests a client sends, and what they cost.
#pragma once

#include <cstdint>

#include "platform/core/base/clock.h"

namespace wire {

// Times are of clock_monotonic().
struct Statistics {
  std::uint64_t opened = 0;
  std::uint64_t requests = 0;
  std::uint64_t requests_per_second = 0;  // about: of the last second
  std::uint64_t nanoseconds = 0;          // of the event loop
};

class RequestCounter {
 public:
  explicit RequestCounter(std::uint64_t now) : window_(now) { all_.opened = now; }

  // A request was handled until now.
  void count(std::uint64_t now) {
    advance(now);
    ++all_.requests;
    ++in_window_;
  }
  // What a request took, or a part of it.
  void add_time(std::uint64_t nanoseconds) { all_.nanoseconds += nanoseconds; }

  // The part of the window before that is within the last second counts as if its requests were spread
  // evenly.
  Statistics read(std::uint64_t now) const {
    RequestCounter current = *this;
    current.advance(now);
    const std::uint64_t left = kWindow - (now - current.window_);
    current.all_.requests_per_second =
        current.in_window_ + current.before_ * (left / kMicrosecond) / (kWindow / kMicrosecond);
    return current.all_;
  }

 private:
  static constexpr std::uint64_t kWindow = kNanosecondsPerSecond;
  static constexpr std::uint64_t kMicrosecond = 1000;

  void advance(std::uint64_t now) {
    if (now - window_ < kWindow) return;
    const std::uint64_t windows = (now - window_) / kWindow;
    before_ = windows == 1 ? in_window_ : 0;
    in_window_ = 0;
    window_ += windows * kWindow;
  }

  Statistics all_;
  std::uint64_t window_;  // when it began
  std::uint64_t in_window_ = 0;
  std::uint64_t before_ = 0;  // in the window before
};

}  // namespace wire

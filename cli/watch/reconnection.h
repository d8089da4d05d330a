// The time of a watch, and its continuation with a daemon that was restarted.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "cli/session.h"

namespace cli {

class WatchTime {
 public:
  // Of this many seconds from now on; 0: no limit.
  explicit WatchTime(double seconds) : seconds_(seconds) {}
  // The longest that one wait may last; zero when the time is over.
  std::chrono::milliseconds wait() const;
  bool is_over() const { return wait().count() == 0; }
  // For this time, or until the watch is over.
  void sleep(std::chrono::milliseconds time) const;

 private:
  const double seconds_;
  const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

// Whether the daemon is not running or does not answer yet.
bool is_daemon_away(const Failure& failure);

enum class Absence { kClosed, kSilent };
Absence absence_of(const Failure& failure);  // REQUIRES: is_daemon_away(failure)

// Says that the daemon is away, and calls `connect` until it throws no such Failure. False when the time is
// over before.
bool reconnect(const Session& session, const WatchTime& time, Absence absence,
               const std::function<void()>& connect);

// A line on standard error.
void say(const Session& session, const std::string& line);

}  // namespace cli

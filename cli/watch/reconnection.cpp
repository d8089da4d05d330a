#include "cli/watch/reconnection.h"

#include <fmt/ostream.h>

#include <algorithm>
#include <thread>

#include "cli/output/notices.h"
#include "cli/output/times.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kReconnectInterval(200);

}  // namespace

milliseconds WatchTime::wait() const {
  return next_wait(seconds_, started_);
}

void WatchTime::sleep(milliseconds time) const {
  const auto end = Clock::now() + time;
  while (!is_over() && Clock::now() < end) {
    std::this_thread::sleep_for(std::min(std::chrono::ceil<milliseconds>(end - Clock::now()), wait()));
  }
}

bool is_daemon_away(const Failure& failure) {
  return failure.exit_status() == kExitNoDaemon || failure.exit_status() == kExitNoAnswer;
}

Absence absence_of(const Failure& failure) {
  return failure.exit_status() == kExitNoAnswer ? Absence::kSilent : Absence::kClosed;
}

bool reconnect(const Session& session, const WatchTime& time, Absence absence,
               const std::function<void()>& connect) {
  say(session, absence == Absence::kClosed
                   ? "mpls_vpn_mib closed the connection; waiting until it runs again"
                   : "mpls_vpn_mib does not answer in time (--timeout); waiting until it does");
  while (!time.is_over()) {
    time.sleep(kReconnectInterval);
    try {
      connect();
      return true;
    } catch (const Failure& failure) {
      if (!is_daemon_away(failure)) throw;
    }
  }
  return false;
}

void say(const Session& session, const std::string& line) {
  if (session.json) return note(session, line);
  fmt::print(session.err, "{}\n", line);
  session.err.flush();
}

}  // namespace cli

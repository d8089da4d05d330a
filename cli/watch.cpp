// "watch": the daemon's traps as they come, a line each.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <chrono>
#include <ctime>

#include "cli/commands.h"
#include "cli/json_list.h"
#include "cli/notifications.h"
#include "cli/record.h"
#include "cli/table.h"
#include "platform/base/clock.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kWaitStep(500);  // a bound of one wait, not of the watching

// When the trap was received, in UTC: the record has no time of its own.
std::string now_text() {
  const std::uint64_t stamp = clock_stamp();
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                     fmt::gmtime(static_cast<std::time_t>(stamp / kNanosecondsPerSecond)),
                     stamp / kNanosecondsPerMillisecond % 1000);
}

std::string oper_status(std::int32_t value) {
  if (value == 1) return "up";
  return value == 2 ? "down" : std::to_string(value);
}

// What the type of the trap is about; the other members of the record are 0.
std::string details(const mpls_vpn_mib_trap& trap) {
  switch (trap.trapType) {
    case 0:
    case 1:
      return fmt::format("interface {} vrf {}", trap.ifConfIndex, oper_status(trap.vrfOperStatus));
    case 2:
      return fmt::format("routes {} mid threshold {}", trap.currNumRoutes, trap.midThresh);
    case 3:
    case 5:
      return fmt::format("routes {} high threshold {}", trap.currNumRoutes, trap.highThresh);
    case 4:
      return fmt::format("violations {}", trap.illegalLabelViolations);
    default:
      return "of an unknown type";
  }
}

Json trap_json(const mpls_vpn_mib_trap& trap, std::uint64_t lost_before) {
  return {{"time", now_text()},
          {"notification", notification_name(trap.trapType)},
          {"trapType", trap.trapType},
          {"vrfName", text_or_empty(trap.vrfName)},
          {"ifConfIndex", trap.ifConfIndex},
          {"vrfOperStatus", trap.vrfOperStatus},
          {"ifConfRowStatus", trap.ifConfRowStatus},
          {"midThresh", trap.midThresh},
          {"highThresh", trap.highThresh},
          {"currNumRoutes", trap.currNumRoutes},
          {"illegalLabelViolations", trap.illegalLabelViolations},
          {"lostBefore", lost_before}};
}

void print_trap(const Session& session, const kvtree::NotificationResult& notification) {
  const Record<mpls_vpn_mib_trap> trap(session, notification.path + notification.item_name, kMibTrapParcel,
                                       notification.record);
  if (session.json) {
    session.out << json_line(trap_json(*trap, notification.lost_before)) << '\n';
  } else {
    if (notification.lost_before != 0)
      fmt::print(session.out, "... {} traps missed\n", notification.lost_before);
    fmt::print(session.out, "{} {} {} {}\n", now_text(), notification_name(trap->trapType),
               printable(text_or_empty(trap->vrfName)), details(*trap));
  }
  session.out.flush();
}

// How long the next wait may take; zero when the time is over.
milliseconds wait_left(const WatchRequest& request, Clock::time_point started) {
  if (request.seconds <= 0) return kWaitStep;
  const auto end = started + std::chrono::duration<double>(request.seconds);
  return std::clamp(std::chrono::ceil<milliseconds>(end - Clock::now()), milliseconds(0), kWaitStep);
}

// The traps printed.
std::uint64_t print_traps(const Session& session, const WatchRequest& request, kvtree::Client& client) {
  const Clock::time_point started = Clock::now();
  std::uint64_t traps = 0;
  while (request.most_traps == 0 || traps < request.most_traps) {
    const milliseconds wait = wait_left(request, started);
    if (wait.count() == 0) return traps;
    const kvtree::NotificationResult notification = client.next_notification(wait);
    if (notification.status == kStatusTimedOut) continue;
    if (notification.status) throw request_failure(session, "watch", notification.status);
    print_trap(session, notification);
    ++traps;
  }
  return traps;
}

}  // namespace

void watch(const Session& session, const WatchRequest& request) {
  const auto client = connect_to_daemon(session);
  if (const Status status = client->subscribe(kProviderPath).status)
    throw request_failure(session, "watch", status);
  session.err << "watching for traps\n" << std::flush;
  const std::uint64_t traps = print_traps(session, request, *client);
  if (traps >= request.most_traps) return;
  throw Failure(kExitFailed,
                fmt::format("{} of {} traps within {:g} s", traps, request.most_traps, request.seconds));
}

}  // namespace cli

// "watch": one line for each trap of the daemon and each change of an effective route distinguisher or route
// target.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <chrono>

#include "cli/commands.h"
#include "cli/diagnosis/notifications.h"
#include "cli/diagnosis/vpn_changes.h"
#include "cli/output/json_list.h"
#include "cli/output/names.h"
#include "cli/output/record.h"
#include "cli/output/table.h"
#include "cli/output/times.h"
#include "platform/router/vpn_events/records.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// The members of the record that the type of the trap uses; the others are 0.
std::string details(const mpls_vpn_mib_trap& trap) {
  switch (trap.trapType) {
    case 0:
    case 1:
      return fmt::format("interface {} vrf {}", trap.ifConfIndex, vrf_status_name(trap.vrfOperStatus));
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
}

// The number of printed lines, at most `most`.
std::uint64_t print_notification(const Session& session, const kvtree::NotificationResult& notification,
                                 VpnChangePrinter* changes, std::uint64_t most) {
  std::uint64_t printed = 1;
  if (notification.path == vpn_events::kProviderPath) {
    printed = changes->print(notification, most);
  } else {
    print_trap(session, notification);
  }
  session.out.flush();
  return printed;
}

const char* kinds(const WatchRequest& request) {
  if (request.traps && request.changes) return "traps and changes";
  return request.traps ? "traps" : "changes";
}

// The number of printed events.
std::uint64_t print_events(const Session& session, const WatchRequest& request, kvtree::Client& client) {
  const Clock::time_point started = Clock::now();
  VpnChangePrinter changes(session);
  const std::uint64_t most = request.most_events == 0 ? UINT64_MAX : request.most_events;
  std::uint64_t events = 0;
  while (events < most) {
    const milliseconds wait = next_wait(request.seconds, started);
    if (wait.count() == 0) return events;
    const kvtree::NotificationResult notification = client.next_notification(wait);
    if (notification.status == kStatusTimedOut) continue;
    if (notification.status) throw request_failure(session, "watch", notification.status);
    events += print_notification(session, notification, &changes, most - events);
  }
  return events;
}

}  // namespace

void watch(const Session& session, const WatchRequest& request) {
  const auto client = connect_to_daemon(session);
  for (const auto& [path, is_wanted] :
       {std::pair(kProviderPath, request.traps), std::pair(vpn_events::kProviderPath, request.changes)}) {
    if (!is_wanted) continue;
    if (const Status status = client->subscribe(path).status) throw request_failure(session, "watch", status);
  }
  fmt::print(session.err, "watching for {}\n", kinds(request));
  session.err.flush();
  const std::uint64_t events = print_events(session, request, *client);
  if (events >= request.most_events) return;
  throw Failure(kExitFailed, fmt::format("received {} of {} {} within {:g} s", events, request.most_events,
                                         request.changes ? "events" : "traps", request.seconds));
}

}  // namespace cli

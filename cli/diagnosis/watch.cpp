// "watch": one line for each trap of the daemon and each change of an effective route distinguisher or route
// target.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <chrono>

#include "cli/commands.h"
#include "cli/diagnosis/traps.h"
#include "cli/diagnosis/vpn_changes.h"
#include "cli/output/times.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/router/vpn_events/records.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

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
       {std::pair(kMplsVpnPath, request.traps), std::pair(vpn_events::kProviderPath, request.changes)}) {
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

// "watch": one line for each trap of the daemon and each change of an effective route distinguisher or route
// target. The daemon may be restarted meanwhile.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

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

constexpr milliseconds kReconnectInterval(200);

const char* kinds(const WatchRequest& request) {
  if (request.traps && request.changes) return "traps and changes";
  return request.traps ? "traps" : "changes";
}

// One watching: the events so far, on one connection after the other.
class Watching {
 public:
  Watching(const Session& session, const WatchRequest& request)
      : session_(session),
        request_(request),
        most_(request.most_events == 0 ? UINT64_MAX : request.most_events) {}

  // The number of printed events, when there are enough or the time is over.
  std::uint64_t run() {
    subscribe(connect_to_daemon(session_));
    say(fmt::format("watching for {}", kinds(request_)));
    while (events_ < most_ && !is_over()) print_next();
    return events_;
  }

 private:
  milliseconds wait() const { return next_wait(request_.seconds, started_); }
  bool is_over() const { return wait().count() == 0; }

  void say(const std::string& line) const {
    fmt::print(session_.err, "{}\n", line);
    session_.err.flush();
  }

  void subscribe(std::unique_ptr<kvtree::Client> client) {
    for (const auto& [path, is_wanted] :
         {std::pair(kMplsVpnPath, request_.traps), std::pair(vpn_events::kProviderPath, request_.changes)}) {
      if (!is_wanted) continue;
      if (const Status status = client->subscribe(path).status)
        throw request_failure(session_, "watch", status);
    }
    changes_.emplace(session_, request_.vrf);
    client_ = std::move(client);
  }

  void print_next() {
    const kvtree::NotificationResult notification = client_->next_notification(wait());
    if (notification.status == kStatusTimedOut) return;
    if (notification.status == kStatusNotConnected) return reconnect();
    if (notification.status) throw request_failure(session_, "watch", notification.status);
    print(notification);
    session_.out.flush();
  }

  void print(const kvtree::NotificationResult& notification) {
    if (notification.path == vpn_events::kProviderPath) {
      events_ += changes_->print(notification, most_ - events_);
    } else if (print_trap(session_, notification, request_.vrf)) {
      ++events_;
    }
  }

  // What happens meanwhile is not shown.
  void reconnect() {
    say("mpls_vpn_mib closed the connection; waiting until it runs again");
    while (!is_over()) {
      std::this_thread::sleep_for(std::min(wait(), kReconnectInterval));
      if (try_to_subscribe()) return say(fmt::format("watching for {} again", kinds(request_)));
    }
  }

  // False while the daemon is not running or does not answer yet.
  bool try_to_subscribe() {
    try {
      subscribe(connect_to_daemon(session_));
      return true;
    } catch (const Failure& failure) {
      if (failure.exit_status() == kExitNoDaemon || failure.exit_status() == kExitNoAnswer) return false;
      throw;
    }
  }

  const Session& session_;
  const WatchRequest& request_;
  const std::uint64_t most_;
  const Clock::time_point started_ = Clock::now();
  std::unique_ptr<kvtree::Client> client_;
  std::optional<VpnChangePrinter> changes_;  // of this connection: a daemon numbers its changes anew
  std::uint64_t events_ = 0;
};

}  // namespace

void watch(const Session& session, const WatchRequest& request) {
  const std::uint64_t events = Watching(session, request).run();
  if (events >= request.most_events) return;
  throw Failure(kExitFailed, fmt::format("received {} of {} {} within {:g} s", events, request.most_events,
                                         request.changes ? "events" : "traps", request.seconds));
}

}  // namespace cli

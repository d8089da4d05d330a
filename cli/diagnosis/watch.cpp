// "watch": one line for each trap of the daemon and each change of an effective route distinguisher or route
// target. The daemon may be restarted meanwhile.
#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "cli/commands.h"
#include "cli/diagnosis/traps.h"
#include "cli/diagnosis/vpn_changes.h"
#include "cli/show/tables.h"
#include "cli/watch/reconnection.h"
#include "cli/watch/watched_table.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/router/vpn_events/records.h"

namespace cli {

namespace {

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
    require_vrf_of_request();
    say(session_, fmt::format("watching for {}", kinds(request_)));
    while (events_ < most_ && !time_.is_over()) print_next();
    return events_;
  }

 private:
  // It may be away after a restart, and return.
  void require_vrf_of_request() {
    const std::string& vrf = request_.vrf;
    if (!vrf.empty() && client_->get(provider_path("vrf", vrf)).status == kStatusNoSuchRow)
      require_vrf(session_, *client_, vrf);
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
    const kvtree::NotificationResult notification = client_->next_notification(time_.wait());
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
    const auto connect = [this] { subscribe(connect_to_daemon(session_)); };
    if (cli::reconnect(session_, time_, Absence::kClosed, connect))
      say(session_, fmt::format("watching for {} again", kinds(request_)));
  }

  const Session& session_;
  const WatchRequest& request_;
  const std::uint64_t most_;
  const WatchTime time_{request_.seconds};
  std::unique_ptr<kvtree::Client> client_;
  std::optional<VpnChangePrinter> changes_;  // of this connection: a daemon numbers its changes anew
  std::uint64_t events_ = 0;
};

}  // namespace

void watch(const Session& session, const WatchRequest& request) {
  const WatchedTable* table = find_watched_table(request.table);
  const std::uint64_t events =
      table != nullptr ? watch_table(session, request, *table) : Watching(session, request).run();
  if (events >= request.most_events) return;
  const bool is_traps = table == nullptr && !request.changes;
  throw Failure(kExitFailed, fmt::format("received {} of {} {} within {:g} s", events, request.most_events,
                                         is_traps ? "traps" : "events", request.seconds));
}

}  // namespace cli

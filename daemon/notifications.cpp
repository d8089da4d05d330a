#include "daemon/notifications.h"

#include <cstddef>
#include <optional>
#include <string>

#include "mpls/vpn/mib/src/records/decoded.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "mpls/vpn/mib/src/traps/info.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/files/directories.h"
#include "platform/store/history/history.h"
#include "platform/store/tree/kvtree.h"

namespace daemon_host {

namespace {

constexpr char kTrapSubscriber[] = "snmp";  // the SNMP front end
constexpr std::size_t kTrapQueue = 4096;    // traps for it while it or its master agent is down

std::string queue_file() {
  return state_directory() + "/traps";
}

std::string history_file() {
  return state_directory() + "/trap_history";
}

std::optional<std::uint32_t> type_of(const KvProviderNotification& notification) {
  const Decoded<mpls_vpn_mib_trap> trap(kMibTrapParcel, notification.data, notification.length);
  if (trap.status() == kStatusOk && trap->trapType < kTrapAll) return trap->trapType;
  log_error("mpls_vpn_mib", "a notification is not listed by \"mplsvpn show traps\": %s",
            trap.status() == kStatusOk ? "its type is unknown" : err_text(trap.status()));
  return std::nullopt;
}

}  // namespace

Status retain_notifications() {
  const std::string file = queue_file();
  const Status status = kvtree_retain_notifications(kMplsVpnPath, kTrapSubscriber, kTrapQueue, file);
  if (status != kStatusOk)
    log_error("mpls_vpn_mib", "cannot use the queue of traps, %s: %s", file.c_str(), err_text(status));
  return status;
}

std::optional<process_status::TrapsFact> waiting_notifications() {
  const std::optional<KvRetained> queue = kvtree_retained_notifications(kMplsVpnPath, kTrapSubscriber);
  if (!queue) return std::nullopt;
  return process_status::TrapsFact{queue->waiting, queue->limit, queue->lost, queue->subscriber,
                                   queue->alone_for / kNanosecondsPerSecond};
}

std::vector<process_status::DatabaseFact> notification_files() {
  const std::optional<KvRetained> queue = kvtree_retained_notifications(kMplsVpnPath, kTrapSubscriber);
  return {{"traps", queue_file(), queue ? queue->problem : ""},
          {"trapHistory", history_file(), notification_figures().problem}};
}

void list_notifications(EventManager* manager) {
  const Status status =
      notification_history_start(manager, {kMplsVpnPath, kTrapSubscriber, history_file(), kTrapAll, type_of});
  if (status != kStatusOk)
    log_error("mpls_vpn_mib", "\"mplsvpn show traps\" is not available: %s", err_text(status));
}

}  // namespace daemon_host

// Sequence numbers belong to one instance of the daemon's queue. After a new subscription to the same
// instance, traps received before are skipped. After one to another instance the numbers start again, and the
// traps of the former one are sent but not acknowledged.
#include "agent/trap_feed.h"

#include <algorithm>
#include <utility>

#include "agent/trap_notification.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/core/base/log.h"

namespace agent {
namespace {

constexpr const char* kName = "snmp";
constexpr std::uint64_t kAcknowledgeAfter = 16;  // a fraction of the window that the daemon sends in advance

}  // namespace

TrapFeed::TrapFeed(std::string socket_path, DaemonLimits limits, agentx::Session& session)
    : socket_path_(std::move(socket_path)),
      limits_(limits),
      session_(&session),
      client_(socket_path_, limits.call_timeout) {}

std::uint64_t TrapFeed::deadline() const {
  return client_.connected() || !session_->registered() ? UINT64_MAX : retry_at_;
}

void TrapFeed::step() {
  if (session_losses_ != session_->losses()) {
    session_losses_ = session_->losses();
    for (Trap& trap : traps_) trap.packet = 0;
  }
  if (!client_.connected() && session_->registered() && clock_monotonic() >= retry_at_) subscribe();
  send();
  acknowledge();
}

void TrapFeed::subscribe() {
  Status status = client_.connect();
  kvtree::SubscribeResult result;
  if (status == kStatusOk) {
    result = client_.subscribe(kMplsVpnPath, kName);
    status = result.status;
  }
  if (status != kStatusOk) {
    lose_connection(status);
    return;
  }
  announced_ = kStatusOk;
  subscription_ = result.subscription;
  acknowledged_ = 0;
  if (result.instance != instance_) {
    instance_ = result.instance;
    received_ = 0;
    done_ = 0;
  }
  take_all();
}

void TrapFeed::handle_readable() {
  take_all();
}

void TrapFeed::take_all() {
  while (client_.connected()) {
    kvtree::NotificationResult notification = client_.next_notification(std::chrono::milliseconds(0));
    if (notification.status == kStatusTimedOut) return;
    if (notification.status != kStatusOk) {
      lose_connection(notification.status);
    } else {
      take(std::move(notification));
    }
  }
}

void TrapFeed::take(kvtree::NotificationResult notification) {
  // What the daemon could not store, it sends again: it has to be acknowledged again.
  if (notification.sequence <= done_) acknowledged_ = 0;
  if (notification.sequence <= received_) return;
  received_ = notification.sequence;
  if (notification.lost_before != 0) note_lost(notification.lost_before, "the daemon");
  keep({instance_, notification.sequence, 0, false, std::move(notification.record)});
}

void TrapFeed::keep(Trap trap) {
  traps_.push_back(std::move(trap));
  if (traps_.size() <= kMaxTraps) return;
  const auto oldest =
      std::find_if(traps_.begin(), traps_.end(), [](const Trap& each) { return each.packet == 0; });
  traps_.erase(oldest);
  note_lost(1, "the sub-agent");
}

void TrapFeed::note_lost(std::uint64_t count, const char* where) {
  lost_ += count;
  log_warning("traps", "%llu lost because the queue of %s was full, %llu since the start",
              static_cast<unsigned long long>(count), where, static_cast<unsigned long long>(lost_));
}

void TrapFeed::lose_connection(Status status) {
  client_.close();
  retry_at_ = clock_monotonic() + (status == kStatusTimedOut ? limits_.silence_ns : limits_.retry_ns);
  const bool refused = status == kStatusAccess || status == kStatusNoSuchRow;
  if (!refused || status == announced_) return;
  announced_ = status;
  log_error("traps", "the daemon at %s refused the subscription: %s%s", socket_path_.c_str(),
            err_text(status),
            status == kStatusAccess ? "; add this process's user to the agents' group (mpls_vpn_agent)" : "");
}

void TrapFeed::send() {
  if (!session_->registered()) return;
  for (Trap& trap : traps_) {
    if (trap.done || trap.packet != 0) continue;
    if (!send_one(&trap)) break;
  }
  session_->flush_notifies();
  drop_done();
}

// False when the session accepts no more.
bool TrapFeed::send_one(Trap* trap) {
  std::vector<std::uint8_t> variables;
  agentx::Writer trial(&variables);
  if (const Status status = write_trap(trap->record, &trial)) {
    log_error("traps", "cannot send one: %s", err_text(status));
    trap->done = true;
    return true;
  }
  trap->packet = session_->notify([&](agentx::Writer* writer) { writer->raw(variables); });
  return trap->packet != 0;
}

void TrapFeed::take_answer(std::uint32_t packet, std::uint16_t error) {
  const auto trap =
      std::find_if(traps_.begin(), traps_.end(), [&](const Trap& each) { return each.packet == packet; });
  if (trap == traps_.end()) return;
  if (error != 0) log_warning("traps", "the master agent refused one: %s", agentx::error_text(error).c_str());
  trap->done = true;
  drop_done();
}

void TrapFeed::drop_done() {
  while (!traps_.empty() && traps_.front().done) {
    if (traps_.front().instance == instance_) done_ = traps_.front().sequence;
    traps_.pop_front();
  }
}

void TrapFeed::acknowledge() {
  if (!client_.connected() || done_ == acknowledged_) return;
  // An acknowledgement wakes the daemon: send one for several traps.
  if (!traps_.empty() && done_ - acknowledged_ < kAcknowledgeAfter) return;
  if (const Status status = client_.acknowledge(subscription_, done_)) {
    lose_connection(status);
    return;
  }
  acknowledged_ = done_;
}

}  // namespace agent

// Sequence numbers belong to one instance of the daemon's queue. After a new subscription to the same
// instance, traps received before are skipped. After one to another instance the numbers start again, and the
// traps of the former one are sent but not acknowledged.
#include "agent/trap_feed.h"

#include <algorithm>
#include <new>
#include <utility>

#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"

namespace agent {
namespace {

constexpr const char* kName = "snmp";
constexpr std::uint64_t kAcknowledgeAfter = 16;  // a fraction of the window that the daemon sends in advance

}  // namespace

TrapFeed::TrapFeed(std::string socket_path, DaemonLimits limits, TrapSink& sink, const AccessAdvice& access)
    : socket_path_(std::move(socket_path)),
      limits_(limits),
      sink_(&sink),
      access_(access),
      client_(socket_path_) {}

std::uint64_t TrapFeed::deadline() const {
  if (client_.connected()) return subscribed_ ? UINT64_MAX : subscribed_until_;
  return sink_->ready() ? retry_at_ : UINT64_MAX;
}

void TrapFeed::step() {
  if (sink_losses_ != sink_->losses()) {
    sink_losses_ = sink_->losses();
    for (Trap& trap : traps_) trap.packet = 0;
  }
  const std::uint64_t now = clock_monotonic();
  if (client_.connected() && !subscribed_ && now >= subscribed_until_) lose_connection(kStatusTimedOut);
  if (!client_.connected() && sink_->ready() && now >= retry_at_) subscribe();
  send();
  acknowledge(false);
}

void TrapFeed::finish() {
  acknowledge(true);
}

void TrapFeed::subscribe() {
  subscribed_ = false;
  subscribed_until_ = clock_monotonic() +
                      static_cast<std::uint64_t>(limits_.call_timeout.count()) * kNanosecondsPerMillisecond;
  ++connections_;
  // Why the daemon cannot be reached is reported by the source of rows, which waits for a daemon that starts.
  if (const Status status = client_.connect())
    return lose_connection(status == kStatusTimedOut ? status : kStatusNotConnected);
  if (const Status status = client_.ask_subscription(kMplsVpnPath, kName, MPLS_VERSION))
    lose_connection(status);
}

void TrapFeed::take_subscription(const kvtree::SubscribeResult& result) {
  if (result.status != kStatusOk) return lose_connection(result.status);
  subscribed_ = true;
  announced_ = kStatusOk;
  subscription_ = result.subscription;
  acknowledged_ = 0;
  if (result.instance == instance_) return;
  instance_ = result.instance;
  received_ = 0;
  done_ = 0;
}

void TrapFeed::handle_readable() {
  using Arrived = kvtree::AsyncClient::Arrived;
  while (client_.connected()) {
    kvtree::AsyncClient::Arrival arrival;
    const Status status = client_.receive(&arrival);
    if (status != kStatusOk) return lose_connection(status);
    if (arrival.what == Arrived::kNothing) return;
    if (arrival.what == Arrived::kSubscribed && !subscribed_) {
      take_subscription(arrival.subscription);
    } else if (arrival.what == Arrived::kNotified && subscribed_) {
      take(std::move(arrival.notification));
    } else {
      lose_connection(kStatusBadMessage);
    }
  }
}

void TrapFeed::take(kvtree::NotificationResult notification) {
  // What the daemon could not store, it sends again: it has to be acknowledged again.
  if (notification.sequence <= done_) acknowledged_ = 0;
  if (notification.sequence <= received_) return;
  if (notification.lost_before != 0) note_lost(notification.lost_before, "the daemon");
  keep({instance_, notification.sequence, 0, false, std::move(notification.record)});
  received_ = notification.sequence;
}

void TrapFeed::keep(Trap trap) {
  if (fault_check("trap_feed_keep") != kStatusOk) throw std::bad_alloc();
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
  subscribed_ = false;
  retry_at_ = clock_monotonic() + (status == kStatusTimedOut ? limits_.silence_ns : limits_.retry_ns);
  const bool refused = status == kStatusAccess || status == kStatusNoSuchRow;
  if (!refused || status == announced_) return;
  announced_ = status;
  if (status == kStatusAccess) {
    log_error("traps", "the daemon at %s refused the subscription, so no notifications are sent; %s",
              socket_path_.c_str(), access_.subscribe);
  } else {
    log_error("traps", "the daemon at %s refused the subscription: %s", socket_path_.c_str(),
              err_text(status));
  }
}

void TrapFeed::send() {
  if (!sink_->ready()) return;
  for (Trap& trap : traps_) {
    if (trap.done || trap.packet != 0) continue;
    if (!send_one(&trap)) break;
  }
  sink_->flush();
  drop_done();
}

// False when the sink accepts no more.
bool TrapFeed::send_one(Trap* trap) {
  TrapNotification notification;
  if (const Status status = read_trap(trap->record, &notification)) {
    log_error("traps", "cannot send one: %s", err_text(status));
    trap->done = true;
    return true;
  }
  const TrapSink::Sent sent = sink_->send(notification, &trap->packet);
  trap->done = sent == TrapSink::Sent::kDone;
  return sent != TrapSink::Sent::kNotNow;
}

void TrapFeed::take_answer(std::uint32_t packet, const char* refusal) {
  const auto trap =
      std::find_if(traps_.begin(), traps_.end(), [&](const Trap& each) { return each.packet == packet; });
  if (trap == traps_.end()) return;
  if (refusal != nullptr) log_warning("traps", "the master agent refused one: %s", refusal);
  trap->done = true;
  drop_done();
}

void TrapFeed::drop_done() {
  while (!traps_.empty() && traps_.front().done) {
    if (traps_.front().instance == instance_) done_ = traps_.front().sequence;
    traps_.pop_front();
  }
}

void TrapFeed::acknowledge(bool at_once) {
  if (!subscribed_ || done_ == acknowledged_) return;
  // An acknowledgement wakes the daemon: send one for several traps.
  if (!at_once && !traps_.empty() && done_ - acknowledged_ < kAcknowledgeAfter) return;
  if (const Status status = client_.acknowledge(subscription_, done_)) {
    lose_connection(status);
    return;
  }
  acknowledged_ = done_;
}

}  // namespace agent

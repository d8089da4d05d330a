// The debug service.
//
// The daemon registers its flags from one thread while the manager's own thread already runs its loop, so
// everything that touches the manager's clients is posted there. A print holds the queue's mutex for a push;
// the first print of a batch posts the delivery. A watcher that does not read has at most kWatcherOctets of
// prints queued and misses the rest; the next print that fits carries their number, or, if none follows, a
// timer sends it once the watcher has read again.
#include "platform/core/debug/service.h"

#include <algorithm>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/wire/client_summary.h"

namespace debug_detail {
namespace {

constexpr std::uint64_t kReportInterval = 100 * kNanosecondsPerMillisecond;

void answer_status(wire::Connection& client, const wire::Message& message, Status status) {
  wire::Writer out = client.begin(message.type, message.request);
  out.u32(status);
  client.finish();
}

// False for a malformed request.
bool answer_set(wire::Connection& client, const wire::Message& message) {
  wire::Reader in(message.payload);
  const std::string_view name = in.text();
  const std::uint8_t on = in.u8();
  if (!in.finished() || on > 1) return false;
  const Status status = client.may_change() ? switch_flags(name, on == 1) : kStatusAccess;
  answer_status(client, message, status);
  return true;
}

void send_print(wire::Connection& client, std::uint64_t dropped, std::string_view flag,
                std::string_view text) {
  wire::Writer out = client.begin(kTypePrint, 0);
  out.u64(dropped);
  out.text(flag);
  out.text(text);
  client.finish();
}

void write_summary(wire::Writer* out, const wire::ClientSummary& summary) {
  for (const std::uint32_t number : {summary.id, summary.user, summary.process}) out->u32(number);
  out->text(summary.role);
  for (const std::uint32_t number : {summary.age, summary.requests, summary.requests_per_second,
                                     summary.loop_milliseconds, summary.queued}) {
    out->u32(number);
  }
}

wire::Limits limits() {
  wire::Limits limits;
  limits.max_clients = 16;
  limits.reserved_clients = 4;
  limits.clients_per_user = 4;
  limits.max_payload = kMaxRequest;
  limits.pause_octets = 2 * kWatcherOctets;
  // A watcher's queued prints must not keep its requests from being read.
  limits.pause_messages = kWatcherOctets;
  return limits;
}

}  // namespace

void Service::begin() {
  event_post(manager_, [weak = weak_from_this()] {
    if (const std::shared_ptr<Service> self = weak.lock()) self->start();
  });
}

void Service::end() {
  if (thread_.load() == std::this_thread::get_id()) {
    stop();
  } else {
    event_post(manager_, [self = shared_from_this()] { self->stop(); });
  }
}

void Service::start() {
  thread_ = std::this_thread::get_id();
  server_ = std::make_unique<wire::Server>(
      manager_, "debug", limits(),
      [this](wire::Connection& client, const wire::Message& message) { return on_message(client, message); },
      [this](wire::Connection& client) {
        watcher_count_ -= static_cast<unsigned>(watchers_.erase(client.id()));
      });
  server_->start();
}

void Service::stop() {
  event_timer_cancel(manager_, report_timer_);
  report_timer_ = 0;
  server_.reset();
}

bool Service::on_message(wire::Connection& client, const wire::Message& message) {
  if (message.type == kTypeSet) return answer_set(client, message);
  if (!message.payload.empty()) return false;
  if (client.role() == wire::Role::kAgent) {
    answer_status(client, message, kStatusAccess);
  } else if (message.type == kTypeList) {
    answer_list(client, message.request);
  } else if (message.type == kTypeClients) {
    answer_clients(client, message.request);
  } else if (message.type == kTypeWatch) {
    if (watchers_.emplace(client.id(), 0).second) ++watcher_count_;
    answer_status(client, message, kStatusOk);
  } else {
    return false;
  }
  return true;
}

void Service::answer_list(wire::Connection& client, std::uint32_t request) {
  const std::vector<DebugFlagState> flags = list_flags();
  wire::Writer out = client.begin(kTypeList, request);
  out.u32(kStatusOk);
  out.u32(static_cast<std::uint32_t>(flags.size()));
  for (const DebugFlagState& flag : flags) {
    out.text(flag.name_space);
    out.text(flag.name);
    out.u8(flag.on ? 1 : 0);
  }
  client.finish();
}

void Service::answer_clients(wire::Connection& client, std::uint32_t request) {
  std::vector<wire::ClientSummary> all;  // before the answer is queued for one of them
  server_->for_each([&all](const wire::Connection& each) { all.push_back(wire::summarize(each)); });
  wire::Writer out = client.begin(kTypeClients, request);
  out.u32(kStatusOk);
  out.u32(static_cast<std::uint32_t>(all.size()));
  for (const wire::ClientSummary& each : all) write_summary(&out, each);
  client.finish();
}

void Service::print(std::string flag, std::string text) {
  const std::lock_guard lock(mutex_);
  if (pending_.size() >= kPendingPrints) {
    ++pending_dropped_;
    return;
  }
  pending_.push_back({std::move(flag), std::move(text)});
  if (delivery_posted_) return;
  delivery_posted_ = true;
  event_post(manager_, [weak = weak_from_this()] {
    if (const std::shared_ptr<Service> self = weak.lock()) self->deliver();
  });
}

void Service::deliver() {
  std::deque<Print> prints;
  std::uint64_t dropped = 0;
  {
    const std::lock_guard lock(mutex_);
    prints.swap(pending_);
    std::swap(dropped, pending_dropped_);
    delivery_posted_ = false;
  }
  if (server_ == nullptr) return;
  server_->for_each([&](wire::Connection& client) {
    const std::uint64_t id = client.id();
    for (const Print& print : prints) {
      // Looked up each time: a send to a lost client closes and removes it.
      const auto watcher = watchers_.find(id);
      if (watcher == watchers_.end()) return;
      deliver_to(client, watcher->second, print);
    }
    // Prints that exceeded the queue are newer than those in it.
    if (const auto watcher = watchers_.find(id); watcher != watchers_.end()) watcher->second += dropped;
  });
  schedule_report();
}

void Service::deliver_to(wire::Connection& client, std::uint64_t& dropped, const Print& print) {
  if (client.queued() + print.text.size() > kWatcherOctets) {
    ++dropped;
    return;
  }
  const std::uint64_t before = std::exchange(dropped, 0);
  send_print(client, before, print.flag, print.text);
}

void Service::report_dropped() {
  report_timer_ = 0;
  server_->for_each([this](wire::Connection& client) {
    const auto watcher = watchers_.find(client.id());
    if (watcher == watchers_.end() || watcher->second == 0 || client.queued() != 0) return;
    const std::uint64_t dropped = std::exchange(watcher->second, 0);
    send_print(client, dropped, {}, {});
  });
  schedule_report();
}

void Service::schedule_report() {
  const bool unreported =
      std::any_of(watchers_.begin(), watchers_.end(), [](const auto& one) { return one.second != 0; });
  if (!unreported || report_timer_ != 0) return;
  report_timer_ = event_timer_start(manager_, kReportInterval, [this] { report_dropped(); });
}

}  // namespace debug_detail

// A client's connection; see client_connection.h.
//
// A message that is not the expected answer is a notification; anything else means that client and server are
// out of step. The connection is then closed, because later messages could not be trusted. A server that
// sends more notifications than the windows allow is out of step too.
#include "platform/store/client/client_connection.h"

#include <algorithm>
#include <ctime>

namespace kvtree {

namespace {

using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kMaxRequest = wire::Limits{}.max_payload;  // what the server takes
constexpr std::size_t kMaxPending = kMaxSubscriptions * kNotificationWindow;

// A change is answered after all subscribers are notified: a second or two for tens of thousands of changes.
constexpr int kChangeTimes = 30;

// Cheaper than the exact clock, and late by at most its resolution, which that of the kernel's time limits
// is.
SteadyClock::time_point deadline_after(milliseconds patience) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  static const std::chrono::nanoseconds resolution = [] {
    timespec step{};
    clock_getres(CLOCK_MONOTONIC_COARSE, &step);
    return std::chrono::nanoseconds(step.tv_nsec);
  }();
  const auto since_boot = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  return SteadyClock::time_point(since_boot) + resolution + patience;
}

milliseconds time_left(SteadyClock::time_point deadline) {
  return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(deadline - SteadyClock::now()));
}

}  // namespace

bool read_notification(const wire::Message& message, NotificationResult* notification) {
  wire::Reader reader(message.payload);
  notification->subscription = reader.u32();
  notification->sequence = reader.u64();
  notification->lost_before = reader.u64();
  notification->path = reader.text();
  notification->item_name = reader.text();
  notification->values[0] = reader.u32();
  notification->values[1] = reader.u32();
  notification->record = to_octets(reader.octets());
  notification->status = kStatusOk;
  return reader.finished();
}

Status Client::Connection::fail(Status status) {
  socket.close();
  return status;
}

Status Client::Connection::queue_notification(const wire::Message& message) {
  NotificationResult notification;
  if (pending.size() >= kMaxPending || !read_notification(message, &notification))
    return fail(kStatusBadMessage);
  pending.push_back(std::move(notification));
  return kStatusOk;
}

Status Client::Connection::send() {
  if (!socket.connected()) return kStatusNotConnected;
  if (socket.frame_size() > kMaxRequest) return kStatusMessageTooLarge;
  return socket.send();
}

Status Client::Connection::exchange(std::uint16_t type, wire::Reader* answer) {
  if (const Status status = send()) return status;
  return receive(type, (type == kCommit || type == kConfirm ? kChangeTimes : 1) * timeout, answer);
}

Status Client::Connection::receive(std::uint16_t type, milliseconds patience, wire::Reader* answer) {
  const SteadyClock::time_point deadline = deadline_after(patience);
  wire::Message message;
  if (const Status status = socket.receive(&message, patience, deadline)) return fail(status);
  while (message.type == kNotification) {
    if (queue_notification(message) != kStatusOk) return kStatusBadMessage;
    if (const Status status = socket.receive(&message, time_left(deadline))) return fail(status);
  }
  if (message.type != (type | kAnswer) || message.request != last_request) return fail(kStatusBadMessage);
  *answer = wire::Reader(message.payload);
  return kStatusOk;
}

Status Client::Connection::ask(std::uint16_t type, wire::Reader* answer) {
  if (const Status status = exchange(type, answer)) return status;
  const Status status = answer->u32();
  return answer->ok() ? status : fail(kStatusBadMessage);
}

}  // namespace kvtree

// Managed connections: opened by a handler, watched for their end, opened again with back-off.
//
// The descriptor that the open handler returns belongs to the handler's owner, who may watch it for data on
// the same manager. The manager therefore watches a duplicate, for hang-up and errors only; epoll
// distinguishes the two. The duplicate is closed before the close handler runs; otherwise the peer would not
// see the handler's close.
//
// States: closed (no descriptor, no timer), waiting (a timer for the next try), open (a descriptor).
#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/evm/manager.h"

namespace {

constexpr std::uint64_t kFirstRetry = 100 * kNanosecondsPerMillisecond;
constexpr std::uint64_t kLongestRetry = 5 * kNanosecondsPerSecond;

}  // namespace

struct EventConn {
  EventManager* manager;
  EventConnOpen open;
  void* handle;
  EventConnClose close = nullptr;
  int watched_fd = -1;  // our duplicate
  EventTimerId retry_timer = 0;
  std::uint64_t retry_after = kFirstRetry;
};

namespace {

Status try_open(EventConn* connection);

void schedule_open(EventConn* connection) {
  connection->retry_timer = event_timer_start(connection->manager, connection->retry_after, [connection] {
    connection->retry_timer = 0;
    // A further failure has scheduled the next try.
    [[maybe_unused]] const Status status = try_open(connection);
  });
  connection->retry_after = std::min(connection->retry_after * 2, kLongestRetry);
}

void stop_watching(EventConn* connection) {
  if (connection->watched_fd < 0) return;
  event_fd_remove(connection->manager, connection->watched_fd);
  close(connection->watched_fd);
  connection->watched_fd = -1;
}

void run_close_handler(const EventConn* connection) {
  if (connection->close == nullptr) return;
  if (const Status status = connection->close(connection->handle))
    log_error("evm", "close handler of a managed connection: %s", err_text(status));
}

void on_end(EventConn* connection) {
  stop_watching(connection);
  schedule_open(connection);
  run_close_handler(connection);  // last: it may destroy the connection
}

Status watch_descriptor(EventConn* connection, int fd) {
  const int duplicate = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (duplicate < 0) return static_cast<Status>(errno);
  const Status status = event_slot_add(connection->manager, duplicate, EPOLLRDHUP,
                                       [connection](int, std::uint32_t) { on_end(connection); });
  if (status != kStatusOk) {
    close(duplicate);
    return status;
  }
  connection->watched_fd = duplicate;
  return kStatusOk;
}

Status try_open(EventConn* connection) {
  const int fd = connection->open(connection->handle, connection->manager);
  const Status status = fd < 0 ? kStatusNotConnected : watch_descriptor(connection, fd);
  if (status == kStatusOk) {
    connection->retry_after = kFirstRetry;
    return kStatusOk;
  }
  if (fd >= 0) {
    log_error("evm", "a managed connection cannot be watched: %s", err_text(status));
    run_close_handler(connection);
  }
  schedule_open(connection);
  return kStatusConnectionRetry;
}

}  // namespace

Status event_conn_create(EventManager* manager, EventConnOpen open, void* handle, std::uint32_t options,
                         EventConn** connection) {
  if (const Status status = fault_check("event_conn_create")) return status;
  if (manager == nullptr || open == nullptr || connection == nullptr) return kStatusInvalid;
  if (options != kEventConnRetries) return kStatusInvalid;
  *connection = std::make_unique<EventConn>(EventConn{manager, open, handle}).release();
  return kStatusOk;
}

Status event_conn_notify(EventConn* connection, std::uint32_t mask, EventConnClose close) {
  if (const Status status = fault_check("event_conn_notify")) return status;
  if (mask != kEventConnBoth || close == nullptr) return kStatusInvalid;
  connection->close = close;
  return kStatusOk;
}

Status event_conn_open(EventConn* connection) {
  if (const Status status = fault_check("event_conn_open")) {
    // kStatusConnectionRetry promises another attempt.
    if (status == kStatusConnectionRetry) schedule_open(connection);
    return status;
  }
  if (event_conn_is_open(connection)) return kStatusOk;
  event_timer_cancel(connection->manager, connection->retry_timer);
  connection->retry_timer = 0;
  return try_open(connection);
}

bool event_conn_is_open(const EventConn* connection) {
  return connection->watched_fd >= 0;
}

void event_conn_destroy(EventConn* connection) {
  if (connection == nullptr) return;
  event_timer_cancel(connection->manager, connection->retry_timer);
  stop_watching(connection);
  delete connection;
}

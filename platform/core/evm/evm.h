// Event manager: one event loop per manager. Waiting and dispatching are two calls, so that a thread can act
// between them.
//
// A manager has a name such as "/dev/mpls/vpn/main" and listens on the Unix socket of that name
// (event_manager_socket()); a service sets the acceptor of its connections. The manager uses one epoll
// instance, one eventfd for posted functions, one timer descriptor and a sorted list of one-shot timers.
//
// Thread: everything of a manager belongs to the thread that waits on it, except event_post, which any thread
// may call. Handlers run inside event_dispatch only. A handler may remove any descriptor or timer, its own
// too; an event already collected for a removed descriptor is dropped.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "platform/core/base/status.h"

struct EventManager;
struct EventConn;

// The caller's receive context. The caller owns the buffer; the manager keeps in it what a wait collected.
struct EventContext {
  EventManager* manager;
  void* buffer;
  std::size_t buffer_size;
  std::uint32_t collected;  // written by event_wait, consumed by event_dispatch
};

// Returns null and sets errno on failure: EINVAL for an invalid name, EADDRINUSE if a live process serves the
// socket (a stale socket is replaced), ENOTSOCK if another kind of file has the name (it is left alone), or
// the system's error. The socket has mode 0660. All values of the flags are accepted; there is one kind of
// manager. Fault point "event_manager_create" (its status becomes errno).
EventManager* event_manager_create(const char* name, std::uint32_t flags);
// For a process that ends without destroying its managers. Any thread; a file that is another process's
// stays.
void event_manager_remove_socket(const EventManager* manager);
// Removes the lock file of the run directory, unless another process has the lock.
void event_run_directory_unlock();
// The process that listens on the socket of this name, 0 if it cannot be seen from here; none if none
// listens.
std::optional<pid_t> event_manager_server(const char* name);
// Removes the socket. Not from within a handler. The callers destroy their managed connections before. Null
// is allowed.
void event_manager_destroy(EventManager* manager);
// Sets the function that is called for every new manager, on the creating thread: it starts the process's
// services on the main manager. Null removes it.
void event_manager_on_create(std::function<void(EventManager*)> hook);
const char* event_manager_name(const EventManager* manager);

// Blocks until there is something to dispatch. Returns 0, or -1 with errno: EINTR, or EINVAL for a buffer
// that cannot hold one event. The buffer bounds the number of events that one wait collects; the next wait
// collects the rest. Fault point "event_wait" (its status becomes errno).
int event_wait(EventContext* context);
// The same with a limit in real time: -1 and ETIMEDOUT if nothing happened.
int event_wait_for(EventContext* context, std::uint64_t nanoseconds);
void event_dispatch(EventContext* context);
// Waits for up to `nanoseconds` for a first event and dispatches until nothing is pending. Returns true iff
// anything was dispatched. For tests and small programs.
bool event_run_pending(EventManager* manager, std::uint64_t nanoseconds = 0);

// What the loop runs now: each descriptor, timer and deferred function is a step of its own, and has the
// number after that of the one before. `began` is a time of clock_monotonic(), for descriptors only. Within a
// dispatch, on the manager's thread.
struct EventStep {
  std::uint64_t number = 0;
  std::uint64_t began = 0;
};
EventStep event_step(const EventManager* manager);
// A deferred function ends at this time, which it has read: the loop need not read the clock again.
void event_ends_at(EventManager* manager, std::uint64_t now);

// An iteration of the loop (one dispatch, without the wait) is long from here on: others wait meanwhile.
inline constexpr std::uint64_t kLongIteration = 50'000'000;  // nanoseconds
struct EventStatistics {
  std::uint64_t long_iterations = 0;
  std::uint64_t longest = 0;        // nanoseconds; 0 without a long iteration
  std::uint64_t longest_stamp = 0;  // clock_stamp() at its end
};
EventStatistics event_statistics(const EventManager* manager);  // manager's thread only

// Descriptors, level-triggered without EPOLLET; `events` are EPOLLIN, EPOLLOUT, ... kStatusExists for one
// that is there already, else the system's errno. Fault point "event_fd_add".
using EventFdHandler = std::function<void(int fd, std::uint32_t events)>;
[[nodiscard]] Status event_fd_add(EventManager* manager, int fd, std::uint32_t events,
                                  EventFdHandler handler);
[[nodiscard]] Status event_fd_modify(EventManager* manager, int fd, std::uint32_t events);
void event_fd_remove(EventManager* manager, int fd);  // does not close; unknown descriptors are ignored

// Runs a function on the manager's thread, after everything posted before it. Any thread. Posted functions
// run in batches of bounded number and time, so that descriptors are served in between.
void event_post(EventManager* manager, std::function<void()> function);

// Ends the batch and begins the next one with this function: for a posted function in steps, whose end those
// after it await. Manager's thread only.
void event_post_first(EventManager* manager, std::function<void()> function);

// Runs a function once every descriptor and timer of the dispatch at hand has been served; for a caller that
// is itself deferred, or outside a dispatch, those of the next dispatch, before which no wait blocks.
// Manager's thread only. Those with an owner can be cancelled: they do not run.
void event_defer(EventManager* manager, std::function<void()> function, const void* owner = nullptr);
void event_defer_cancel(EventManager* manager, const void* owner);

// Asynchronous events: a number and its handler. Raises coalesce: however often an event is raised before its
// handler runs, the handler runs once, inside event_dispatch. If the handler raises its own event, it runs
// again in a later batch. Returns 0, or -1 with errno: EEXIST for a code in use, EINVAL without a
// handler. Fault point "event_async_attach" (its status becomes errno).
[[nodiscard]] int event_async_attach(EventManager* manager, std::uint32_t code,
                                     std::function<void()> handler);
// The handler no longer runs, not even for earlier raises; a later attachment of the code does not inherit
// them. A handler may detach itself. Codes that are not attached are ignored.
void event_async_detach(EventManager* manager, std::uint32_t code);
// Ignored for codes that are not attached.
void event_async_raise(EventManager* manager, std::uint32_t code);

// One-shot timers on the monotonic clock. Id 0 is never used.
using EventTimerId = std::uint64_t;
EventTimerId event_timer_start(EventManager* manager, std::uint64_t nanoseconds,
                               std::function<void()> function);
void event_timer_cancel(EventManager* manager, EventTimerId timer);

// Accepted connections of the named socket (non-blocking, close-on-exec; the acceptor owns the descriptor).
// Without an acceptor they are closed at once.
void event_set_acceptor(EventManager* manager, std::function<void(int fd)> acceptor);

// Managed connections: the manager opens them, notices their end and opens them again with back-off (100 ms,
// doubling, at most 5 s; from 100 ms again after an open that succeeded).
using EventConnOpen = int (*)(void* handle, EventManager* manager);  // descriptor, or -1
using EventConnClose = Status (*)(void* handle);
// The only option, to retry forever, and the only mask: after the end of a connection open again (0x2000) and
// call the close handler (0x4000).
inline constexpr std::uint32_t kEventConnRetries = 2;
inline constexpr std::uint32_t kEventConnBoth = 0x6000;
// kStatusInvalid for another option. Fault points "event_conn_create", "event_conn_notify",
// "event_conn_open".
[[nodiscard]] Status event_conn_create(EventManager* manager, EventConnOpen open, void* handle,
                                       std::uint32_t options, EventConn** connection);
// Sets the close handler. kStatusInvalid for another mask, or without a handler.
[[nodiscard]] Status event_conn_notify(EventConn* connection, std::uint32_t mask, EventConnClose close);
// Calls the open handler at once: 0 if it returned a descriptor (or the connection is open already),
// kStatusConnectionRetry if it did not and will be called again. The descriptor belongs to the handler's
// owner: the manager watches it for hang-up and errors only, then calls the close handler once and schedules
// the next open.
[[nodiscard]] Status event_conn_open(EventConn* connection);
bool event_conn_is_open(const EventConn* connection);
// Stops watching and retrying. The close handler is not called: the descriptor is the caller's. Null is
// allowed.
void event_conn_destroy(EventConn* connection);

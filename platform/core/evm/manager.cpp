// The event loop: waiting, dispatching, descriptors, posted functions and timers.
//
// A wait only collects epoll events into the caller's buffer; a dispatch runs their handlers, then the timers
// that are due. Between the two the caller may do anything, including removing descriptors: each event
// carries the descriptor and the generation of its registration, and an event of an older generation is
// dropped.
//
// A handler may remove itself or add others while it runs. Slots are therefore heap objects of their own (the
// table that holds them may grow) and a removed slot is only retired: it is freed when the outermost dispatch
// has ended.
//
// An iteration is bounded: the descriptors have a share of time, the timers another. What is left of either
// is first in the next iteration, before anything new, so that each has its turn however slow others are.
//
// Posted functions and the listening socket are ordinary descriptors of the loop. A post writes the eventfd
// only if the queue was empty; a batch that leaves functions in the queue writes it again, so that other
// descriptors are served in between. The queue's mutex is the only lock here and is never held while a
// function runs.
//
// Timers are ordered by deadline on the monotonic clock of platform/core/base/clock.h, which tests replace.
// The limit of event_wait_for is real time, so that a test with a frozen clock still returns. A wait without
// a limit blocks without a time-out, for which the kernel would set and cancel a timer each time: one timer
// descriptor is set whenever an earlier timer than before is the first.
#include "platform/core/evm/evm.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/evm/manager.h"

namespace {

std::function<void(EventManager*)>& create_hook() {
  static std::function<void(EventManager*)> hook;
  return hook;
}

bool valid_name(const char* name) {
  if (name == nullptr || name[0] != '/' || name[1] == '\0') return false;
  const std::string_view text(name);
  return text.back() != '/' && text.find("//") == std::string_view::npos &&
         text.find("..") == std::string_view::npos;
}

// 0 or errno.
int set_up(EventManager* manager) {
  manager->epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  if (manager->epoll_fd < 0) return errno;
  manager->wake_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (manager->wake_fd < 0) return errno;
  manager->timer_fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  if (manager->timer_fd < 0) return errno;
  if (const int error = event_listener_open(manager->name, &manager->listener)) return error;
  if (const Status status = event_slot_add(manager, manager->wake_fd, EPOLLIN,
                                           [manager](int, std::uint32_t) { event_posted_run(manager); })) {
    return static_cast<int>(status);
  }
  // Edge-triggered: an expiration needs no read.
  if (const Status status =
          event_slot_add(manager, manager->timer_fd, EPOLLIN | EPOLLET,
                         [manager](int, std::uint32_t) { manager->wake_deadline = UINT64_MAX; })) {
    return static_cast<int>(status);
  }
  return static_cast<int>(event_slot_add(manager, manager->listener.fd, EPOLLIN,
                                         [manager](int, std::uint32_t) { event_listener_accept(manager); }));
}

// The callers' messages do not have the error. The listener has reported its own.
void report_scarcity(int error, const char* name) {
  if (error != EMFILE && error != ENFILE && error != ENOMEM) return;
  log_error("evm", "%s cannot be created: %s: raise the limit (ulimit -n, LimitNOFILE=), then start again",
            name, std::strerror(error));
}

}  // namespace

EventManager* event_manager_create(const char* name, std::uint32_t /*flags*/) {
  if (const Status status = fault_check("event_manager_create")) {
    errno = static_cast<int>(status);
    return nullptr;
  }
  if (!valid_name(name)) {
    errno = EINVAL;
    return nullptr;
  }
  auto manager = std::make_unique<EventManager>();
  manager->name = name;
  if (const int error = set_up(manager.get())) {
    report_scarcity(error, name);
    event_manager_destroy(manager.release());
    errno = error;
    return nullptr;
  }
  EventManager* made = manager.release();
  if (create_hook()) create_hook()(made);
  return made;
}

void event_manager_destroy(EventManager* manager) {
  if (manager == nullptr) return;
  event_listener_close(&manager->listener);
  if (manager->timer_fd >= 0) close(manager->timer_fd);
  if (manager->wake_fd >= 0) close(manager->wake_fd);
  if (manager->epoll_fd >= 0) close(manager->epoll_fd);
  delete manager;
}

void event_manager_on_create(std::function<void(EventManager*)> hook) {
  create_hook() = std::move(hook);
}

const char* event_manager_name(const EventManager* manager) {
  return manager->name.c_str();
}

void event_set_acceptor(EventManager* manager, std::function<void(int fd)> acceptor) {
  manager->acceptor = std::move(acceptor);
}

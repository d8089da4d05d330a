// Shared by the source files of the event manager. Only for this folder.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/core/evm/evm.h"

// What a wait collected about a descriptor: its number and generation, and the epoll events.
struct EventReady {
  std::uint64_t key = 0;
  std::uint32_t events = 0;
};

// A watched descriptor. The generation distinguishes a new registration of the same number from an old one,
// whose events may still wait in a receive context.
struct EventSlot {
  EventFdHandler handler;
  std::uint32_t generation = 0;
};

// An attached asynchronous event.
struct EventAsync {
  std::function<void()> handler;
  bool raised = false;  // a run is posted
};

// A function that runs after the descriptors and timers; empty once it is cancelled.
struct EventDeferred {
  std::function<void()> function;
  const void* owner;
};

// A listening socket and the name it has in the file system.
struct EventListener {
  int fd = -1;
  int spare_fd = -1;  // closed for a moment if the process is out of descriptors
  std::string path;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
};

inline constexpr std::uint64_t kForever = UINT64_MAX;  // nanoseconds

struct EventManager {
  std::string name;
  int epoll_fd = -1;
  int wake_fd = -1;
  EventListener listener;
  std::function<void(int)> acceptor;

  std::vector<std::unique_ptr<EventSlot>> slots;  // by descriptor
  std::uint32_t next_generation = 1;
  std::vector<std::unique_ptr<EventSlot>>
      retired;                   // handlers that may be running; freed when dispatching ends
  std::deque<EventReady> ready;  // collected and not yet served
  unsigned dispatch_depth = 0;
  EventStatistics statistics;
  EventStep step;
  std::uint64_t end = 0;  // of the deferred function that ran last, if it is known

  using TimerKey = std::pair<std::uint64_t, EventTimerId>;  // deadline, id: equal deadlines in starting order
  std::map<TimerKey, std::function<void()>> timers;
  std::unordered_map<EventTimerId, std::uint64_t> timer_deadlines;
  EventTimerId next_timer = 1;
  int timer_fd = -1;
  std::uint64_t wake_deadline = UINT64_MAX;  // for which timer_fd is set

  std::mutex posted_mutex;
  std::deque<std::function<void()>> posted;  // guarded by posted_mutex
  bool batch_ends = false;                   // a function is to begin the next batch

  std::vector<EventDeferred> deferred;
  // Of the dispatch at hand, and of those around it.
  std::vector<std::vector<EventDeferred>*> running_deferred;

  std::map<std::uint32_t, EventAsync> async_events;
};

// Counts the iteration that it lives for, unless it is part of another one.
class EventIteration {
 public:
  explicit EventIteration(EventManager* manager);
  ~EventIteration();
  std::uint64_t start() const { return start_; }
  EventIteration(const EventIteration&) = delete;
  EventIteration& operator=(const EventIteration&) = delete;

 private:
  EventManager* manager_;
  std::uint64_t start_;
};

// Opens the manager's socket. Returns 0 or an errno value; a failure leaves no socket and no descriptor.
int event_listener_open(const std::string& manager_name, EventListener* listener);
void event_listener_close(EventListener* listener);
// Hands the waiting connections to the manager's acceptor, at most a batch.
void event_listener_accept(EventManager* manager);
// event_fd_add without its fault point.
Status event_slot_add(EventManager* manager, int fd, std::uint32_t events, EventFdHandler handler);
// Null for a descriptor that is not watched.
inline EventSlot* event_slot_find(const EventManager* manager, int fd) {
  if (fd < 0 || static_cast<std::size_t>(fd) >= manager->slots.size()) return nullptr;
  return manager->slots[static_cast<std::size_t>(fd)].get();
}
// Adds what the wait collected to what earlier dispatches have left.
void event_collected_take(EventContext* context);
// Runs the timers that were due when the dispatch began, for their share of its time.
void event_timers_run_due(EventManager* manager, std::uint64_t start);
// Runs a batch of the posted functions.
void event_posted_run(EventManager* manager);

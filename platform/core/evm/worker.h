// Runs functions one after the other on a thread of its own, for work that would delay the event loop:
// long computations, and writes that wait for the disk.
//
// The work must not use what the loop changes meanwhile. Where no thread can be started, the work runs at
// once, in the caller. Everything but the work itself belongs to the manager's thread.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

class EventWorker {
 public:
  // The manager must outlive the worker.
  explicit EventWorker(EventManager* manager) : manager_(manager) {}
  // Waits for the work that runs. What has not begun is dropped, as are the `done` functions.
  ~EventWorker();
  EventWorker(const EventWorker&) = delete;
  EventWorker& operator=(const EventWorker&) = delete;

  EventManager* manager() const { return manager_; }
  // Runs `work` on the thread, after what was given before, and then `done` on the manager's loop, never in
  // this call. The work is destroyed on the thread. Fault point "event_worker" (no thread can be started).
  void run(std::function<void()> work, std::function<void()> done);
  // Waits until all work is done, and calls the `done` functions.
  void finish();
  // Whether a `done` function has still to be called.
  bool is_busy() const { return given_ > 0; }

 private:
  struct Task {
    std::function<void()> work;
    std::function<void()> done;
  };
  Status start_thread();
  void serve();
  void complete(std::function<void()> done);
  void call_completed();

  EventManager* const manager_;
  std::size_t given_ = 0;  // tasks whose `done` was not called
  std::shared_ptr<EventWorker*> self_ = std::make_shared<EventWorker*>(this);
  std::mutex mutex_;  // of what follows
  std::condition_variable changed_;
  std::deque<Task> tasks_;
  std::deque<std::function<void()>> completed_;
  bool is_working_ = false;
  bool is_ending_ = false;
  std::thread thread_;
};

// For every thread but the main one, which receives the process's signals.
void block_signals_of_thread();

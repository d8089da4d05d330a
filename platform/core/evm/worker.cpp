// The thread starts with the first work and ends with the worker. It posts one function per completed task,
// which finds nothing to call if finish() was quicker.
#include "platform/core/evm/worker.h"

#include <csignal>

#include <system_error>
#include <utility>

#include "platform/core/base/fault.h"

void block_signals_of_thread() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

EventWorker::~EventWorker() {
  {
    const std::lock_guard lock(mutex_);
    is_ending_ = true;
    tasks_.clear();
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void EventWorker::run(std::function<void()> work, std::function<void()> done) {
  ++given_;
  if (!thread_.joinable() && start_thread() != kStatusOk) {
    work();
    return complete(std::move(done));
  }
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back({std::move(work), std::move(done)});
  }
  changed_.notify_all();
}

Status EventWorker::start_thread() {
  if (const Status status = fault_check("event_worker")) return status;
  try {
    thread_ = std::thread([this] {
      block_signals_of_thread();
      serve();
    });
  } catch (const std::system_error& failure) {
    return static_cast<Status>(failure.code().value());
  }
  return kStatusOk;
}

void EventWorker::serve() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return is_ending_ || !tasks_.empty(); });
    if (is_ending_) return;
    Task task = std::move(tasks_.front());
    tasks_.pop_front();
    is_working_ = true;
    lock.unlock();
    task.work();
    task.work = nullptr;
    complete(std::move(task.done));
    lock.lock();
    is_working_ = false;
    changed_.notify_all();
  }
}

void EventWorker::complete(std::function<void()> done) {
  {
    const std::lock_guard lock(mutex_);
    completed_.push_back(std::move(done));
  }
  event_post(manager_, [weak = std::weak_ptr(self_)] {
    EventWorker* const worker = weak.expired() ? nullptr : *weak.lock();
    if (worker != nullptr) worker->call_completed();
  });
}

// A function may destroy the worker, or give it more to do.
void EventWorker::call_completed() {
  const std::weak_ptr<EventWorker*> alive = self_;
  while (!alive.expired()) {
    std::function<void()> done;
    {
      const std::lock_guard lock(mutex_);
      if (completed_.empty()) return;
      done = std::move(completed_.front());
      completed_.pop_front();
    }
    --given_;
    done();
  }
}

void EventWorker::finish() {
  const std::weak_ptr<EventWorker*> alive = self_;
  while (!alive.expired() && is_busy()) {
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return tasks_.empty() && !is_working_; });
    }
    call_completed();
  }
}

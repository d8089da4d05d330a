// The debug service of one event manager: answers list, set and watch on the manager's socket and sends
// prints to its watchers.
//
// Thread: start, stop and everything that is private belong to the manager's thread; the rest may be called
// from any. Prints from other threads wait in a bounded queue for the manager's thread.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/core/debug/debug_client.h"
#include "platform/core/debug/protocol.h"
#include "platform/core/wire/wire.h"

namespace debug_detail {

// The registered flags, in their order. Any thread.
std::vector<DebugFlagState> list_flags();
// Switches one flag by command name, or "all". kStatusNoSuchRow. Any thread.
[[nodiscard]] Status switch_flags(std::string_view name, bool on);

class Service : public std::enable_shared_from_this<Service> {
 public:
  explicit Service(EventManager* manager) : manager_(manager) {}

  // Both may be called from any thread and take effect on the manager's: begin by a posted function, end at
  // once when the caller is that thread, else by a posted function. REQUIRES for end: the manager still
  // exists.
  void begin();
  void end();

  bool is_watched() const { return watcher_count_.load(std::memory_order_relaxed) != 0; }
  // Sends a print to every watcher. Never blocks; what does not fit is counted.
  void print(std::string flag, std::string text);

 private:
  struct Print {
    std::string flag;
    std::string text;
  };

  void start();
  void stop();
  bool on_message(wire::Connection& client, const wire::Message& message);
  void answer_list(wire::Connection& client, std::uint32_t request);
  void answer_clients(wire::Connection& client, std::uint32_t request);
  void deliver();
  void deliver_to(wire::Connection& client, std::uint64_t& dropped, const Print& print);
  void report_dropped();
  void schedule_report();

  EventManager* manager_;
  std::mutex mutex_;  // guards the queue below
  std::deque<Print> pending_;
  std::uint64_t pending_dropped_ = 0;
  bool delivery_posted_ = false;
  std::atomic<std::thread::id> thread_{};  // the manager's, once begun
  std::atomic<unsigned> watcher_count_{0};
  std::map<std::uint64_t, std::uint64_t> watchers_;  // client id; prints dropped and not yet reported
  EventTimerId report_timer_ = 0;
  std::unique_ptr<wire::Server> server_;
};

}  // namespace debug_detail

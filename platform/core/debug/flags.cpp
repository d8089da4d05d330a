// Flags and prints: the half of the debug facility that the daemon calls. The service on the socket is
// service.cpp.
//
// A print is written to standard error, to a test's capture, and to the flag's service if it has a watcher;
// it waits for none of them. A flag that is not registered prints to standard error only. Prints beyond a
// number in a period are dropped before they cost anything, and counted: an operator who switches everything
// on must not take the daemon from its clients.
#include "platform/core/debug/debug.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/standard_error.h"
#include "platform/core/debug/service.h"

namespace {

std::mutex capture_mutex;
std::string* captured_lines = nullptr;

// "prov,errors" names prov and errors; "all" names everything.
bool list_names(std::string_view list, std::string_view name) {
  while (!list.empty()) {
    const std::size_t comma = list.find(',');
    const std::string_view one = list.substr(0, comma);
    if (one == name || one == "all") return true;
    list = comma == std::string_view::npos ? std::string_view{} : list.substr(comma + 1);
  }
  return false;
}

struct Registry {
  std::mutex mutex;  // guards the members
  std::string name_space;
  std::span<DebugFlag> flags;
  std::shared_ptr<debug_detail::Service> service;  // null while nothing is registered
};

// Never destroyed: the thread of the debug event manager may still serve a client while the process ends.
Registry& registry() {
  static auto& the_registry = *new Registry;
  return the_registry;
}

void switch_flag(DebugFlag* flag, bool on) {
  const std::uint32_t enabled = flag->value != 0 ? flag->value : 1;
  flag->enabled.store(on ? enabled : 0, std::memory_order_relaxed);
}

// The service of a registered flag, or null.
std::shared_ptr<debug_detail::Service> service_of(const DebugFlag& flag) {
  const std::less<> before;
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  const bool is_registered =
      !before(&flag, all.flags.data()) && before(&flag, all.flags.data() + all.flags.size());
  return is_registered ? all.service : nullptr;
}

bool are_prepared(const DebugFlag* flags, std::uint32_t count) {
  return flags != nullptr && count != 0 && std::all_of(flags, flags + count, [](const DebugFlag& flag) {
           return flag.command_name != nullptr;
         });
}

bool is_captured() {
  const std::lock_guard lock(capture_mutex);
  return captured_lines != nullptr;
}

void capture(const std::string& line) {
  const std::lock_guard lock(capture_mutex);
  if (captured_lines != nullptr) *captured_lines += line + '\n';
}

// The prints of the current period. Any thread.
class Budget {
 public:
  // False: this print is dropped. Else *dropped is the number of prints that were dropped and not reported.
  bool take(std::uint64_t* dropped) {
    const std::lock_guard lock(mutex_);
    if (!has_prints()) {
      ++dropped_;
      return false;
    }
    ++used_;
    *dropped = std::exchange(dropped_, 0);
    return true;
  }

  bool is_used_up() {
    const std::lock_guard lock(mutex_);
    return !has_prints();
  }

 private:
  // Call with the mutex locked.
  bool has_prints() {
    const std::uint64_t now = clock_monotonic();
    if (now - began_ >= debug_detail::kPrintPeriod * kNanosecondsPerSecond) {
      began_ = now;
      used_ = 0;
    }
    return used_ < debug_detail::kMostPrints;
  }

  std::mutex mutex_;
  std::uint64_t began_ = 0;
  std::uint64_t used_ = 0;
  std::uint64_t dropped_ = 0;
};

Budget& budget() {
  static auto& the_budget = *new Budget;  // never destroyed, as the registry
  return the_budget;
}

void print(const DebugFlag& flag, std::string line) {
  write_error_line(line);
  capture(line);
  const std::shared_ptr<debug_detail::Service> service = service_of(flag);
  if (service != nullptr && service->is_watched()) service->print(flag.command_name, std::move(line));
}

// Whether a print is made; reports those that were not.
bool may_print(const DebugFlag& flag) {
  if (is_captured()) return true;
  std::uint64_t dropped = 0;
  if (!budget().take(&dropped)) return false;
  if (dropped != 0) {
    print(flag, "debug: " + std::to_string(dropped) + " prints were dropped, more than " +
                    std::to_string(debug_detail::kMostPrints) + " in " +
                    std::to_string(debug_detail::kPrintPeriod) + " s");
  }
  return true;
}

}  // namespace

namespace debug_detail {

std::vector<DebugFlagState> list_flags() {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  std::vector<DebugFlagState> states;
  for (const DebugFlag& flag : all.flags)
    states.push_back({all.name_space, flag.command_name, debug_enabled(flag)});
  return states;
}

Status switch_flags(std::string_view name, bool on) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  Status status = kStatusNoSuchRow;
  for (DebugFlag& flag : all.flags) {
    if (name != "all" && name != flag.command_name) continue;
    switch_flag(&flag, on);
    status = kStatusOk;
  }
  return status;
}

}  // namespace debug_detail

Status debug_init_event(DebugFlag* flag, DebugFlag* flags, std::uint32_t index, std::uint32_t kind,
                        const char* command_name, std::uint32_t value) {
  if (Status s = fault_check("debug_init_event")) return s;
  if (flags == nullptr || flag != flags + index) return kStatusInvalid;
  if (command_name == nullptr || *command_name == '\0') return kStatusInvalid;
  flag->enabled.store(0, std::memory_order_relaxed);
  flag->index = index;
  flag->kind = kind;
  flag->value = value;
  flag->command_name = command_name;
  return kStatusOk;
}

Status debug_register(const char* name_space, DebugFlag* flags, std::uint32_t count, EventManager* manager) {
  if (Status s = fault_check("debug_register")) return s;
  if (name_space == nullptr || *name_space == '\0' || manager == nullptr) return kStatusInvalid;
  if (!are_prepared(flags, count)) return kStatusInvalid;
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  if (all.service != nullptr) return kStatusExists;
  all.name_space = name_space;
  all.flags = {flags, count};
  all.service = std::make_shared<debug_detail::Service>(manager);
  const char* const names = std::getenv("MPLS_VPN_MIB_DEBUG");
  for (DebugFlag& flag : all.flags) {
    if (names != nullptr && list_names(names, flag.command_name)) switch_flag(&flag, true);
  }
  all.service->begin();
  return kStatusOk;
}

Status debug_cleanup(const char* name_space) {
  Registry& all = registry();
  std::shared_ptr<debug_detail::Service> service;
  {
    const std::lock_guard lock(all.mutex);
    if (name_space == nullptr || all.service == nullptr || all.name_space != name_space)
      return kStatusNoSuchRow;
    for (DebugFlag& flag : all.flags) switch_flag(&flag, false);
    all.flags = {};
    service = std::move(all.service);
  }
  service->end();
  return kStatusOk;
}

void debug_printf(const DebugFlag& flag, const char* format, ...) {
  if (!may_print(flag)) return;
  std::array<char, debug_detail::kMaxPrint> buffer{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
  va_end(arguments);
  std::string line(buffer.data());
  if (line.ends_with('\n')) line.pop_back();
  print(flag, std::move(line));
}

bool debug_prints_are_dropped() {
  return !is_captured() && budget().is_used_up();
}

void debug_capture(std::string* lines) {
  const std::lock_guard lock(capture_mutex);
  captured_lines = lines;
}

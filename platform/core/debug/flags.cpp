// Flags and prints: the half of the debug facility that the daemon calls. The registry of name spaces is
// registry.cpp, the service on the socket service.cpp.
//
// A print is written to standard error, to a test's capture, and to the flag's service if it has a watcher;
// it waits for none of them. A flag that is not registered prints to standard error only.
#include "platform/core/debug/debug.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>

#include "platform/core/base/fault.h"
#include "platform/core/base/standard_error.h"
#include "platform/core/debug/registry.h"
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

void switch_on_from_environment(const debug_detail::Service* service, const DebugFlag* flags,
                                std::uint32_t count) {
  const char* list = std::getenv("MPLS_VPN_MIB_DEBUG");
  if (list == nullptr) return;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!list_names(list, flags[i].command_name)) continue;
    // The flag was registered a moment ago, so that it is found.
    [[maybe_unused]] const Status found = debug_detail::switch_flags(service, flags[i].command_name, true);
  }
}

bool are_prepared(const DebugFlag* flags, std::uint32_t count) {
  return flags != nullptr && count != 0 && std::all_of(flags, flags + count, [](const DebugFlag& flag) {
           return flag.command_name != nullptr;
         });
}

void capture(const std::string& line) {
  const std::lock_guard lock(capture_mutex);
  if (captured_lines != nullptr) *captured_lines += line + '\n';
}

}  // namespace

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
  const auto fresh = std::make_shared<debug_detail::Service>(manager);
  std::shared_ptr<debug_detail::Service> service;
  if (Status s = debug_detail::add_name_space({name_space, flags, count, manager, fresh}, &service)) return s;
  switch_on_from_environment(service.get(), flags, count);
  if (service == fresh) service->begin();
  return kStatusOk;
}

Status debug_cleanup(const char* name_space) {
  if (name_space == nullptr) return kStatusNoSuchRow;
  std::shared_ptr<debug_detail::Service> last;
  if (Status s = debug_detail::remove_name_space(name_space, &last)) return s;
  if (last != nullptr) last->end();
  return kStatusOk;
}

void debug_printf(const DebugFlag& flag, const char* format, ...) {
  std::array<char, debug_detail::kMaxPrint> buffer{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
  va_end(arguments);
  std::string line(buffer.data());
  if (line.ends_with('\n')) line.pop_back();
  write_error_line(line);
  capture(line);
  const std::shared_ptr<debug_detail::Service> service = debug_detail::service_of(flag);
  if (service != nullptr && service->is_watched()) service->print(flag.command_name, std::move(line));
}

void debug_capture(std::string* lines) {
  const std::lock_guard lock(capture_mutex);
  captured_lines = lines;
}

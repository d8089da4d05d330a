// Few name spaces: a vector is searched.
//
// The registry is never destroyed: the thread of a debug event manager may still serve a client while the
// process ends.
#include "platform/core/debug/registry.h"

#include <algorithm>
#include <functional>
#include <mutex>

namespace debug_detail {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<NameSpace> name_spaces;
};

Registry& registry() {
  static auto& the_registry = *new Registry;
  return the_registry;
}

bool holds(const NameSpace& name_space, const DebugFlag& flag) {
  const std::less<> before;
  return !before(&flag, name_space.flags) && before(&flag, name_space.flags + name_space.count);
}

void switch_flag(DebugFlag* flag, bool on) {
  const std::uint32_t enabled = flag->value != 0 ? flag->value : 1;
  flag->enabled.store(on ? enabled : 0, std::memory_order_relaxed);
}

bool is_used(const Registry& all, const std::shared_ptr<Service>& service) {
  return std::any_of(all.name_spaces.begin(), all.name_spaces.end(),
                     [&](const NameSpace& one) { return one.service == service; });
}

}  // namespace

Status add_name_space(NameSpace added, std::shared_ptr<Service>* service) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  for (const NameSpace& one : all.name_spaces) {
    if (one.name == added.name) return kStatusExists;
    if (one.manager == added.manager) added.service = one.service;
  }
  *service = added.service;
  all.name_spaces.push_back(std::move(added));
  return kStatusOk;
}

Status remove_name_space(std::string_view name, std::shared_ptr<Service>* last) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  const auto found = std::find_if(all.name_spaces.begin(), all.name_spaces.end(),
                                  [&](const NameSpace& one) { return one.name == name; });
  if (found == all.name_spaces.end()) return kStatusNoSuchRow;
  for (std::uint32_t i = 0; i < found->count; ++i) switch_flag(&found->flags[i], false);
  const std::shared_ptr<Service> service = std::move(found->service);
  all.name_spaces.erase(found);
  if (!is_used(all, service)) *last = service;
  return kStatusOk;
}

std::vector<DebugFlagState> list_flags(const Service* service) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  std::vector<DebugFlagState> flags;
  for (const NameSpace& one : all.name_spaces) {
    if (one.service.get() != service) continue;
    for (std::uint32_t i = 0; i < one.count; ++i) {
      flags.push_back({one.name, one.flags[i].command_name, debug_enabled(one.flags[i])});
    }
  }
  return flags;
}

Status switch_flags(const Service* service, std::string_view name, bool on) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  Status status = kStatusNoSuchRow;
  for (const NameSpace& one : all.name_spaces) {
    if (one.service.get() != service) continue;
    for (std::uint32_t i = 0; i < one.count; ++i) {
      if (name != "all" && name != one.flags[i].command_name) continue;
      switch_flag(&one.flags[i], on);
      status = kStatusOk;
    }
  }
  return status;
}

std::shared_ptr<Service> service_of(const DebugFlag& flag) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  const auto found = std::find_if(all.name_spaces.begin(), all.name_spaces.end(),
                                  [&](const NameSpace& one) { return holds(one, flag); });
  return found == all.name_spaces.end() ? nullptr : found->service;
}

}  // namespace debug_detail

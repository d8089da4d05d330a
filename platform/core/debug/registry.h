// The flag blocks of the process, by name space. Every function may be called from any thread; the registry's
// one mutex is held inside them and never while anything else is called.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/debug/debug.h"
#include "platform/core/debug/debug_client.h"

namespace debug_detail {

class Service;

struct NameSpace {
  std::string name;
  DebugFlag* flags;
  std::uint32_t count;
  EventManager* manager;
  std::shared_ptr<Service> service;  // shared by the name spaces of one manager
};

// Adds a name space; a manager's first one gets the given service, later ones share that. *service is the one
// in use. kStatusExists.
[[nodiscard]] Status add_name_space(NameSpace added, std::shared_ptr<Service>* service);
// Removes a name space and switches its flags off. *last is set to the service if it was its last name
// space. kStatusNoSuchRow.
[[nodiscard]] Status remove_name_space(std::string_view name, std::shared_ptr<Service>* last);

// The flags that this service serves.
std::vector<DebugFlagState> list_flags(const Service* service);
// Switches one flag by command name, or "all". kStatusNoSuchRow.
[[nodiscard]] Status switch_flags(const Service* service, std::string_view name, bool on);
// The service of a registered flag, or null.
std::shared_ptr<Service> service_of(const DebugFlag& flag);

}  // namespace debug_detail

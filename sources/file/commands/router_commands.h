// The commands of the action "router", as a table.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/actions.h"
#include "platform/store/tree/kvtree.h"

struct RouterCommandContext {
  router::Router* model;
  const std::function<void(KvActionEnd)>& reload;
  const KvActionEnd& end;                     // of a reload
  const std::vector<std::string>& arguments;  // the words after the command
  KvSteps* steps;                             // of "show"; may be null
  std::string* text;                          // the answer
};

struct RouterCommand {
  const char* word;
  const char* arguments;  // as the help shows them; empty for none
  const char* help;
  bool changes;
  std::size_t least_arguments;
  std::size_t most_arguments;
  Status (*run)(const RouterCommandContext& context);
};

inline constexpr std::size_t kAnyNumberOfArguments = static_cast<std::size_t>(-1);

// In the order of the help.
const std::vector<RouterCommand>& router_commands();

// The command "show": everything (bounded), one VRF with its interfaces, or one interface. In steps.
Status router_show(const RouterCommandContext& context);

// The commands "add-route" and "delete-route".
Status router_add_route(const RouterCommandContext& context);
Status router_delete_route(const RouterCommandContext& context);

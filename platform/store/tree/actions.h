// Actions: commands of the process itself (not of the daemon) that change something, such as those of a
// source ("router/..."). They take words and return text for the user.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

using KvActionEnd = std::function<void(Status, const std::string& text)>;
struct KvActionContext {
  bool may_change;  // the peer is root, the process's own user, or in the administrators' group
  // For an action that takes long: it returns kStatusInProgress, and calls this once on the main thread with
  // its result when it has one. Null if no user waits.
  KvActionEnd end{};
  // For an action that answers in steps, as a handler does: null if the result has to be complete.
  KvSteps* steps = nullptr;
};
using KvAction = Status (*)(const KvActionContext&, const std::vector<std::string>& words, std::string* text,
                            void* argument);
// kStatusExists for a name that is taken, kStatusInvalid for an empty name or no action.
[[nodiscard]] Status kvtree_register_action(const char* name, KvAction action, void* argument);
void kvtree_unregister_action(const char* name);

// kStatusUnknownPath for an unregistered action, kStatusInvalid without words, or the action's status:
// kStatusInProgress if it calls `context.end` later (or has called it already), or kStatusUnfinished.
[[nodiscard]] Status kvtree_run_action(const KvActionContext& context, const std::vector<std::string>& words,
                                       std::string* text);

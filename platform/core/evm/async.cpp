// Asynchronous events of a manager: numbered, run once for any number of raises.
//
// A raise marks the event and posts one run; further raises of a marked event have no effect. The run clears
// the mark before it calls the handler, so that a raise during the handler is not lost. The run of an event
// that was detached meanwhile finds no mark, also if the code is attached again.
#include <cerrno>

#include "platform/core/base/fault.h"
#include "platform/core/evm/manager.h"

namespace {

int refuse(int error) {
  errno = error;
  return -1;
}

void run_raised(EventManager* manager, std::uint32_t code) {
  const auto found = manager->async_events.find(code);
  if (found == manager->async_events.end() || !found->second.raised) return;
  found->second.raised = false;
  const std::function<void()> handler = found->second.handler;  // it may detach itself
  handler();
}

}  // namespace

int event_async_attach(EventManager* manager, std::uint32_t code, std::function<void()> handler) {
  if (const Status status = fault_check("event_async_attach")) return refuse(static_cast<int>(status));
  if (!handler) return refuse(EINVAL);
  return manager->async_events.try_emplace(code, EventAsync{std::move(handler)}).second ? 0 : refuse(EEXIST);
}

void event_async_detach(EventManager* manager, std::uint32_t code) {
  manager->async_events.erase(code);
}

void event_async_raise(EventManager* manager, std::uint32_t code) {
  const auto found = manager->async_events.find(code);
  if (found == manager->async_events.end() || found->second.raised) return;
  found->second.raised = true;
  event_post(manager, [manager, code] { run_raised(manager, code); });
}

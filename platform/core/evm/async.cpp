// Asynchronous events of a manager: numbered, raised from any thread, run once for any number of raises.
//
// The table of attachments is guarded by a mutex of its own, because a raise may come from any thread. A
// raise marks the event and posts one run; raises of a marked event do nothing more. The run takes the mark
// away before it calls the handler, so that a raise during the handler is not lost.
//
// Neither mutex is held while a handler runs, and a handler may detach its own event: the run shares the
// handler's ownership until it returns. A posted run knows the attachment it belongs to, which is how a run
// of an event that was detached meanwhile finds nothing to do.
#include <cerrno>

#include "platform/core/base/fault.h"
#include "platform/core/evm/manager.h"

namespace {

using Handler = std::shared_ptr<const std::function<void()>>;

// The handler to run for this attachment, whose mark is taken away; null when it is gone.
Handler take_raised(EventManager* manager, std::uint32_t code, std::uint64_t attachment) {
  const std::lock_guard lock(manager->async_mutex);
  const auto found = manager->async_events.find(code);
  if (found == manager->async_events.end() || found->second.attachment != attachment) return nullptr;
  found->second.raised = false;
  return found->second.handler;
}

int refuse(int error) {
  errno = error;
  return -1;
}

}  // namespace

int event_async_attach(EventManager* manager, std::uint32_t code, std::function<void()> handler) {
  if (const Status status = fault_check("event_async_attach")) return refuse(static_cast<int>(status));
  if (!handler) return refuse(EINVAL);
  auto shared = std::make_shared<const std::function<void()>>(std::move(handler));
  const std::lock_guard lock(manager->async_mutex);
  const auto [place, added] = manager->async_events.try_emplace(code);
  if (!added) return refuse(EEXIST);
  place->second.handler = std::move(shared);
  place->second.attachment = manager->next_attachment++;
  return 0;
}

void event_async_detach(EventManager* manager, std::uint32_t code) {
  Handler last;  // what the handler holds is released after the lock
  const std::lock_guard lock(manager->async_mutex);
  const auto found = manager->async_events.find(code);
  if (found == manager->async_events.end()) return;
  last = std::move(found->second.handler);
  manager->async_events.erase(found);
}

void event_async_raise(EventManager* manager, std::uint32_t code) {
  const std::lock_guard lock(manager->async_mutex);
  const auto found = manager->async_events.find(code);
  if (found == manager->async_events.end() || found->second.raised) return;
  found->second.raised = true;
  event_post(manager, [manager, code, attachment = found->second.attachment] {
    if (const Handler handler = take_raised(manager, code, attachment)) (*handler)();
  });
}

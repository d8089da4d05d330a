// Asynchronous events of a manager: numbered, raised from any thread, run once for any number of raises.
//
// A mutex guards the table of attachments, because any thread may raise an event. A raise marks the event and
// posts one run; further raises of a marked event have no effect. The run clears the mark before it calls the
// handler, so that a raise during the handler is not lost.
//
// No mutex is held while a handler runs, and a handler may detach its own event: the run shares ownership of
// the handler until it returns. A posted run stores the attachment that it belongs to, so it does nothing if
// the event was detached meanwhile.
#include <cerrno>

#include "platform/core/base/fault.h"
#include "platform/core/evm/manager.h"

namespace {

using Handler = std::shared_ptr<const std::function<void()>>;

// Clears the mark of this attachment and returns its handler; null if the event was detached.
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

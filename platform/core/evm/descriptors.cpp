#include <sys/epoll.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/evm/manager.h"

namespace {

std::uint64_t event_key(int fd, std::uint32_t generation) {
  return std::uint64_t{generation} << 32 | static_cast<std::uint32_t>(fd);
}

// The handler may be the one that runs now, so it lives on until dispatching ends.
void retire_slot(EventManager* manager, int fd) {
  std::unique_ptr<EventSlot>& slot = manager->slots[static_cast<std::size_t>(fd)];
  if (manager->dispatch_depth > 0) manager->retired.push_back(std::move(slot));
  slot.reset();
}

}  // namespace

Status event_slot_add(EventManager* manager, int fd, std::uint32_t events, EventFdHandler handler) {
  auto slot = std::make_unique<EventSlot>();
  slot->handler = std::move(handler);
  slot->generation = manager->next_generation++;
  epoll_event event{};
  event.events = events;
  event.data.u64 = event_key(fd, slot->generation);
  if (epoll_ctl(manager->epoll_fd, EPOLL_CTL_ADD, fd, &event) != 0) return static_cast<Status>(errno);
  const auto index = static_cast<std::size_t>(fd);
  if (index >= manager->slots.size()) manager->slots.resize(index + 1);
  retire_slot(manager, fd);  // of a descriptor that was closed without being removed
  manager->slots[index] = std::move(slot);
  return kStatusOk;
}

Status event_fd_add(EventManager* manager, int fd, std::uint32_t events, EventFdHandler handler) {
  if (const Status status = fault_check("event_fd_add")) return status;
  return event_slot_add(manager, fd, events, std::move(handler));
}

Status event_fd_modify(EventManager* manager, int fd, std::uint32_t events) {
  const EventSlot* slot = event_slot_find(manager, fd);
  if (slot == nullptr) return kStatusNoSuchRow;
  epoll_event event{};
  event.events = events;
  event.data.u64 = event_key(fd, slot->generation);
  if (epoll_ctl(manager->epoll_fd, EPOLL_CTL_MOD, fd, &event) != 0) return static_cast<Status>(errno);
  return kStatusOk;
}

void event_fd_remove(EventManager* manager, int fd) {
  if (event_slot_find(manager, fd) == nullptr) return;
  // A descriptor that was closed first has left the epoll set already.
  epoll_ctl(manager->epoll_fd, EPOLL_CTL_DEL, fd, nullptr);
  retire_slot(manager, fd);
}

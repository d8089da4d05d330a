// Delivery of record events to the client, and the accesses that its callbacks make.
//
// Events wait in one queue, in the order of the changes. A function posted on the client's event manager
// delivers a bounded number and posts itself again while some are left. The event being delivered stays at
// the front of the queue, so that the callback's begin-access finds it as the oldest one of its name.
//
// An event is over when its callback has returned, whether or not the callback made its access; an access
// that the callback left open (because its end failed) is closed here, so that no record stays locked. A
// begin-access outside a callback takes the oldest event of the name; its callback is then not called.
//
// An interface that goes down is down for the look-ups before the callback runs, and one that comes up is up
// after it: whoever asks inside the callback what else is up does not find the interface itself, in either
// case. One that goes down in one family and comes up in the other at once was up and stays up, and is shown
// as it was until after the callback.
//
// The membership service has a queue of its own; before each event, older ones there are delivered, and it
// does the same (vmap.h). Clients ask for names as they are at present, so what both have queued is delivered
// before an interface gets another name, and again when it has it.
//
// vtab_end_client may be called from inside a callback: the generation number tells.
#include <utility>

#include "platform/core/base/log.h"
#include "platform/router/vmap/vmap.h"
#include "platform/router/vtab/service.h"

namespace vtab {
namespace {

constexpr int kBatch = 40;

}  // namespace

void Service::queue(Event event) {
  events_.push_back(std::move(event));
  if (events_.size() == 1) post_delivery();
}

void Service::post_delivery() {
  event_post(client.manager, [this, generation = generation_] { run_delivery(generation); });
}

std::uint64_t Service::oldest_turn() const {
  return events_.empty() ? kVmapNoTurn : events_.front().turn;
}

void Service::run_delivery(std::uint64_t generation) {
  for (int count = 0; count < kBatch && generation == generation_ && !events_.empty(); ++count) {
    if (vmap_oldest_turn() < oldest_turn()) {
      vmap_deliver_oldest();
    } else {
      deliver_front();
    }
  }
  if (generation == generation_ && !events_.empty()) post_delivery();
}

// All of both services at once; clients may end meanwhile.
void Service::names_change() {
  while (!events_.empty() || vmap_oldest_turn() != kVmapNoTurn) {
    if (vmap_oldest_turn() < oldest_turn()) {
      vmap_deliver_oldest();
    } else {
      deliver_front();
    }
  }
}

// The callback's status is its own report of what it has already logged. Its names are copied, because a
// callback that ends the client takes the event with it.
void Service::call_back(const Event& event) {
  vrf_in_callback = nullptr;
  interface_in_callback = nullptr;
  if (event.was_taken) return;
  if (event.is_vrf && client.vrf_callback != nullptr) {
    const std::string name = event.node->vrf_name;
    static_cast<void>(client.vrf_callback(name.c_str()));
  } else if (!event.is_vrf && event.change.is_one() && client.if_callback != nullptr) {
    const std::string name = event.interface->known_name;
    const std::string vrf = event.vrf_name;
    static_cast<void>(client.if_callback(name.c_str(), vrf.c_str()));
  }
}

void Service::deliver_front() {
  const std::uint64_t generation = generation_;
  const Event& event = events_.front();
  if (event.is_of_state() && !event.change.has_up()) show_downs(event.interface, event.to);
  call_back(event);
  if (generation != generation_) return;
  close_left_accesses();
  Event over = std::move(events_.front());
  events_.pop_front();
  settle(std::move(over));
}

// What an event leaves behind, whether or not anybody was told.
void Service::settle(Event event) {
  if (event.is_vrf) {
    --event.node->queued_events;
    const std::string name = event.node->vrf_name;
    release(name.c_str());
  } else {
    --event.interface->queued_events;
    if (event.is_of_state()) {
      show(event.interface, std::move(event.to));
    } else {
      interfaces.know_name(event.interface);
    }
    interfaces.release(event.interface);
  }
}

void Service::close_left_accesses() {
  if (vrf_in_callback != nullptr) {
    log_line("record service: access to VRF %s was left open; closed", vrf_in_callback->vrf_name);
    vrf_in_callback->in_access = false;
  }
  if (interface_in_callback != nullptr) {
    log_line("record service: access to interface %s was left open; closed", interface_in_callback->if_name);
    interface_in_callback->in_access = false;
  }
  vrf_in_callback = nullptr;
  interface_in_callback = nullptr;
}

void Service::forget_events() {
  ++generation_;
  if (vrf_in_callback != nullptr) vrf_in_callback->in_access = false;
  if (interface_in_callback != nullptr) interface_in_callback->in_access = false;
  vrf_in_callback = nullptr;
  interface_in_callback = nullptr;
  for (Event& event : std::exchange(events_, {})) settle(std::move(event));
}

template <typename Matches>
Event* Service::oldest_event(Matches matches) {
  for (Event& event : events_) {
    if (!event.was_taken && matches(event)) return &event;
  }
  return nullptr;
}

Event* Service::oldest_vrf_event(std::string_view vrf_name) {
  return oldest_event(
      [vrf_name](const Event& event) { return event.is_vrf && vrf_name == event.node->vrf_name; });
}

Event* Service::oldest_if_event(std::string_view if_name, std::string_view vrf_name) {
  return oldest_event([&](const Event& event) {
    return event.is_of_state() && event.interface->known_name == if_name && event.vrf_name == vrf_name;
  });
}

}  // namespace vtab

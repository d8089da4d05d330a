// An item counts as announced from the moment the client's callback is called for it, until the callback
// for its deletion has returned: only then does the client no longer use it.
#include <algorithm>
#include <iterator>

#include "platform/router/vmap/service.h"

namespace vmap {
namespace {

// A client may have ignored a VRF for its flags, so a deletion has those that were delivered last.
void call_vrf(const VmapClient& client, const Event& event) {
  const std::uint32_t flags = client.announced.vrfs.at(event.vrf_name).flags;
  const VmapVrfItem item{event.vrf_name.c_str(), event.vrf_id, 0, flags, nullptr};
  client.database->vrf_callback(client.database.get(), event.kind, &item);
}

void call_interface(const VmapClient& client, const Event& event) {
  const VmapIntfItem item{event.handle, event.vrf_name.c_str(), event.vrf_id, 0, nullptr};
  client.database->intf_callback(client.database.get(), event.kind, &item);
}

bool is_obsolete_vrf(const Announced& announced, const Event& event) {
  if (event.kind == VmapEvent::kUpdate) return service().incarnation_of(event.vrf_name) != event.incarnation;
  const auto known = announced.vrfs.find(event.vrf_name);
  return known == announced.vrfs.end() || known->second.event.incarnation != event.incarnation;
}

bool is_obsolete_member(const Announced& announced, const Event& event) {
  if (event.kind == VmapEvent::kDelete) return !announced.interfaces.contains(event.handle);
  const router::Interface* const member = service().member(event.handle);
  return member == nullptr || member->vrf != event.vrf_name;
}

// The update of what ended since, or the deletion of what was never announced.
bool is_obsolete(const Announced& announced, const Event& event) {
  return event.is_vrf ? is_obsolete_vrf(announced, event) : is_obsolete_member(announced, event);
}

bool is_subscribed(const Event& event) {
  const VmapMemberDatabase& database = *service().client->database;
  return event.is_vrf ? database.vrf_callback != nullptr : database.intf_callback != nullptr;
}

// REQUIRES: the event is not obsolete.
void note_update(Announced* announced, const Event& event) {
  if (event.is_vrf) {
    announced->vrfs[event.vrf_name] = {event, service().flags_of(event.vrf_name)};
  } else {
    const router::Interface* const member = service().member(event.handle);
    announced->interfaces[event.handle] = {member->vrf, member->name};
  }
}

void note_deletion(Announced* announced, const Event& event) {
  if (event.is_vrf) {
    announced->vrfs.erase(event.vrf_name);
  } else {
    announced->interfaces.erase(event.handle);
  }
}

void call(VmapClient* client, const Event& event) {
  if (event.kind == VmapEvent::kUpdate) note_update(&client->announced, event);
  event.is_vrf ? call_vrf(*client, event) : call_interface(*client, event);
  if (event.kind == VmapEvent::kDelete) note_deletion(&client->announced, event);
}

// The update is about an interface that must leave under its former name first.
bool leaves_on_rename(const Announced& announced, const Event& event) {
  if (event.is_vrf || event.kind != VmapEvent::kUpdate || service().must_leave_on_rename == nullptr)
    return false;
  const auto known = announced.interfaces.find(event.handle);
  if (known == announced.interfaces.end() || known->second.name == service().member(event.handle)->name)
    return false;
  return service().must_leave_on_rename(known->second.vrf.c_str(), known->second.name.c_str());
}

Event deletion_of(Event event) {
  event.kind = VmapEvent::kDelete;
  return event;
}

std::vector<Event> stale_events(const Announced& announced) {
  std::vector<Event> events;
  for (const auto& [handle, interface] : announced.interfaces) {
    const router::Interface* const member = service().member(handle);
    if (member != nullptr && member->vrf == interface.vrf) continue;
    events.push_back({VmapEvent::kDelete, false, handle, 0, 0, interface.vrf});
  }
  for (const auto& [name, vrf] : announced.vrfs) {
    if (service().incarnation_of(name) != vrf.event.incarnation) events.push_back(deletion_of(vrf.event));
  }
  return events;
}

}  // namespace

void deliver(const Event& event) {
  VmapClient* const client = service().client.get();
  if (!is_subscribed(event) || is_obsolete(client->announced, event)) return;
  if (leaves_on_rename(client->announced, event)) call(client, deletion_of(event));
  call(client, event);
}

std::uint32_t replay() {
  VmapClient* const client = service().client.get();
  std::vector<Event> events = stale_events(client->announced);
  std::ranges::move(service().everything(), std::back_inserter(events));
  std::erase_if(events, [](const Event& event) { return !is_subscribed(event); });
  for (const Event& event : events) deliver(event);
  feed::recover(&client->receiver);
  return static_cast<std::uint32_t>(events.size());
}

}  // namespace vmap

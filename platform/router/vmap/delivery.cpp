// How events reach a client: the notifications of the change feed, the replay of a registration, and what was
// announced to the client.
//
// An item counts as announced from the moment the client's callback is called for it, until the callback for
// its deletion has returned: only then does the client no longer use it.
//
// A callback may end the registration it is called for (unbind, free the database). Loops around callbacks
// compare the registration's number and stop when it has changed.
#include <algorithm>

#include "platform/router/vmap/service.h"

namespace vmap {
namespace {

VmapClient* find_client(std::uint64_t id) {
  for (const auto& client : service().clients) {
    if (client->id == id) return client.get();
  }
  return nullptr;
}

// A client may have ignored a VRF for its flags, so a deletion has those that were delivered last.
void call_vrf(VmapMemberDatabase* database, const Event& event) {
  const std::uint32_t flags = database->client->announced.vrfs.at(*event.vrf_name).flags;
  const VmapVrfItem item{event.vrf_name->c_str(), event.vrf_id, 0, flags, nullptr};
  database->vrf_callback(database, event.kind, &item);
}

void call_interface(VmapMemberDatabase* database, const Event& event) {
  const VmapIntfItem item{event.handle, event.vrf_name->c_str(), event.vrf_id, 0, nullptr};
  database->intf_callback(database, event.kind, &item);
}

bool is_obsolete_vrf(const VmapClient& client, const Event& event) {
  if (event.kind == VmapEvent::kUpdate) return service().incarnation_of(*event.vrf_name) != event.incarnation;
  const auto known = client.announced.vrfs.find(*event.vrf_name);
  return known == client.announced.vrfs.end() || known->second.incarnation != event.incarnation;
}

bool is_obsolete_member(const VmapClient& client, const Event& event) {
  if (event.kind == VmapEvent::kDelete) return !client.announced.interfaces.contains(event.handle);
  const Member* member = service().members.find(event.handle);
  return member == nullptr || *member->vrf->name != *event.vrf_name;
}

// The update of what ended since, or the deletion of what was never announced.
bool is_obsolete(const VmapClient& client, const Event& event) {
  return event.is_vrf ? is_obsolete_vrf(client, event) : is_obsolete_member(client, event);
}

bool is_subscribed(const VmapMemberDatabase& database, const Event& event) {
  return event.is_vrf ? database.vrf_callback != nullptr : database.intf_callback != nullptr;
}

void note_update(Announced* announced, const Event& event) {
  if (event.is_vrf) {
    announced->vrfs[*event.vrf_name] = {event.vrf_id, event.incarnation, service().flags_of(*event.vrf_name)};
  } else {
    announced->interfaces[event.handle] = {event.vrf_name, service().name_of(event.handle)};
  }
}

void note_deletion(std::uint64_t client_id, const Event& event) {
  VmapClient* const client = find_client(client_id);
  if (client == nullptr) return;  // the callback ended it
  if (event.is_vrf) {
    client->announced.vrfs.erase(*event.vrf_name);
  } else {
    client->announced.interfaces.erase(event.handle);
  }
}

void call(VmapClient* client, const Event& event) {
  VmapMemberDatabase* const database = client->registered;
  const std::uint64_t id = client->id;
  if (event.kind == VmapEvent::kUpdate) note_update(&client->announced, event);
  event.is_vrf ? call_vrf(database, event) : call_interface(database, event);
  if (event.kind == VmapEvent::kDelete) note_deletion(id, event);
}

// The update is about an interface that must leave under its former name first.
bool leaves_on_rename(const VmapClient& client, const Event& event) {
  if (event.is_vrf || event.kind != VmapEvent::kUpdate || service().must_leave_on_rename == nullptr)
    return false;
  const auto known = client.announced.interfaces.find(event.handle);
  if (known == client.announced.interfaces.end() || known->second.name == service().name_of(event.handle))
    return false;
  return service().must_leave_on_rename(known->second.vrf_name->c_str(), known->second.name.c_str());
}

void deliver(VmapClient* client, const Event& event) {
  if (!is_subscribed(*client->registered, event) || is_obsolete(*client, event)) return;
  if (leaves_on_rename(*client, event)) {
    const std::uint64_t id = client->id;
    const std::uint64_t registration = client->registration;
    Event leave = event;
    leave.kind = VmapEvent::kDelete;
    call(client, leave);
    if (!is_registered(id, registration)) return;
  }
  call(client, event);
}

class Announcement : public feed::Notification {
 public:
  Announcement(VmapClient* client, Event event) : client_(client), event_(std::move(event)) {}
  void deliver() override { vmap::deliver(client_, event_); }

 private:
  VmapClient* client_;  // registered: the feed drops the notifications of a registration that ends
  Event event_;
};

Event deletion_of(std::uint32_t handle, const SharedName& vrf_name) {
  Event event;
  event.kind = VmapEvent::kDelete;
  event.handle = handle;
  event.vrf_name = vrf_name;
  return event;
}

Event deletion_of(const std::string& vrf_name, const AnnouncedVrf& vrf) {
  Event event;
  event.kind = VmapEvent::kDelete;
  event.is_vrf = true;
  event.vrf_id = vrf.vrf_id;
  event.incarnation = vrf.incarnation;
  event.vrf_name = std::make_shared<const std::string>(vrf_name);
  return event;
}

std::vector<Event> stale_interfaces(const Announced& announced) {
  std::vector<Event> events;
  for (const auto& [handle, interface] : announced.interfaces) {
    const Member* member = service().members.find(handle);
    if (member != nullptr && *member->vrf->name == *interface.vrf_name) continue;
    events.push_back(deletion_of(handle, interface.vrf_name));
  }
  const auto by_handle = [](const Event& left, const Event& right) { return left.handle < right.handle; };
  std::sort(events.begin(), events.end(), by_handle);
  return events;
}

std::vector<Event> stale_vrfs(const Announced& announced) {
  std::vector<Event> events;
  for (const auto& [name, vrf] : announced.vrfs) {
    if (service().incarnation_of(name) != vrf.incarnation) events.push_back(deletion_of(name, vrf));
  }
  return events;
}

// How many of the events the client has subscribed to, up to the one that ended its registration.
std::uint32_t replay_events(std::uint64_t client_id, std::uint64_t registration,
                            const std::vector<Event>& events) {
  std::uint32_t count = 0;
  for (const Event& event : events) {
    if (!is_registered(client_id, registration)) break;
    VmapClient* const client = find_client(client_id);
    if (!is_subscribed(*client->registered, event)) continue;
    deliver(client, event);
    ++count;
  }
  return count;
}

}  // namespace

std::unique_ptr<feed::Notification> notification_of(VmapClient* client, const Event& event) {
  return std::make_unique<Announcement>(client, event);
}

std::uint32_t replay(VmapClient* client) {
  const std::uint64_t id = client->id;
  const std::uint64_t registration = client->registration;
  const std::vector<Event> groups[] = {stale_interfaces(client->announced), stale_vrfs(client->announced),
                                       service().everything()};
  std::uint32_t count = 0;
  for (const auto& events : groups) count += replay_events(id, registration, events);
  if (is_registered(id, registration)) feed::recover(&client->receiver);
  return count;
}

bool is_registered(std::uint64_t client_id, std::uint64_t registration) {
  const VmapClient* client = find_client(client_id);
  return client != nullptr && client->registered != nullptr && client->registration == registration;
}

void end_registration(VmapClient* client) {
  if (client->registered == nullptr) return;
  client->registered = nullptr;
  ++client->registration;
  if (client->announced.vrfs.empty()) {
    feed::drop(&client->receiver);
  } else {
    feed::lose(&client->receiver);
  }
}

}  // namespace vmap

// How events reach a client: the queue, the batches, the replay of a registration and what the client was
// told.
//
// Live events wait in the client's queue; one function posted on the client's event manager delivers up to a
// batch of them and posts itself again while some are left, so that requests are served in between. The
// replay goes through the same queue but is delivered at once, inside the registering call.
//
// A client counts as told of an item from the moment its callback is called. A deletion is counted when the
// callback has returned: only then may the record service release what the callback could still use.
//
// A callback may end the registration it is called for (unbind, free the database, stop the service). Each
// loop remembers the registration's number and stops when it has changed.
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
  const std::uint32_t flags = database->client->told.vrfs.at(*event.vrf_name).flags;
  const VmapVrfItem item{event.vrf_name->c_str(), event.vrf_id, 0, flags, nullptr};
  database->vrf_callback(database, event.kind, &item);
}

void call_interface(VmapMemberDatabase* database, const Event& event) {
  const VmapIntfItem item{event.handle, event.vrf_name->c_str(), event.vrf_id, 0, nullptr};
  database->intf_callback(database, event.kind, &item);
}

bool is_untold_vrf(const VmapClient& client, const Event& event) {
  if (event.kind == VmapEvent::kUpdate) return service().incarnation_of(*event.vrf_name) != event.incarnation;
  const auto told = client.told.vrfs.find(*event.vrf_name);
  return told == client.told.vrfs.end() || told->second.incarnation != event.incarnation;
}

bool is_untold_member(const VmapClient& client, const Event& event) {
  if (event.kind == VmapEvent::kDelete) return !client.told.interfaces.contains(event.handle);
  const Member* member = service().members.find(event.handle);
  return member == nullptr || *member->vrf->name != *event.vrf_name;
}

// What has gone again before it was told, or its going.
bool is_untold(const VmapClient& client, const Event& event) {
  return event.is_vrf ? is_untold_vrf(client, event) : is_untold_member(client, event);
}

bool is_subscribed(const VmapMemberDatabase& database, const Event& event) {
  return event.is_vrf ? database.vrf_callback != nullptr : database.intf_callback != nullptr;
}

void note_update(Told* told, const Event& event) {
  if (event.is_vrf) {
    told->vrfs[*event.vrf_name] = {event.vrf_id, event.incarnation, service().flags_of(*event.vrf_name)};
  } else {
    told->interfaces[event.handle] = {event.vrf_name, service().name_of(event.handle)};
  }
}

void note_deletion(std::uint64_t client_id, const Event& event) {
  if (VmapClient* client = find_client(client_id)) {  // the callback may have ended it
    if (event.is_vrf) {
      client->told.vrfs.erase(*event.vrf_name);
    } else {
      client->told.interfaces.erase(event.handle);
    }
  }
  if (event.is_vrf) tell_deletion_hook(*event.vrf_name);
}

void tell(VmapClient* client, const Event& event) {
  VmapMemberDatabase* const database = client->registered;
  const std::uint64_t id = client->id;
  if (event.kind == VmapEvent::kUpdate) note_update(&client->told, event);
  event.is_vrf ? call_vrf(database, event) : call_interface(database, event);
  if (event.kind == VmapEvent::kDelete) note_deletion(id, event);
}

// The update is about an interface whose former name, and what is kept under it, must end first.
bool ends_a_name(const VmapClient& client, const Event& event) {
  if (event.is_vrf || event.kind != VmapEvent::kUpdate || service().name_must_end == nullptr) return false;
  const auto told = client.told.interfaces.find(event.handle);
  if (told == client.told.interfaces.end() || told->second.name == service().name_of(event.handle))
    return false;
  return service().name_must_end(told->second.vrf_name->c_str(), told->second.name.c_str());
}

void deliver(VmapClient* client, const Event& event) {
  if (!is_subscribed(*client->registered, event) || is_untold(*client, event)) return;
  if (ends_a_name(*client, event)) {
    const std::uint64_t id = client->id;
    const std::uint64_t registration = client->registration;
    Event leave = event;
    leave.kind = VmapEvent::kDelete;
    tell(client, leave);
    if (!is_registered(id, registration)) return;
  }
  tell(client, event);
}

// Delivers up to `limit` events while the registration lasts and `may_go` allows; how many.
template <typename MayGo>
std::uint32_t deliver_some(std::uint64_t client_id, std::uint64_t registration, std::size_t limit,
                           MayGo may_go) {
  std::uint32_t delivered = 0;
  while (delivered < limit && is_registered(client_id, registration)) {
    VmapClient* const client = find_client(client_id);
    if (client->queue.empty() || !may_go(client->queue.front())) break;
    deliver_front(client);
    ++delivered;
  }
  return delivered;
}

bool is_its_turn(const Event& event) {
  return service().oldest_elsewhere == nullptr || event.turn < service().oldest_elsewhere();
}

void post_delivery(VmapClient* client);

void run_delivery(std::uint64_t client_id, std::uint64_t registration) {
  if (!is_registered(client_id, registration)) return;
  deliver_some(client_id, registration, find_client(client_id)->registered->batch, is_its_turn);
  if (!is_registered(client_id, registration)) return;
  VmapClient* const client = find_client(client_id);
  client->delivery_posted = false;
  if (!client->queue.empty()) post_delivery(client);
}

void post_delivery(VmapClient* client) {
  if (client->delivery_posted) return;
  client->delivery_posted = true;
  event_post(client->manager,
             [id = client->id, registration = client->registration] { run_delivery(id, registration); });
}

Event deletion_of(std::uint32_t handle, const SharedName& vrf_name) {
  Event event;
  event.kind = VmapEvent::kDelete;
  event.handle = handle;
  event.vrf_name = vrf_name;
  return event;
}

Event deletion_of(const std::string& vrf_name, const ToldVrf& told) {
  Event event;
  event.kind = VmapEvent::kDelete;
  event.is_vrf = true;
  event.vrf_id = told.vrf_id;
  event.incarnation = told.incarnation;
  event.vrf_name = std::make_shared<const std::string>(vrf_name);
  return event;
}

std::vector<Event> ghost_interfaces(const Told& told) {
  std::vector<Event> events;
  for (const auto& [handle, interface] : told.interfaces) {
    const Member* member = service().members.find(handle);
    if (member != nullptr && *member->vrf->name == *interface.vrf_name) continue;
    events.push_back(deletion_of(handle, interface.vrf_name));
  }
  const auto by_handle = [](const Event& left, const Event& right) { return left.handle < right.handle; };
  std::sort(events.begin(), events.end(), by_handle);
  return events;
}

std::vector<Event> ghost_vrfs(const Told& told) {
  std::vector<Event> events;
  for (const auto& [name, vrf] : told.vrfs) {
    if (service().incarnation_of(name) != vrf.incarnation) events.push_back(deletion_of(name, vrf));
  }
  return events;
}

void append(std::deque<Event>* queue, std::vector<Event> events, const VmapMemberDatabase& database) {
  for (Event& event : events) {
    if (is_subscribed(database, event)) queue->push_back(std::move(event));
  }
}

}  // namespace

VmapClient* oldest_waiting() {
  VmapClient* oldest = nullptr;
  for (const auto& client : service().clients) {
    if (client->registered == nullptr || client->queue.empty()) continue;
    if (oldest == nullptr || client->queue.front().turn < oldest->queue.front().turn) oldest = client.get();
  }
  return oldest;
}

void deliver_front(VmapClient* client) {
  const Event event = std::move(client->queue.front());
  client->queue.pop_front();
  deliver(client, event);
}

void enqueue(VmapClient* client, const Event& event) {
  client->queue.push_back(event);
  post_delivery(client);
}

std::uint32_t replay(VmapClient* client) {
  append(&client->queue, ghost_interfaces(client->told), *client->registered);
  append(&client->queue, ghost_vrfs(client->told), *client->registered);
  append(&client->queue, service().everything(), *client->registered);
  return deliver_some(client->id, client->registration, client->queue.size(),
                      [](const Event&) { return true; });
}

bool is_registered(std::uint64_t client_id, std::uint64_t registration) {
  const VmapClient* client = find_client(client_id);
  return client != nullptr && client->registered != nullptr && client->registration == registration;
}

void end_registration(VmapClient* client) {
  if (client->registered == nullptr) return;
  client->registered = nullptr;
  ++client->registration;
  client->queue.clear();
  client->delivery_posted = false;
}

void tell_deletion_hook(const std::string& vrf_name) {
  if (service().deletion_told != nullptr) service().deletion_told(vrf_name.c_str());
}

}  // namespace vmap

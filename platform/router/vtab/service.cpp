// The record service as an observer of the router model: keeps the records in step with it and queues the
// client's events. events.cpp delivers them.
//
// What happens to a VRF's record:
//   named by configuration, or by the client     a forward reference is made (event "create", but not to the
//   client
//                                                that made it itself)
//   VRF created                                  record made ("create"), or the forward reference completed
//   in
//                                                place ("update")
//   VRF deleted, configuration still names it    a forward reference again, same record, same block
//   ("update"):
//                                                the client keeps what it knows from configuration
//   VRF deleted, or its last reference taken     off the look-ups at once ("delete"), freed when its events
//   are back                                         delivered, no access is open and no membership client is
//   still to
//                                                be told
// The client's wish for a record (vtab_create_vrf_record) is no reference: it does not outlive the VRF.
//
// A record that could not be made for want of memory is missing, and said to be on the log; the client's own
// creation of it makes it later, complete.
#include "platform/router/vtab/service.h"

#include "platform/core/base/log.h"
#include "platform/router/vmap/vmap.h"

namespace vtab {
namespace {

void release_name(const char* vrf_name) {
  service().release(vrf_name);
}

bool is_entered_or_left_by_name(const router::Interface& before, const router::Interface& now) {
  return now.vrf != router::kDefaultVrf &&
         vmap_is_subscribers_name(before.name.c_str()) != vmap_is_subscribers_name(now.name.c_str());
}

std::uint64_t turn_of_service() {
  return service().oldest_turn();
}

}  // namespace

Service& service() {
  static Service the_service;
  return the_service;
}

void Service::attach(router::Router* model) {
  if (model_ != nullptr) {
    model_->stop_observing(this);
    forget_events();
    vrfs.clear();
    interfaces.clear();
  }
  model_ = model;
  vmap_on_vrf_deletion_told(model == nullptr ? nullptr : &release_name);
  vmap_wait_for(model == nullptr ? nullptr : &turn_of_service);
  if (model == nullptr) return;
  model->for_each_vrf([this](const router::Vrf& vrf) { vrf_created(vrf); });
  model->for_each_reference([this](const std::string& name) { find_or_add(name); });
  model->for_each_interface([this](const router::Interface& interface) { interface_added(interface); });
  model->observe(router::ObserverRank::kRecords, this);
}

VrfNode* Service::find_or_add(std::string_view name) {
  VrfNode* node = vrfs.find(name);
  if (node != nullptr) return node;
  node = vrfs.add(name, client.attribute_size);
  if (node == nullptr) {
    log_line("record service: no memory for the record of VRF %s", std::string(name).c_str());
    return nullptr;
  }
  const router::Vrf* vrf = model_ == nullptr ? nullptr : model_->find_vrf(name);
  if (vrf != nullptr) vrfs.complete(node, *vrf);
  return node;
}

void Service::vrf_created(const router::Vrf& vrf) {
  VrfNode* node = vrfs.find(vrf.name);
  const std::uint32_t code = node == nullptr ? kVtabEventCreate : kVtabEventUpdate;
  if (node == nullptr) node = find_or_add(vrf.name);
  if (node == nullptr) return;
  vrfs.complete(node, vrf);
  queue_vrf_event(node, code);
}

void Service::vrf_changed(const router::Vrf& before, const router::Vrf& now) {
  const bool tables_differ = before.ipv4_table != now.ipv4_table || before.ipv6_table != now.ipv6_table ||
                             before.ipv4_multicast_table != now.ipv4_multicast_table ||
                             before.ipv6_multicast_table != now.ipv6_multicast_table;
  VrfNode* node = vrfs.find(now.name);
  if (node == nullptr || !tables_differ) return;
  vrfs.complete(node, now);
  queue_vrf_event(node, kVtabEventUpdate);
}

void Service::vrf_deleted(const router::Vrf& vrf) {
  VrfNode* node = vrfs.find(vrf.name);
  if (node == nullptr) return;
  if (!model_->is_referenced(vrf.name)) return delete_record(node);
  vrfs.make_forward_reference(node);
  queue_vrf_event(node, kVtabEventUpdate);
}

void Service::vrf_referenced(const std::string& name) {
  if (vrfs.find(name) != nullptr) return;
  if (VrfNode* node = find_or_add(name)) queue_vrf_event(node, kVtabEventCreate);
}

void Service::vrf_unreferenced(const std::string& name) {
  if (VrfNode* node = vrfs.find(name)) delete_record(node);
}

void Service::delete_record(VrfNode* node) {
  const std::string name = node->vrf_name;
  vrfs.remove(node);
  queue_vrf_event(node, kVtabEventDelete);
  release(name.c_str());
}

void Service::release(const char* vrf_name) {
  if (vmap_owes_vrf_deletion(vrf_name)) return;
  vrfs.release_removed(vrf_name,
                       [](const VrfNode& node) { return node.queued_events == 0 && !node.in_access; });
}

// What is known of an interface follows the events: a state that is told, or that comes after one that is
// still to be told, waits for its turn. Nobody is told and nobody waits: it shows at once.
void Service::take_over(IfNode* node, const router::Interface& interface, const IfChange& change) {
  const bool must_wait = client.has_if_events && (change.is_one() || node->queued_events > 0);
  if (!must_wait) return show(node, state_of(interface));
  queue_if_event(node, interface.vrf, change, state_of(interface));
}

void Service::interface_added(const router::Interface& interface) {
  take_over(interfaces.add(interface), interface, change_between({}, state_of(interface)));
}

// What went down is delivered under the former name, what came up under the new one.
void Service::interface_changed(const router::Interface& before, const router::Interface& now) {
  IfNode* const node = interfaces.change(before.index, now);
  if (is_entered_or_left_by_name(before, now)) return interface_reentered(node, before, now);
  const IfChange change = change_between(state_of(before), state_of(now));
  const bool is_renamed = before.name != now.name;
  if (is_renamed && change.has_up()) tell_name(node);
  take_over(node, now, change);
  if (is_renamed && !change.has_up()) tell_name(node);
}

// The client asks for the present name when the membership service announces a change of it, just after this.
void Service::tell_name(IfNode* node) {
  if (!client.has_if_events) return interfaces.know_name(node);
  ++node->queued_events;
  Event event;
  event.turn = vmap_turn(model_->changes(), VmapPhase::kRecord);
  event.interface = node;
  event.is_rename = true;
  queue(std::move(event));
}

// Clients of the MIB see an interface join its VRF when it loses a subscriber's name, and leave when it gets
// one: as with a move, it is down in between.
void Service::interface_reentered(IfNode* node, const router::Interface& before,
                                  const router::Interface& now) {
  const IfState was = state_of(before);
  const IfState down{kVtabStateDown, kVtabStateDown, was.addresses};
  const IfChange went_down = change_between(was, down);
  if (client.has_if_events && went_down.is_one()) queue_if_event(node, now.vrf, went_down, down);
  tell_name(node);
  take_over(node, now, change_between(down, state_of(now)));
}

// A host takes an interface down and up again to put it into another VRF, though only the outcome may be
// seen.
void Service::interface_moved(const router::Interface& now, const std::string& from) {
  IfNode* const node = interfaces.change(now.index, now);
  const IfState state = state_of(now);
  const IfState down{kVtabStateDown, kVtabStateDown, state.addresses};
  const IfChange went_down = change_between(state, down);
  if (!client.has_if_events || !went_down.is_one()) return;
  queue_if_event(node, from, went_down, down);
  queue_if_event(node, now.vrf, change_between(down, state), state);
}

void Service::interface_removed(const router::Interface& interface) {
  IfNode* const node = interfaces.remove(interface.index);
  const IfChange went_down = change_between(state_of(interface), {});
  if (client.has_if_events && went_down.is_one()) queue_if_event(node, interface.vrf, went_down, {});
  interfaces.release(node);
}

void Service::queue_vrf_event(VrfNode* node, std::uint32_t code) {
  if (!client.has_vrf_events) return;
  ++node->queued_events;
  Event event;
  event.is_vrf = true;
  event.turn = vmap_turn(model_->changes(), VmapPhase::kRecord);
  event.node = node;
  event.code = code;
  queue(std::move(event));
}

void Service::queue_if_event(IfNode* node, const std::string& vrf_name, const IfChange& change, IfState to) {
  ++node->queued_events;
  Event event;
  event.turn = vmap_turn(model_->changes(), change.has_up() ? VmapPhase::kCameUp : VmapPhase::kWentDown);
  event.interface = node;
  event.vrf_name = vrf_name;
  event.change = change;
  event.to = std::move(to);
  queue(std::move(event));
}

Status Service::start_client(const char* name, EventManager* manager, std::size_t attribute_size) {
  if (client.manager != nullptr) return kStatusExists;
  if (!vrfs.allot_attributes(attribute_size)) return kStatusNoMemory;
  client = {};
  client.name = name;
  client.manager = manager;
  client.attribute_size = attribute_size;
  return kStatusOk;
}

void Service::end_client() {
  client = {};
  forget_events();
  vrfs.release_all_removed();
  for (VrfNode* node = vrfs.first(); node != nullptr;) {
    VrfNode* const next = vrfs.after(node->vrf_name);
    const bool is_clients_own = model_ == nullptr || !model_->is_referenced(node->vrf_name);
    if (node->vrf_id == 0 && is_clients_own) vrfs.remove(node);
    node = next;
  }
  vrfs.release_all_removed();
  vrfs.allot_attributes(0);
  lock_holder.clear();
}

}  // namespace vtab

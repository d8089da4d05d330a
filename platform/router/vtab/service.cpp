// The record service as an observer of the router model: updates the records and appends the client's
// notifications to the change feed. The record of a deleted VRF is freed when the feed has delivered
// everything up to its deletion.
//
// A record that the client asked for (vtab_create_vrf_record) is not a reference: it is deleted with the
// VRF. A record that could not be made for lack of memory is missing, which is logged; the client's own
// creation of it makes it later, complete.
#include "platform/router/vtab/service.h"

#include "platform/core/base/log.h"
#include "platform/router/vmap/vmap.h"

namespace vtab {
namespace {

bool is_entered_or_left_by_name(const router::Interface& before, const router::Interface& now) {
  return now.vrf != router::kDefaultVrf &&
         vmap_is_subscribers_name(before.name.c_str()) != vmap_is_subscribers_name(now.name.c_str());
}

}  // namespace

Service& service() {
  static Service the_service;
  return the_service;
}

void Service::attach(router::Router* model) {
  if (model_ != nullptr) {
    model_->stop_observing(this);
    feed::drop(&receiver_);
    vrfs = {};
    interfaces = {};
    client = {};
    lock_holder.clear();
  }
  model_ = model;
  feed::attach(model);
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
    log_error("record service", "no memory for the record of VRF %s", std::string(name).c_str());
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
  append_vrf_event(node, code);
}

void Service::vrf_changed(const router::Vrf& before, const router::Vrf& now) {
  const bool tables_differ = before.ipv4_table != now.ipv4_table || before.ipv6_table != now.ipv6_table ||
                             before.ipv4_multicast_table != now.ipv4_multicast_table ||
                             before.ipv6_multicast_table != now.ipv6_multicast_table;
  VrfNode* node = vrfs.find(now.name);
  if (node == nullptr || !tables_differ) return;
  vrfs.complete(node, now);
  append_vrf_event(node, kVtabEventUpdate);
}

void Service::vrf_deleted(const router::Vrf& vrf) {
  VrfNode* node = vrfs.find(vrf.name);
  if (node == nullptr) return;
  if (!model_->is_referenced(vrf.name)) return delete_record(node);
  vrfs.make_forward_reference(node);
  append_vrf_event(node, kVtabEventUpdate);
}

void Service::vrf_referenced(const std::string& name) {
  if (vrfs.find(name) != nullptr) return;
  if (VrfNode* node = find_or_add(name)) append_vrf_event(node, kVtabEventCreate);
}

void Service::vrf_unreferenced(const std::string& name) {
  if (VrfNode* node = vrfs.find(name)) delete_record(node);
}

void Service::delete_record(VrfNode* node) {
  vrfs.remove(node);
  append_vrf_event(node, kVtabEventDelete);
  feed::run_after_pending([node] { service().vrfs.release(node); });
}

// The record shows what the client was notified of: a change of state, and any change after an undelivered
// one, waits for its delivery. Without a client it shows at once.
void Service::update_state(IfNode* node, const router::Interface& interface, const IfChange& change) {
  const bool must_wait = client.has_if_events && (change.is_one() || node->pending > 0);
  if (!must_wait) return interfaces.show(node, state_of(interface));
  append_state(node, interface.vrf, change, state_of(interface));
}

void Service::interface_added(const router::Interface& interface) {
  update_state(interfaces.add(interface), interface, change_between({}, state_of(interface)));
}

// A change to down is delivered under the former name, a change to up under the new one.
void Service::interface_changed(const router::Interface& before, const router::Interface& now) {
  IfNode* const node = interfaces.change(before.index, now);
  if (is_entered_or_left_by_name(before, now)) return interface_reentered(node, before, now);
  const IfChange change = change_between(state_of(before), state_of(now));
  const bool is_renamed = before.name != now.name;
  if (is_renamed && change.has_up()) append_rename(node);
  update_state(node, now, change);
  if (is_renamed && !change.has_up()) append_rename(node);
}

// The client looks up the present name when the membership service announces it, right after this.
void Service::append_rename(IfNode* node) {
  if (!client.has_if_events) return interfaces.know_name(node);
  ++node->pending;
  feed::append(model_->changes(), feed::Phase::kRecord, &receiver_, [this, node] {
    --node->pending;
    interfaces.know_name(node);
    interfaces.release(node);
  });
}

// Clients of the MIB see an interface join its VRF when it loses a subscriber's name, and leave when it gets
// one: as with a move, it is down in between.
void Service::interface_reentered(IfNode* node, const router::Interface& before,
                                  const router::Interface& now) {
  const IfState was = state_of(before);
  const IfState down{kVtabStateDown, kVtabStateDown, was.addresses};
  const IfChange went_down = change_between(was, down);
  if (client.has_if_events && went_down.is_one()) append_state(node, now.vrf, went_down, down);
  append_rename(node);
  update_state(node, now, change_between(down, state_of(now)));
}

// A host takes an interface down and up again to move it to another VRF, though the model may have the
// outcome only.
void Service::interface_moved(const router::Interface& now, const std::string& from) {
  IfNode* const node = interfaces.change(now.index, now);
  const IfState state = state_of(now);
  const IfState down{kVtabStateDown, kVtabStateDown, state.addresses};
  const IfChange went_down = change_between(state, down);
  if (!client.has_if_events || !went_down.is_one()) return;
  append_state(node, from, went_down, down);
  append_state(node, now.vrf, change_between(down, state), state);
}

void Service::interface_removed(const router::Interface& interface) {
  IfNode* const node = interfaces.remove(interface.index);
  const IfChange went_down = change_between(state_of(interface), {});
  if (client.has_if_events && went_down.is_one()) append_state(node, interface.vrf, went_down, {});
  interfaces.release(node);
}

void Service::append_vrf_event(VrfNode* node, std::uint32_t code) {
  if (!client.has_vrf_events) return;
  feed::append(model_->changes(), feed::Phase::kRecord, &receiver_, std::make_unique<VrfEvent>(node, code));
}

void Service::append_state(IfNode* node, const SharedText& vrf_name, const IfChange& change, IfState to) {
  const feed::Phase phase = change.has_up() ? feed::Phase::kUp : feed::Phase::kDown;
  feed::append(model_->changes(), phase, &receiver_,
               std::make_unique<StateEvent>(node, vrf_name, change, std::move(to)));
}

Status Service::start_client(const char* name, EventManager* manager, std::size_t attribute_size) {
  if (client.manager != nullptr) return kStatusExists;
  if (!vrfs.allot_attributes(attribute_size)) return kStatusNoMemory;
  client = {};
  client.name = name;
  client.manager = manager;
  client.attribute_size = attribute_size;
  receiver_.manager = manager;
  return kStatusOk;
}

}  // namespace vtab

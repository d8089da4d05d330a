// The membership service as an observer of the router model. Every event is complete: it is made here, at
// the time of the change, and the feed only delivers it. The VRF "default" is not a VRF to this service:
// its interfaces are in no VRF.
#include "platform/router/vmap/service.h"

#include "platform/core/base/fault.h"

namespace vmap {
namespace {

bool is_default(std::string_view vrf) {
  return vrf == router::kDefaultVrf;
}

bool gets_a_subscribers_name(const router::Interface& before, const router::Interface& now) {
  return vmap_is_subscribers_name(now.name.c_str()) && !vmap_is_subscribers_name(before.name.c_str());
}

}  // namespace

Service& service() {
  static Service the_service;
  return the_service;
}

void Service::attach(router::Router* model) {
  if (model_ != nullptr) model_->stop_observing(this);
  members_.clear();
  incarnations_.clear();
  model_ = model;
  if (model_ == nullptr) return;
  model_->for_each_vrf([this](const router::Vrf& vrf) {
    if (!is_default(vrf.name)) incarnations_[vrf.name] = ++last_incarnation_;
  });
  model_->for_each_interface([this](const router::Interface& interface) {
    if (!is_default(interface.vrf)) members_[interface.vrf].insert(interface.handle);
  });
  model_->observe(router::ObserverRank::kMembership, this);
}

std::uint64_t Service::incarnation_of(std::string_view vrf) const {
  const auto found = incarnations_.find(vrf);
  return found == incarnations_.end() ? 0 : found->second;
}

std::uint32_t Service::flags_of(std::string_view vrf) const {
  return model_->find_vrf(vrf)->flags;
}

const router::Interface* Service::member(std::uint32_t handle) const {
  const router::Interface* const interface = model_->find_interface(handle);
  return interface == nullptr || is_default(interface->vrf) ? nullptr : interface;
}

Event Service::vrf_event(VmapEvent kind, const router::Vrf& vrf) const {
  return {kind, true, 0, vrf.id, incarnation_of(vrf.name), vrf.name};
}

Event Service::interface_event(VmapEvent kind, std::uint32_t handle, const SharedText& vrf) const {
  const router::Vrf* const found = model_->find_vrf(vrf);
  return {kind, false, handle, found == nullptr ? 0 : found->id, 0, vrf};
}

void Service::announce(const Event& event) {
  if (fault_check("vmap_service") != kStatusOk) return close_connection();
  if (client == nullptr || !client->is_registered) return;
  const feed::Phase phase = event.kind == VmapEvent::kDelete ? feed::Phase::kLeft : feed::Phase::kJoined;
  feed::append(model_->changes(), phase, &client->receiver, [event] { deliver(event); });
}

void Service::announce_members_of(std::string_view vrf) {
  const auto found = members_.find(vrf);
  if (found == members_.end()) return;
  for (const std::uint32_t handle : found->second) {
    announce(interface_event(VmapEvent::kUpdate, handle, found->first));
  }
}

void Service::vrf_created(const router::Vrf& vrf) {
  incarnations_[vrf.name] = ++last_incarnation_;
  announce(vrf_event(VmapEvent::kUpdate, vrf));
  announce_members_of(vrf.name);
}

void Service::vrf_changed(const router::Vrf& before, const router::Vrf& now) {
  if (is_default(now.name) || ((before.flags ^ now.flags) & kVmapVrfFlagIgnore) == 0) return;
  announce(vrf_event(VmapEvent::kDelete, now));
  announce(vrf_event(VmapEvent::kUpdate, now));
}

void Service::vrf_deleted(const router::Vrf& vrf) {
  announce(vrf_event(VmapEvent::kDelete, vrf));
  incarnations_.erase(vrf.name);
  announce_members_of(vrf.name);
}

void Service::join(const router::Interface& interface) {
  if (is_default(interface.vrf)) return;
  members_[interface.vrf].insert(interface.handle);
  announce(interface_event(VmapEvent::kUpdate, interface.handle, interface.vrf));
}

void Service::leave(std::uint32_t handle, const SharedText& vrf) {
  const auto found = members_.find(vrf);
  if (found == members_.end()) return;
  announce(interface_event(VmapEvent::kDelete, handle, vrf));
  found->second.erase(handle);
  if (found->second.empty()) members_.erase(found);
}

void Service::interface_changed(const router::Interface& before, const router::Interface& now) {
  if (is_default(now.vrf) || (before.name == now.name && before.index == now.index)) return;
  const auto announce_as = [&](VmapEvent kind) { announce(interface_event(kind, now.handle, now.vrf)); };
  if (gets_a_subscribers_name(before, now)) announce_as(VmapEvent::kDelete);
  announce_as(VmapEvent::kUpdate);
}

void Service::interface_moved(const router::Interface& now, const std::string& from) {
  leave(now.handle, from);
  join(now);
}

std::vector<Event> Service::everything() const {
  std::vector<Event> events;
  model_->for_each_vrf([&](const router::Vrf& vrf) {
    if (!is_default(vrf.name)) events.push_back(vrf_event(VmapEvent::kUpdate, vrf));
  });
  model_->for_each_interface([&](const router::Interface& interface) {
    if (is_default(interface.vrf)) return;
    events.push_back(interface_event(VmapEvent::kUpdate, interface.handle, interface.vrf));
  });
  return events;
}

}  // namespace vmap

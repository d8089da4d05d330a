// Interfaces are indexed by a handle that counts up and is reused only after 2^32 additions, so the order
// of handles is the order of addition. Every operation costs a few look-ups, whatever the number of
// interfaces; 100,000 are ordinary. The model has no lists of members by VRF; observers that need them
// have their own.
#include <algorithm>
#include <utility>

#include "platform/router/model/router.h"
#include "platform/router/model/state.h"

namespace router {
namespace {

constexpr std::uint32_t kIndexMax = 2147483647;  // RFC 2863, InterfaceIndex

bool valid_interface(const Interface& interface) {
  return valid_interface_name(interface.name) && interface.index != 0 && interface.index <= kIndexMax &&
         std::all_of(interface.addresses.begin(), interface.addresses.end(), valid_address);
}

template <typename Set, typename Key>
Interface* find_in(const Set& interfaces, const Key& key) {
  const auto found = interfaces.find(key);
  return found == interfaces.end() ? nullptr : *found;
}

template <typename State>
Interface* find_by_handle(const State& state, std::uint32_t handle) {
  const auto found = state.interfaces.find(handle);
  return found == state.interfaces.end() ? nullptr : found->second.get();
}

// True when an interface other than `self` has one of the two (null: any interface).
template <typename State>
bool name_or_index_taken(const State& state, const Interface& wanted, const Interface* self) {
  const Interface* by_name = find_in(state.interfaces_by_name, wanted.name.view());
  const Interface* by_index = find_in(state.interfaces_by_index, wanted.index);
  return (by_name != nullptr && by_name != self) || (by_index != nullptr && by_index != self);
}

template <typename State>
void enter(State& state, Interface* interface) {
  state.interfaces_by_name.insert(interface);
  state.interfaces_by_index.insert(interface);
}

template <typename State>
void take_out(State& state, Interface* interface) {
  state.interfaces_by_name.erase(interface);
  state.interfaces_by_index.erase(interface);
}

// The name that all members of the VRF share, for one more of them.
template <typename State>
SharedText join(State& state, std::string_view vrf) {
  auto member = state.members.find(vrf);
  if (member == state.members.end()) member = state.members.emplace(vrf, 0).first;
  ++member->second;
  return member->first;
}

template <typename State>
void leave(State& state, std::string_view vrf) {
  const auto member = state.members.find(vrf);
  if (--member->second == 0) state.members.erase(member);
}

// A copy that shares nothing with the source, whose blocks are among the memory of a whole configuration that
// it frees: each block that stayed in use would keep a page of it.
Interface own_copy(const Interface& interface) {
  Interface copy = interface;
  copy.name = interface.name.view();
  copy.description = interface.description.view();
  copy.addresses = interface.addresses.values();
  copy.ipv4_details = std::vector<Ipv4Detail>(interface.ipv4_details.begin(), interface.ipv4_details.end());
  return copy;
}

}  // namespace

SharedText default_vrf_name() {
  static const SharedText name = kDefaultVrf;
  return name;
}

Status Router::add_interface(const Interface& interface, std::uint32_t* handle) {
  if (Status status = state_->may_change("router_add_interface")) return status;
  if (!valid_interface(interface) || !valid_vrf_name(interface.vrf)) return kStatusInvalid;
  if (name_or_index_taken(*state_, interface, nullptr)) return kStatusExists;
  do {
    ++state_->last_handle;
  } while (state_->last_handle == 0 || state_->interfaces.contains(state_->last_handle));
  auto& owner = state_->interfaces[state_->last_handle];
  owner = std::make_unique<Interface>(own_copy(interface));
  Interface& stored = *owner;
  stored.handle = state_->last_handle;
  stored.vrf = join(*state_, interface.vrf);
  enter(*state_, &stored);
  if (handle != nullptr) *handle = stored.handle;
  state_->notify_records_first([&stored](Observer& observer) { observer.interface_added(stored); });
  return kStatusOk;
}

Status Router::change_interface(const Interface& interface) {
  if (Status status = state_->may_change("router_change_interface")) return status;
  Interface* const stored = find_by_handle(*state_, interface.handle);
  if (stored == nullptr) return kStatusNoSuchRow;
  if (!valid_interface(interface)) return kStatusInvalid;
  if (name_or_index_taken(*state_, interface, stored)) return kStatusExists;
  Interface next = own_copy(interface);
  next.vrf = stored->vrf;
  if (next.name == stored->name) next.name = stored->name;  // which services share
  if (next == *stored) return kStatusOk;
  state_->notify_before_change([&](Observer& observer) { observer.interface_changing(*stored, next); });
  take_out(*state_, stored);
  const Interface before = std::exchange(*stored, std::move(next));
  enter(*state_, stored);
  state_->notify_records_first([&](Observer& observer) { observer.interface_changed(before, *stored); });
  return kStatusOk;
}

Status Router::remove_interface(std::uint32_t handle) {
  if (Status status = state_->may_change("router_remove_interface")) return status;
  const auto found = state_->interfaces.find(handle);
  if (found == state_->interfaces.end()) return kStatusNoSuchRow;
  const std::unique_ptr<Interface> taken = std::move(found->second);
  take_out(*state_, taken.get());
  state_->interfaces.erase(found);
  leave(*state_, taken->vrf);
  state_->notify_records_last([&taken](Observer& observer) { observer.interface_removed(*taken); });
  return kStatusOk;
}

Status Router::move_interface(std::uint32_t handle, std::string_view vrf) {
  if (Status status = state_->may_change("router_move_interface")) return status;
  Interface* const stored = find_by_handle(*state_, handle);
  if (stored == nullptr) return kStatusNoSuchRow;
  if (!valid_vrf_name(vrf)) return kStatusInvalid;
  if (stored->vrf == vrf) return kStatusOk;
  const std::string from = std::exchange(stored->vrf, join(*state_, vrf));
  leave(*state_, from);
  state_->notify_records_last([&](Observer& observer) { observer.interface_moved(*stored, from); });
  return kStatusOk;
}

const Interface* Router::find_interface(std::uint32_t handle) const {
  return find_by_handle(*state_, handle);
}

const Interface* Router::find_interface_by_name(std::string_view name) const {
  return find_in(state_->interfaces_by_name, name);
}

const Interface* Router::find_interface_by_index(std::uint32_t index) const {
  return find_in(state_->interfaces_by_index, index);
}

std::size_t Router::interface_count() const {
  return state_->interfaces.size();
}

void Router::for_each_interface(const std::function<void(const Interface&)>& visit) const {
  state_->visit_all(state_->interfaces, [&visit](const auto& interface) { visit(*interface); });
}

const Interface* Router::interface_after(std::uint32_t handle) const {
  const auto next = state_->interfaces.upper_bound(handle);
  return next == state_->interfaces.end() ? nullptr : next->second.get();
}

const Interface* Router::interface_after_name(std::string_view name) const {
  const auto next = state_->interfaces_by_name.upper_bound(name);
  return next == state_->interfaces_by_name.end() ? nullptr : *next;
}

}  // namespace router

// A change has three steps: validate it, change the maps, notify the observers. Only the first step can
// fail, so an observer never sees half a change. Observers are also notified of a VRF's change before the
// second step, while they can still look up what the change removes.
//
// "default" is an ordinary entry of the VRF map that is made in the constructor and cannot be created,
// deleted or referenced. References are a set of names beside the VRFs: a name may be in both.
#include "platform/router/model/router.h"

#include <algorithm>

#include "platform/router/model/state.h"

namespace router {
namespace {

constexpr std::uint32_t kDefaultVrfId = 1;

bool valid_name(std::string_view name, std::size_t longest) {
  return !name.empty() && name.size() <= longest && name.find('\0') == std::string_view::npos;
}

void open_tables(const Vrf& vrf, RouteStore* routes) {
  routes->open({Family::kIpv4, vrf.ipv4_table});
  routes->open({Family::kIpv6, vrf.ipv6_table});
}

void close_tables(const Vrf& vrf, RouteStore* routes) {
  routes->close({Family::kIpv4, vrf.ipv4_table});
  routes->close({Family::kIpv6, vrf.ipv6_table});
}

}  // namespace

bool valid_vrf_name(std::string_view name) {
  return valid_name(name, kVrfNameMax);
}

bool valid_interface_name(std::string_view name) {
  return valid_name(name, kInterfaceNameMax);
}

Router::Router() : state_(std::make_unique<State>()) {
  Vrf fallback;
  fallback.name = kDefaultVrf;
  fallback.id = kDefaultVrfId;
  Vrf& stored = state_->vrfs.emplace(fallback.name, fallback).first->second;
  state_->vrfs_by_id.emplace(stored.id, &stored);
}

Router::~Router() = default;

void Router::observe(ObserverRank rank, Observer* observer) {
  auto& list = state_->observers;
  const auto later = [rank](const auto& entry) { return entry.first > rank; };
  list.insert(std::find_if(list.begin(), list.end(), later), {rank, observer});
}

void Router::stop_observing(Observer* observer) {
  std::erase_if(state_->observers, [observer](const auto& entry) { return entry.second == observer; });
}

Status Router::create_vrf(const Vrf& vrf) {
  if (Status status = state_->may_change("router_create_vrf")) return status;
  if (!valid_vrf_name(vrf.name) || vrf.id == 0 || vrf.name == kDefaultVrf) return kStatusInvalid;
  if (state_->vrfs.contains(vrf.name) || state_->vrfs_by_id.contains(vrf.id)) return kStatusExists;
  state_->notify_before_change([&vrf](Observer& observer) { observer.vrf_changing(vrf.name, &vrf); });
  Vrf& stored = state_->vrfs.emplace(vrf.name, vrf).first->second;
  state_->vrfs_by_id.emplace(stored.id, &stored);
  open_tables(stored, &state_->routes);
  state_->notify_records_first([&stored](Observer& observer) { observer.vrf_created(stored); });
  return kStatusOk;
}

Status Router::change_vrf(const Vrf& vrf) {
  if (Status status = state_->may_change("router_change_vrf")) return status;
  if (!valid_vrf_name(vrf.name)) return kStatusInvalid;
  const auto found = state_->vrfs.find(vrf.name);
  if (found == state_->vrfs.end()) return kStatusNoSuchRow;
  Vrf next = vrf;
  next.id = found->second.id;
  if (next == found->second) return kStatusOk;
  state_->notify_before_change([&next](Observer& observer) { observer.vrf_changing(next.name, &next); });
  const Vrf before = std::exchange(found->second, std::move(next));
  const Vrf& now = found->second;
  open_tables(now, &state_->routes);  // first: a table that stays keeps its routes
  close_tables(before, &state_->routes);
  state_->notify_records_first([&](Observer& observer) { observer.vrf_changed(before, now); });
  return kStatusOk;
}

Status Router::delete_vrf(std::string_view name) {
  if (Status status = state_->may_change("router_delete_vrf")) return status;
  if (name == kDefaultVrf) return kStatusInvalid;
  const auto found = state_->vrfs.find(name);
  if (found == state_->vrfs.end()) return kStatusNoSuchRow;
  state_->notify_before_change(
      [&name = found->first](Observer& observer) { observer.vrf_changing(name, nullptr); });
  state_->vrfs_by_id.erase(found->second.id);
  const auto taken = state_->vrfs.extract(found);
  close_tables(taken.mapped(), &state_->routes);
  state_->notify_records_last([&taken](Observer& observer) { observer.vrf_deleted(taken.mapped()); });
  return kStatusOk;
}

Status Router::reference_vrf(std::string_view name, ReferenceHolder holder) {
  if (Status status = state_->may_change("router_reference_vrf")) return status;
  if (!valid_vrf_name(name) || name == kDefaultVrf) return kStatusInvalid;
  if (is_referenced(name, holder)) return kStatusExists;
  const auto [entry, is_first] = state_->references.try_emplace(std::string(name), std::uint8_t{0});
  entry->second = static_cast<std::uint8_t>(entry->second | static_cast<std::uint8_t>(holder));
  if (is_first && !state_->vrfs.contains(name)) {
    state_->notify_records_first(
        [&stored = entry->first](Observer& observer) { observer.vrf_referenced(stored); });
  }
  return kStatusOk;
}

Status Router::unreference_vrf(std::string_view name, ReferenceHolder holder) {
  if (Status status = state_->may_change("router_unreference_vrf")) return status;
  const auto found = state_->references.find(name);
  if (found == state_->references.end() || !is_referenced(name, holder)) return kStatusNoSuchRow;
  found->second = static_cast<std::uint8_t>(found->second & ~static_cast<unsigned>(holder));
  if (found->second != 0) return kStatusOk;
  const auto taken = state_->references.extract(found);
  if (!state_->vrfs.contains(taken.key())) {
    state_->notify_records_last([&taken](Observer& observer) { observer.vrf_unreferenced(taken.key()); });
  }
  return kStatusOk;
}

const Vrf* Router::find_vrf(std::string_view name) const {
  const auto found = state_->vrfs.find(name);
  return found == state_->vrfs.end() ? nullptr : &found->second;
}

const Vrf* Router::find_vrf_by_id(std::uint32_t id) const {
  const auto found = state_->vrfs_by_id.find(id);
  return found == state_->vrfs_by_id.end() ? nullptr : found->second;
}

bool Router::is_referenced(std::string_view name) const {
  return state_->references.contains(name);
}

bool Router::is_referenced(std::string_view name, ReferenceHolder holder) const {
  const auto found = state_->references.find(name);
  return found != state_->references.end() && (found->second & static_cast<std::uint8_t>(holder)) != 0;
}

void Router::set_rd_owner(std::string_view owner) {
  state_->rd_owner = owner;
}

const std::string& Router::rd_owner() const {
  return state_->rd_owner;
}

std::uint64_t Router::changes() const {
  return state_->changes;
}

std::size_t Router::vrf_count() const {
  return state_->vrfs.size() - 1;
}

void Router::for_each_vrf(const std::function<void(const Vrf&)>& visit) const {
  state_->visit_all(state_->vrfs, visit);
}

void Router::for_each_reference(const std::function<void(const std::string&)>& visit) const {
  const State::Busy guard(state_.get());
  for (const auto& [name, holders] : state_->references) visit(name);
}

const Vrf* Router::vrf_after(std::string_view name) const {
  const auto next = state_->vrfs.upper_bound(name);
  return next == state_->vrfs.end() ? nullptr : &next->second;
}

const std::string* Router::reference_after(std::string_view name) const {
  const auto next = state_->references.upper_bound(name);
  return next == state_->references.end() ? nullptr : &next->first;
}

RouteStore& Router::routes() {
  return state_->routes;
}

const RouteStore& Router::routes() const {
  return state_->routes;
}

void Router::flush_route_changes() {
  state_->routes.take_changed([this](RouteTableId table) {
    state_->notify_records_first([table](Observer& observer) { observer.routes_changed(table); });
  });
}

}  // namespace router

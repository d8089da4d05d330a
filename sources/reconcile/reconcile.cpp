// The order of the changes:
//
//   1. references are added, so that a VRF which is deleted but still referenced becomes a forward reference;
//   2. interfaces are removed;
//   3. members leave the VRFs that are deleted, except those whose wanted VRF is the deleted one, which then
//      exists by name only; then these VRFs are deleted;
//   4. VRFs are created and changed; then references end, so that a forward reference becomes the VRF;
//   5. an interface whose name another one needs is renamed to ":" and its index, which the kernel does not
//      allow as a name. So interfaces can swap their names;
//   6. interfaces are changed, moved and added in the wanted order.
//
// A refused deletion leaves the VRF as it is: the VRF that replaces it is not created.
#include "sources/reconcile/reconcile.h"

#include <array>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/router/feed/feed.h"

namespace reconcile {

namespace {

using router::Interface;
using router::Router;
using router::Vrf;

constexpr std::array kOperationTexts{
    "reference VRF", "end the reference to VRF", "create VRF",     "change VRF",      "delete VRF",
    "add interface", "change interface",         "move interface", "remove interface"};  // by Operation

bool same_details(const Interface& left, const Interface& right) {
  return left.name == right.name && left.description == right.description && left.up == right.up &&
         left.addresses == right.addresses && left.ipv4_details == right.ipv4_details;
}

}  // namespace

template <typename Change>
Status Run::make(Refusal refusal, std::size_t* counter, Change change, bool* made) {
  refusal.status = fault_check("reconcile");
  if (refusal.status == kStatusOk) refusal.status = change();
  const bool done = refusal.status == kStatusOk;
  if (done && counter != nullptr) ++*counter;
  if (made != nullptr) *made = done;
  return done ? kStatusOk : policy_->on_refusal(refusal);
}

Run::Run(WantedRouter wanted, Router* model, Policy* policy)
    : wanted_(std::move(wanted)), model_(model), policy_(policy) {
  interfaces_.reserve(wanted_.interfaces.size());
  vrfs_.reserve(wanted_.vrfs.size());
  begin_phase();
}

const std::vector<Run::Phase>& Run::phases() {
  static const std::vector<Phase> phases{
      {&Run::count<&WantedRouter::interfaces>, &Run::index_interface},
      {&Run::count<&WantedRouter::vrfs>, &Run::index_vrf},
      {&Run::count<&WantedRouter::references>, &Run::index_reference},
      {&Run::count_walk, &Run::find_ended_reference},
      {&Run::count_walk, &Run::find_removed_interface},
      {&Run::count_walk, &Run::find_deleted_vrf},
      {&Run::count<&WantedRouter::references>, &Run::add_reference},
      {&Run::count<&WantedRouter::removed_interfaces>, &Run::remove_interface},
      {&Run::count<&WantedRouter::deleted_vrfs>, &Run::index_deleted_vrf},
      {&Run::count_walk_of_members, &Run::find_leaving},
      {&Run::count_leaving, &Run::leave_vrf},
      {&Run::count<&WantedRouter::deleted_vrfs>, &Run::delete_vrf},
      {&Run::count<&WantedRouter::vrfs>, &Run::place_vrf},
      {&Run::count_one, &Run::end_vrfs},
      {&Run::count<&WantedRouter::ended_references>, &Run::end_reference},
      {&Run::count<&WantedRouter::interfaces>, &Run::free_name},
      {&Run::count<&WantedRouter::interfaces>, &Run::place_interface},
      {&Run::count<&WantedRouter::interfaces>, &Run::free_interface}};
  return phases;
}

// The first phase from phase_ on that has items.
void Run::begin_phase() {
  item_ = items_ = 0;
  last_name_.clear();
  last_handle_ = 0;
  for (; phase_ < phases().size() && items_ == 0; ++phase_) items_ = (this->*phases()[phase_].begin)();
  is_done_ = items_ == 0;
  if (!is_done_) --phase_;
}

Status Run::step(std::size_t items) {
  if (items != SIZE_MAX && feed::is_long()) return kStatusOk;
  const std::uint64_t start = clock_monotonic();
  for (; items > 0 && !is_done_ && clock_monotonic() - start < kStepTime; --items) {
    if (const Status status = (this->*phases()[phase_].visit)(item_++)) {
      is_done_ = true;
      return status;
    }
    if (item_ < items_) continue;
    ++phase_;
    begin_phase();
  }
  return kStatusOk;
}

Status Run::index_interface(std::size_t item) {
  interfaces_.emplace(wanted_.interfaces[item].index, &wanted_.interfaces[item]);
  return kStatusOk;
}

Status Run::index_vrf(std::size_t item) {
  const Vrf& wanted = wanted_.vrfs[item].vrf;
  vrfs_.emplace(wanted.name, wanted.id);
  return kStatusOk;
}

Status Run::index_reference(std::size_t item) {
  references_.insert(wanted_.references[item]);
  return kStatusOk;
}

Status Run::find_ended_reference(std::size_t /*item*/) {
  const std::string* name = model_->reference_after(last_name_);
  if (name == nullptr) return kStatusOk;
  ++items_;
  last_name_ = *name;
  const bool is_ours = model_->is_referenced(*name, router::ReferenceHolder::kSource);
  if (is_ours && !references_.contains(*name)) wanted_.ended_references.push_back(*name);
  return kStatusOk;
}

Status Run::find_removed_interface(std::size_t /*item*/) {
  const Interface* present = model_->interface_after(last_handle_);
  if (present == nullptr) return kStatusOk;
  ++items_;
  last_handle_ = present->handle;
  if (!interfaces_.contains(present->index)) wanted_.removed_interfaces.push_back(present->index);
  return kStatusOk;
}

Status Run::find_deleted_vrf(std::size_t /*item*/) {
  const Vrf* present = model_->vrf_after(last_name_);
  if (present == nullptr) return kStatusOk;
  ++items_;
  last_name_ = present->name;
  const auto wanted = vrfs_.find(present->name);
  const bool stays = wanted != vrfs_.end() && wanted->second == present->id;
  if (!stays && present->name != router::kDefaultVrf) wanted_.deleted_vrfs.push_back(present->name);
  return kStatusOk;
}

Status Run::add_reference(std::size_t item) {
  const std::string& name = wanted_.references[item];
  if (model_->is_referenced(name, router::ReferenceHolder::kSource)) return kStatusOk;
  return make({Operation::kReferenceVrf, name}, nullptr, [&] { return model_->reference_vrf(name); });
}

Status Run::remove_interface(std::size_t item) {
  const std::uint32_t index = wanted_.removed_interfaces[item];
  const Interface* present = model_->find_interface_by_index(index);
  if (present == nullptr) return kStatusOk;
  const auto change = [&] { return model_->remove_interface(present->handle); };
  return make({Operation::kRemoveInterface, present->name, index}, &changes_.interfaces_removed, change);
}

const Interface* Run::wanted_interface(std::uint32_t index) const {
  const auto found = interfaces_.find(index);
  return found == interfaces_.end() ? nullptr : found->second;
}

bool Run::leaves(const Interface& member) const {
  const Interface* future = wanted_interface(member.index);
  return future == nullptr || future->vrf != member.vrf || vrfs_.contains(member.vrf);
}

Status Run::index_deleted_vrf(std::size_t item) {
  deleted_vrfs_.insert(wanted_.deleted_vrfs[item]);
  return kStatusOk;
}

std::size_t Run::count_walk_of_members() {
  return deleted_vrfs_.empty() ? 0 : 1;
}

Status Run::find_leaving(std::size_t /*item*/) {
  const Interface* present = model_->interface_after(last_handle_);
  if (present == nullptr) return kStatusOk;
  ++items_;
  last_handle_ = present->handle;
  if (deleted_vrfs_.contains(present->vrf) && leaves(*present)) leaving_.push_back(present->index);
  return kStatusOk;
}

// A member that joins another VRF afterwards is counted then.
Status Run::leave_vrf(std::size_t item) {
  const Interface* present = model_->find_interface_by_index(leaving_[item]);
  if (present == nullptr) return kStatusOk;
  const Interface& member = *present;
  const std::string vrf = member.vrf;
  const Interface* future = wanted_interface(member.index);
  const bool stays_out = future == nullptr || future->vrf == router::kDefaultVrf;
  const auto change = [&] { return model_->move_interface(member.handle, router::kDefaultVrf); };
  bool left = false;
  const Status status = make({Operation::kMoveInterface, member.name, member.index, vrf},
                             stays_out ? &changes_.interfaces_moved : nullptr, change, &left);
  if (!left) undeleted_.insert(vrf);
  return status;
}

Status Run::delete_vrf(std::size_t item) {
  const std::string& name = wanted_.deleted_vrfs[item];
  if (undeleted_.contains(name)) return kStatusOk;
  bool deleted = false;
  const auto change = [&] { return model_->delete_vrf(name); };
  const Status status = make({Operation::kDeleteVrf, name}, &changes_.vrfs_deleted, change, &deleted);
  if (!deleted) undeleted_.insert(name);
  return status;
}

Status Run::end_vrfs(std::size_t /*item*/) {
  policy_->on_vrfs_done(changes_);
  return kStatusOk;
}

Status Run::place_vrf(std::size_t item) {
  const WantedVrf& wanted = wanted_.vrfs[item];
  const std::string& name = wanted.vrf.name;
  const Vrf* present = model_->find_vrf(name);
  if (present == nullptr || present->id != wanted.vrf.id) return create_vrf(wanted);
  if (*present == wanted.vrf) return kStatusOk;
  const auto change = [&] { return model_->change_vrf(wanted.vrf); };
  return make({Operation::kChangeVrf, name}, &changes_.vrfs_changed, change);
}

Status Run::create_vrf(const WantedVrf& wanted) {
  const auto change = [&] {
    if (undeleted_.contains(wanted.replaces)) return kStatusExists;
    Vrf vrf = wanted.vrf;
    if (vrf.id == 0) vrf.id = policy_->choose_id(vrf);
    return model_->create_vrf(vrf);
  };
  return make({Operation::kCreateVrf, wanted.vrf.name}, &changes_.vrfs_created, change);
}

Status Run::end_reference(std::size_t item) {
  const std::string& name = wanted_.ended_references[item];
  return make({Operation::kEndReference, name}, nullptr, [&] { return model_->unreference_vrf(name); });
}

Status Run::free_name(std::size_t item) {
  const Interface& wanted = wanted_.interfaces[item];
  const Interface* owner = model_->find_interface_by_name(wanted.name);
  if (owner == nullptr || owner->index == wanted.index) return kStatusOk;
  Interface renamed = *owner;
  renamed.name = temporary_name(owner->index);
  const auto change = [&] { return model_->change_interface(renamed); };
  return make({Operation::kChangeInterface, owner->name, owner->index}, nullptr, change);
}

SharedText Run::vrf_of(const Interface& wanted) const {
  const bool exists = model_->find_vrf(wanted.vrf) != nullptr;
  return exists || policy_->allows_missing_vrfs() ? wanted.vrf : router::default_vrf_name();
}

Status Run::place_interface(std::size_t item) {
  const Interface& wanted = wanted_.interfaces[item];
  Interface changed = wanted;
  changed.vrf = vrf_of(wanted);
  const Interface* present = model_->find_interface_by_index(wanted.index);
  if (present == nullptr) {
    const auto change = [&] { return model_->add_interface(changed); };
    return make({Operation::kAddInterface, wanted.name, wanted.index}, &changes_.interfaces_added, change);
  }
  changed.handle = present->handle;
  const bool moves = present->vrf != changed.vrf;  // a change may invalidate *present
  bool made = true;
  if (!same_details(*present, changed)) {
    const auto change = [&] { return model_->change_interface(changed); };
    const Status status = make({Operation::kChangeInterface, wanted.name, wanted.index},
                               &changes_.interfaces_changed, change, &made);
    if (status) return status;
  }
  return moves && made ? move_interface(changed) : kStatusOk;
}

// The end of a run would take as long as its beginning if everything were freed at once.
Status Run::free_interface(std::size_t item) {
  interfaces_.erase(wanted_.interfaces[item].index);
  wanted_.interfaces[item] = {};
  return kStatusOk;
}

Status Run::move_interface(const Interface& changed) {
  const auto move = [&] { return model_->move_interface(changed.handle, changed.vrf); };
  return make({Operation::kMoveInterface, changed.name, changed.index}, &changes_.interfaces_moved, move);
}

std::string Refusal::text() const {
  return "cannot " + std::string(kOperationTexts.at(static_cast<std::size_t>(operation))) + " " + name +
         ": " + err_text(status);
}

std::string temporary_name(std::uint32_t index) {
  return ":" + std::to_string(index);
}

Status run(WantedRouter wanted, Router* model, Policy* policy, Changes* changes) {
  Run all(std::move(wanted), model, policy);
  Status status = kStatusOk;
  while (status == kStatusOk && !all.is_done()) status = all.step(SIZE_MAX);
  *changes = all.changes();
  return status;
}

}  // namespace reconcile

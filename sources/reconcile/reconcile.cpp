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
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "platform/core/base/fault.h"

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

class Run {
 public:
  Run(const WantedRouter& wanted, Router* model, Policy* policy, Changes* changes)
      : wanted_(wanted), model_(model), policy_(policy), changes_(changes) {
    for (const Interface& interface : wanted.interfaces) interfaces_.emplace(interface.index, &interface);
    for (const WantedVrf& each : wanted.vrfs) vrfs_.insert(each.vrf.name);
  }

  Status all() {
    using Step = Status (Run::*)();
    for (const Step step :
         {&Run::add_references, &Run::remove_interfaces, &Run::empty_vrfs, &Run::delete_vrfs,
          &Run::place_vrfs, &Run::end_references, &Run::free_names, &Run::place_interfaces}) {
      if (const Status status = (this->*step)()) return status;
    }
    return kStatusOk;
  }

 private:
  Status add_references();
  Status remove_interfaces();
  Status empty_vrfs();
  Status leave_vrf(const Interface& member);
  Status delete_vrfs();
  Status place_vrfs();
  Status place_vrf(const WantedVrf& wanted);
  Status create_vrf(const WantedVrf& wanted);
  Status end_references();
  Status free_names();
  Status place_interfaces();
  Status place_interface(const Interface& wanted);
  Status move_interface(const Interface& changed);

  bool leaves(const Interface& member) const;
  const Interface* wanted_interface(std::uint32_t index) const;
  std::string vrf_of(const Interface& wanted) const;

  // Makes one change. A refused one is reported: *made says whether the change was made.
  template <typename Change>
  Status make(Refusal refusal, std::size_t* counter, Change change, bool* made = nullptr);

  const WantedRouter& wanted_;
  Router* model_;
  Policy* policy_;
  Changes* changes_;
  std::unordered_map<std::uint32_t, const Interface*> interfaces_;  // wanted
  std::unordered_set<std::string_view> vrfs_;                       // wanted
  std::set<std::string> undeleted_;  // VRFs whose deletion is refused, or impossible with a member
};

template <typename Change>
Status Run::make(Refusal refusal, std::size_t* counter, Change change, bool* made) {
  refusal.status = fault_check("reconcile");
  if (refusal.status == kStatusOk) refusal.status = change();
  const bool done = refusal.status == kStatusOk;
  if (done && counter != nullptr) ++*counter;
  if (made != nullptr) *made = done;
  return done ? kStatusOk : policy_->on_refusal(refusal);
}

Status Run::add_references() {
  for (const std::string& name : wanted_.references) {
    if (model_->is_referenced(name, router::ReferenceHolder::kSource)) continue;
    const auto change = [&] { return model_->reference_vrf(name); };
    if (const Status status = make({Operation::kReferenceVrf, name}, nullptr, change)) return status;
  }
  return kStatusOk;
}

Status Run::remove_interfaces() {
  for (const std::uint32_t index : wanted_.removed_interfaces) {
    const Interface* present = model_->find_interface_by_index(index);
    if (present == nullptr) continue;
    const Refusal refusal{Operation::kRemoveInterface, present->name, index};
    const auto change = [&] { return model_->remove_interface(present->handle); };
    if (const Status status = make(refusal, &changes_->interfaces_removed, change)) return status;
  }
  return kStatusOk;
}

const Interface* Run::wanted_interface(std::uint32_t index) const {
  const auto found = interfaces_.find(index);
  return found == interfaces_.end() ? nullptr : found->second;
}

bool Run::leaves(const Interface& member) const {
  const Interface* future = wanted_interface(member.index);
  return future == nullptr || future->vrf != member.vrf || vrfs_.contains(member.vrf);
}

// The model must not change while it is visited.
Status Run::empty_vrfs() {
  if (wanted_.deleted_vrfs.empty()) return kStatusOk;
  const std::unordered_set<std::string_view> deleted(wanted_.deleted_vrfs.begin(),
                                                     wanted_.deleted_vrfs.end());
  std::vector<const Interface*> leaving;
  model_->for_each_interface([&](const Interface& present) {
    if (deleted.contains(present.vrf) && leaves(present)) leaving.push_back(&present);
  });
  for (const Interface* member : leaving) {
    if (const Status status = leave_vrf(*member)) return status;
  }
  return kStatusOk;
}

// A member that joins another VRF afterwards is counted then.
Status Run::leave_vrf(const Interface& member) {
  const std::string vrf = member.vrf;
  const Interface* future = wanted_interface(member.index);
  const bool stays_out = future == nullptr || future->vrf == router::kDefaultVrf;
  const auto change = [&] { return model_->move_interface(member.handle, router::kDefaultVrf); };
  bool left = false;
  const Status status = make({Operation::kMoveInterface, member.name, member.index, vrf},
                             stays_out ? &changes_->interfaces_moved : nullptr, change, &left);
  if (!left) undeleted_.insert(vrf);
  return status;
}

Status Run::delete_vrfs() {
  for (const std::string& name : wanted_.deleted_vrfs) {
    if (undeleted_.contains(name)) continue;
    const auto change = [&] { return model_->delete_vrf(name); };
    bool deleted = false;
    const Status status = make({Operation::kDeleteVrf, name}, &changes_->vrfs_deleted, change, &deleted);
    if (!deleted) undeleted_.insert(name);
    if (status) return status;
  }
  return kStatusOk;
}

Status Run::place_vrfs() {
  for (const WantedVrf& wanted : wanted_.vrfs) {
    if (const Status status = place_vrf(wanted)) return status;
  }
  policy_->on_vrfs_done(*changes_);
  return kStatusOk;
}

Status Run::place_vrf(const WantedVrf& wanted) {
  const std::string& name = wanted.vrf.name;
  const Vrf* present = model_->find_vrf(name);
  if (present == nullptr || present->id != wanted.vrf.id) return create_vrf(wanted);
  if (*present == wanted.vrf) return kStatusOk;
  const auto change = [&] { return model_->change_vrf(wanted.vrf); };
  return make({Operation::kChangeVrf, name}, &changes_->vrfs_changed, change);
}

Status Run::create_vrf(const WantedVrf& wanted) {
  const auto change = [&] {
    if (undeleted_.contains(wanted.replaces)) return kStatusExists;
    Vrf vrf = wanted.vrf;
    if (vrf.id == 0) vrf.id = policy_->choose_id(vrf);
    return model_->create_vrf(vrf);
  };
  return make({Operation::kCreateVrf, wanted.vrf.name}, &changes_->vrfs_created, change);
}

Status Run::end_references() {
  for (const std::string& name : wanted_.ended_references) {
    const auto change = [&] { return model_->unreference_vrf(name); };
    if (const Status status = make({Operation::kEndReference, name}, nullptr, change)) return status;
  }
  return kStatusOk;
}

Status Run::free_names() {
  for (const Interface& wanted : wanted_.interfaces) {
    const Interface* owner = model_->find_interface_by_name(wanted.name);
    if (owner == nullptr || owner->index == wanted.index) continue;
    Interface renamed = *owner;
    renamed.name = temporary_name(owner->index);
    const Refusal refusal{Operation::kChangeInterface, owner->name, owner->index};
    const auto change = [&] { return model_->change_interface(renamed); };
    if (const Status status = make(refusal, nullptr, change)) return status;
  }
  return kStatusOk;
}

Status Run::place_interfaces() {
  for (const Interface& wanted : wanted_.interfaces) {
    if (const Status status = place_interface(wanted)) return status;
  }
  return kStatusOk;
}

std::string Run::vrf_of(const Interface& wanted) const {
  const bool exists = model_->find_vrf(wanted.vrf) != nullptr;
  return exists || policy_->allows_missing_vrfs() ? wanted.vrf : std::string(router::kDefaultVrf);
}

Status Run::place_interface(const Interface& wanted) {
  Interface changed = wanted;
  changed.vrf = vrf_of(wanted);
  const Interface* present = model_->find_interface_by_index(wanted.index);
  if (present == nullptr) {
    const auto change = [&] { return model_->add_interface(changed); };
    return make({Operation::kAddInterface, wanted.name, wanted.index}, &changes_->interfaces_added, change);
  }
  changed.handle = present->handle;
  const bool moves = present->vrf != changed.vrf;  // a change may invalidate *present
  bool made = true;
  if (!same_details(*present, changed)) {
    const auto change = [&] { return model_->change_interface(changed); };
    const Status status = make({Operation::kChangeInterface, wanted.name, wanted.index},
                               &changes_->interfaces_changed, change, &made);
    if (status) return status;
  }
  return moves && made ? move_interface(changed) : kStatusOk;
}

Status Run::move_interface(const Interface& changed) {
  const auto move = [&] { return model_->move_interface(changed.handle, changed.vrf); };
  return make({Operation::kMoveInterface, changed.name, changed.index}, &changes_->interfaces_moved, move);
}

}  // namespace

std::string Refusal::text() const {
  return "cannot " + std::string(kOperationTexts.at(static_cast<std::size_t>(operation))) + " " + name +
         ": " + err_text(status);
}

std::string temporary_name(std::uint32_t index) {
  return ":" + std::to_string(index);
}

Status run(const WantedRouter& wanted, Router* model, Policy* policy, Changes* changes) {
  *changes = Changes{};
  return Run(wanted, model, policy, changes).all();
}

}  // namespace reconcile

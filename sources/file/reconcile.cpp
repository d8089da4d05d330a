// See reconcile.h. The order of the steps gives observers the story that a router would tell:
//
//   1. references are made, so that a VRF that is deleted but stays named goes back to a forward reference;
//   2. interfaces that are gone are removed, then those whose new name another one still has;
//   3. interfaces leave the VRFs that will be deleted, unless the file leaves them there (a membership may
//   name a VRF
//      that does not exist);
//   4. VRFs are deleted, created and changed; then references that ended are taken back, so that a forward
//   reference
//      turns into the VRF in place;
//   5. interfaces are changed, moved and added, in the order of the file.
//
// The model forbids changes while it is being visited, so each step first lists what it is about.
#include "sources/file/reconcile.h"

#include <functional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/core/base/fault.h"

namespace router_file {

namespace {

using router::Interface;
using router::Router;
using router::Vrf;

bool same_details(const Vrf& left, const Vrf& right) {
  return left.ipv4_table == right.ipv4_table && left.ipv6_table == right.ipv6_table &&
         left.ipv4_multicast_table == right.ipv4_multicast_table &&
         left.ipv6_multicast_table == right.ipv6_multicast_table && left.flags == right.flags &&
         left.description == right.description && left.rd == right.rd;
}

bool same_details(const Interface& left, const Interface& right) {
  return left.name == right.name && left.description == right.description && left.up == right.up &&
         left.addresses == right.addresses;
}

class Reconciler {
 public:
  Reconciler(const RouterFile& file, Router* model, Changes* changes, std::string* error)
      : file_(file), model_(model), changes_(changes), error_(error) {
    for (const Vrf& vrf : file.vrfs) wanted_vrfs_.emplace(vrf.name, &vrf);
    for (const std::string& name : file.references) wanted_references_.insert(name);
    for (const Interface& interface : file.interfaces)
      wanted_interfaces_.emplace(interface.index, &interface);
  }

  Status run() {
    using Step = Status (Reconciler::*)();
    for (const Step step : {&Reconciler::add_references, &Reconciler::remove_interfaces,
                            &Reconciler::empty_old_vrfs, &Reconciler::delete_vrfs, &Reconciler::create_vrfs,
                            &Reconciler::end_references, &Reconciler::place_interfaces}) {
      if (const Status status = (this->*step)()) return status;
    }
    return kStatusOk;
  }

 private:
  Status add_references();
  Status remove_interfaces();
  Status empty_old_vrfs();
  Status delete_vrfs();
  Status create_vrfs();
  Status end_references();
  Status place_interfaces();

  Status remove_where(const std::function<bool(const Interface&)>& goes);
  Status place_interface(const Interface& wanted);
  // What the model's interface will be; null when it will be gone.
  const Interface* future_of(const Interface& present) const;
  bool vrf_stays(const Vrf& present) const;
  bool leaves_old_vrf(const Interface& present) const;
  Status add_interface(const Interface& wanted);
  // Makes one change and counts it; `what` and `name` say what was refused.
  template <typename Change>
  Status make(std::size_t* counter, std::string_view what, const std::string& name, Change change);

  const RouterFile& file_;
  Router* model_;
  Changes* changes_;
  std::string* error_;
  std::unordered_map<std::string_view, const Vrf*> wanted_vrfs_;
  std::unordered_set<std::string_view> wanted_references_;
  std::unordered_map<std::uint32_t, const Interface*> wanted_interfaces_;
};

template <typename Change>
Status Reconciler::make(std::size_t* counter, std::string_view what, const std::string& name, Change change) {
  Status status = fault_check("router_file_reconcile");
  if (status == kStatusOk) status = change();
  if (status == kStatusOk) {
    if (counter != nullptr) ++*counter;
    return kStatusOk;
  }
  *error_ = "cannot " + std::string(what) + " " + name + ": " + err_text(status);
  return status;
}

Status Reconciler::add_references() {
  for (const std::string& name : file_.references) {
    if (model_->is_referenced(name, router::ReferenceHolder::kSource)) continue;
    const auto change = [&] { return model_->reference_vrf(name); };
    if (const Status status = make(nullptr, "name VRF", name, change)) return status;
  }
  return kStatusOk;
}

Status Reconciler::end_references() {
  std::vector<std::string> ended;
  model_->for_each_reference([&](const std::string& name) {
    const bool is_ours = model_->is_referenced(name, router::ReferenceHolder::kSource);
    if (is_ours && !wanted_references_.contains(name)) ended.push_back(name);
  });
  for (const std::string& name : ended) {
    const auto change = [&] { return model_->unreference_vrf(name); };
    if (const Status status = make(nullptr, "end the naming of VRF", name, change)) return status;
  }
  return kStatusOk;
}

const Interface* Reconciler::future_of(const Interface& present) const {
  const auto wanted = wanted_interfaces_.find(present.index);
  return wanted == wanted_interfaces_.end() ? nullptr : wanted->second;
}

Status Reconciler::remove_where(const std::function<bool(const Interface&)>& goes) {
  std::vector<const Interface*> going;
  model_->for_each_interface([&](const Interface& present) {
    if (goes(present)) going.push_back(&present);
  });
  for (const Interface* interface : going) {
    const std::string name = interface->name;
    const auto change = [&] { return model_->remove_interface(interface->handle); };
    if (const Status status = make(&changes_->interfaces_removed, "remove interface", name, change))
      return status;
  }
  return kStatusOk;
}

Status Reconciler::remove_interfaces() {
  const auto is_gone = [this](const Interface& present) { return future_of(present) == nullptr; };
  if (const Status status = remove_where(is_gone)) return status;
  return remove_where([this](const Interface& present) {
    const std::string& name = future_of(present)->name;
    return name != present.name && model_->find_interface_by_name(name) != nullptr;
  });
}

bool Reconciler::vrf_stays(const Vrf& present) const {
  if (present.name == router::kDefaultVrf) return true;
  const auto wanted = wanted_vrfs_.find(present.name);
  return wanted != wanted_vrfs_.end() && wanted->second->id == present.id;
}

bool Reconciler::leaves_old_vrf(const Interface& present) const {
  const Vrf* vrf = model_->find_vrf(present.vrf);
  if (vrf == nullptr || vrf_stays(*vrf)) return false;
  const Interface* future = future_of(present);
  return future->vrf != present.vrf || wanted_vrfs_.contains(present.vrf);
}

Status Reconciler::empty_old_vrfs() {
  std::vector<const Interface*> leaving;
  model_->for_each_interface([&](const Interface& present) {
    if (leaves_old_vrf(present)) leaving.push_back(&present);
  });
  for (const Interface* interface : leaving) {
    // One that joins another VRF is counted when it joins.
    const bool ends_here = future_of(*interface)->vrf == router::kDefaultVrf;
    std::size_t* counter = ends_here ? &changes_->interfaces_moved : nullptr;
    const auto change = [&] { return model_->move_interface(interface->handle, router::kDefaultVrf); };
    if (const Status status = make(counter, "take out of its VRF interface", interface->name, change))
      return status;
  }
  return kStatusOk;
}

Status Reconciler::delete_vrfs() {
  std::vector<std::string> going;
  model_->for_each_vrf([&](const Vrf& present) {
    if (!vrf_stays(present)) going.push_back(present.name);
  });
  for (const std::string& name : going) {
    const auto change = [&] { return model_->delete_vrf(name); };
    if (const Status status = make(&changes_->vrfs_deleted, "delete VRF", name, change)) return status;
  }
  return kStatusOk;
}

Status Reconciler::create_vrfs() {
  for (const Vrf& wanted : file_.vrfs) {
    Status status = kStatusOk;
    const Vrf* present = model_->find_vrf(wanted.name);
    if (present == nullptr) {
      status = make(&changes_->vrfs_created, "create VRF", wanted.name,
                    [&] { return model_->create_vrf(wanted); });
    } else if (!same_details(*present, wanted)) {
      status = make(&changes_->vrfs_changed, "change VRF", wanted.name,
                    [&] { return model_->change_vrf(wanted); });
    }
    if (status) return status;
  }
  return kStatusOk;
}

Status Reconciler::place_interfaces() {
  for (const Interface& wanted : file_.interfaces) {
    if (const Status status = place_interface(wanted)) return status;
  }
  return kStatusOk;
}

Status Reconciler::place_interface(const Interface& wanted) {
  const Interface* present = model_->find_interface_by_index(wanted.index);
  if (present == nullptr) return add_interface(wanted);
  Interface changed = wanted;
  changed.handle = present->handle;
  const bool moves = present->vrf != wanted.vrf;  // asked now: a change may replace *present
  if (!same_details(*present, wanted)) {
    const auto change = [&] { return model_->change_interface(changed); };
    if (const Status status = make(&changes_->interfaces_changed, "change interface", wanted.name, change)) {
      return status;
    }
  }
  if (!moves) return kStatusOk;
  const auto move = [&] { return model_->move_interface(changed.handle, wanted.vrf); };
  return make(&changes_->interfaces_moved, "move interface", wanted.name, move);
}

Status Reconciler::add_interface(const Interface& wanted) {
  const auto change = [&] { return model_->add_interface(wanted); };
  return make(&changes_->interfaces_added, "add interface", wanted.name, change);
}

void append_count(std::size_t count, const char* thing, const char* verb, std::string* text) {
  if (count == 0) return;
  if (!text->empty()) *text += ", ";
  *text += std::to_string(count) + " " + thing + (count == 1 ? " " : "s ") + verb;
}

}  // namespace

Status reconcile(const RouterFile& file, Router* model, Changes* changes, std::string* error) {
  *changes = Changes{};
  return Reconciler(file, model, changes, error).run();
}

std::string changes_text(const Changes& changes, const RouteChanges& routes) {
  std::string text;
  append_count(changes.vrfs_created, "VRF", "created", &text);
  append_count(changes.vrfs_changed, "VRF", "changed", &text);
  append_count(changes.vrfs_deleted, "VRF", "deleted", &text);
  append_count(changes.interfaces_added, "interface", "added", &text);
  append_count(changes.interfaces_changed, "interface", "changed", &text);
  append_count(changes.interfaces_moved, "interface", "moved", &text);
  append_count(changes.interfaces_removed, "interface", "removed", &text);
  append_count(routes.added, "route", "added", &text);
  append_count(routes.changed, "route", "changed", &text);
  append_count(routes.removed, "route", "removed", &text);
  return text.empty() ? kNothingChanged : text;
}

}  // namespace router_file

// The order of the model's calls (see reconcile.h).
//
// A batch of kernel events says where everything ended up, not how it got there; the model, however, is told
// one step at a time and checks each. The order of the steps is therefore ours:
//   1. interfaces whose link went away (or became another link under the same index) are removed;
//   2. interfaces of VRFs that will go leave them, then those VRFs are deleted: gone, renamed, or another
//   table;
//   3. new VRFs are created, lower ifIndex first, and descriptions follow;
//   4. interfaces whose name another one needs step aside: they are called ":" and their index until step 5,
//   which
//      no kernel name can be, so that two links may swap names and a freed name may be taken at once;
//   5. interfaces get their new name, state and addresses, then join; new ones are added as members.
// So a VRF exists before anything joins it and is empty when it is deleted, which is what observers count on.
//
// A link that the mirror cannot name (two links claimed the name, see mirror.cpp) keeps the name of step 4
// until a dump settles it. A VRF device of that kind is treated as not there yet.
#include "sources/kernel/links/reconcile.h"

#include <utility>

#include "platform/core/base/log.h"

namespace kernel {
namespace {

std::string stand_in_name(std::uint32_t index) {
  return ":" + std::to_string(index);
}

bool is_vrf(const Link* link) {
  return link != nullptr && link->is_vrf && !link->name.empty();
}

bool is_interface(const Link* link) {
  return link != nullptr && !link->is_vrf;
}

std::string wanted_name(const Link& link) {
  return link.name.empty() ? stand_in_name(link.index) : link.name;
}

}  // namespace

void Reconciler::run(const Mirror& mirror, const Changes& changes) {
  refused_before_ = std::exchange(refused_now_, Indexes{});
  displaced_.clear();
  Indexes indexes = refused_before_;
  indexes.insert(changes.gone.begin(), changes.gone.end());
  indexes.insert(changes.touched.begin(), changes.touched.end());
  add_dependants(mirror, &indexes);
  remove_interfaces(mirror, changes, indexes);
  delete_vrfs(mirror, changes, indexes);
  create_vrfs(mirror, indexes);
  ids_.end_start();
  ids_.keep(*model_);  // before the checkpoint writes what is saved under the ids
  free_names(mirror, indexes);
  set_interfaces(mirror, indexes);
}

// The interfaces of a VRF that appears or changes belong to what has to be looked at.
void Reconciler::add_dependants(const Mirror& mirror, Indexes* indexes) const {
  Indexes masters;
  for (const std::uint32_t index : *indexes) {
    const Link* link = mirror.find(index);
    if (vrfs_.contains(index) || (link != nullptr && link->is_vrf)) {
      masters.insert(index);
    }
  }
  if (masters.empty()) {
    return;
  }
  for (const auto& [index, link] : mirror.links()) {
    if (masters.contains(link.vrf_master)) {
      indexes->insert(index);
    }
  }
}

void Reconciler::remove_interfaces(const Mirror& mirror, const Changes& changes, const Indexes& indexes) {
  for (const std::uint32_t index : indexes) {
    const auto known = interfaces_.find(index);
    if (known == interfaces_.end() || (is_interface(mirror.find(index)) && !changes.gone.contains(index))) {
      continue;
    }
    if (accepted(model_->remove_interface(known->second), "remove interface", "", index)) {
      interfaces_.erase(known);
    }
  }
}

void Reconciler::delete_vrfs(const Mirror& mirror, const Changes& changes, const Indexes& indexes) {
  for (const std::uint32_t index : indexes) {
    const auto known = vrfs_.find(index);
    if (known == vrfs_.end()) {
      continue;
    }
    const Link* link = mirror.find(index);
    const bool stays = is_vrf(link) && !changes.gone.contains(index) && link->name == known->second.name &&
                       link->vrf_table == known->second.table;
    if (!stays) {
      const KnownVrf vrf = known->second;
      vrfs_.erase(known);
      delete_vrf(index, vrf);
    }
  }
}

void Reconciler::delete_vrf(std::uint32_t index, const KnownVrf& vrf) {
  bool empty = true;
  for (const auto& [member, handle] : interfaces_) {
    const router::Interface* interface = model_->find_interface(handle);
    if (interface == nullptr || interface->vrf != vrf.name) {
      continue;
    }
    displaced_.insert(member);
    empty =
        accepted(model_->move_interface(handle, router::kDefaultVrf), "leave VRF", vrf.name, member) && empty;
  }
  if (!empty) {
    refused_now_.insert(index);  // a VRF goes when the last interface has left it
  }
  if (!empty || !accepted(model_->delete_vrf(vrf.name), "delete VRF", vrf.name, index)) {
    vrfs_.emplace(index, vrf);
  } else {
    ids_.vrfs_changed();
  }
}

void Reconciler::create_vrfs(const Mirror& mirror, const Indexes& indexes) {
  for (const std::uint32_t index : indexes) {
    const Link* link = mirror.find(index);
    if (!is_vrf(link)) {
      continue;
    }
    const auto known = vrfs_.find(index);
    if (known == vrfs_.end()) {
      create_vrf(*link);
    } else if (known->second.name == link->name) {
      describe_vrf(known->second, *link);
    }
  }
}

void Reconciler::create_vrf(const Link& link) {
  router::Vrf vrf;
  vrf.name = link.name;
  vrf.id = ids_.choose(*model_, link.name, link.vrf_table);
  vrf.ipv4_table = link.vrf_table;
  vrf.ipv6_table = link.vrf_table;
  vrf.description = link.alias;
  if (accepted(model_->create_vrf(vrf), "create VRF", link.name, link.index)) {
    vrfs_[link.index] = KnownVrf{link.name, link.vrf_table};
    ids_.vrfs_changed();
  }
}

// Route distinguisher and flags are not the kernel's and stay.
void Reconciler::describe_vrf(const KnownVrf& vrf, const Link& link) {
  const router::Vrf* present = model_->find_vrf(vrf.name);
  if (present == nullptr || present->description == link.alias) {
    return;
  }
  router::Vrf wanted = *present;
  wanted.description = link.alias;
  (void)accepted(model_->change_vrf(wanted), "describe VRF", vrf.name, link.index);
}

void Reconciler::free_names(const Mirror& mirror, const Indexes& indexes) {
  for (const std::uint32_t index : indexes) {
    const Link* link = mirror.find(index);
    if (!is_interface(link)) {
      continue;
    }
    const router::Interface* holder = model_->find_interface_by_name(wanted_name(*link));
    if (holder == nullptr || holder->index == index || !interfaces_.contains(holder->index)) {
      continue;
    }
    router::Interface aside = *holder;
    aside.name = stand_in_name(holder->index);
    displaced_.insert(holder->index);
    (void)accepted(model_->change_interface(aside), "set aside", holder->name, holder->index);
  }
}

void Reconciler::set_interfaces(const Mirror& mirror, const Indexes& indexes) {
  Indexes all = indexes;
  all.insert(displaced_.begin(), displaced_.end());
  for (const std::uint32_t index : all) {
    const Link* link = mirror.find(index);
    const auto known = interfaces_.find(index);
    if (is_interface(link) && known != interfaces_.end()) {
      change_interface(mirror, *link, known->second);
    }
  }
  for (const std::uint32_t index : all) {
    const Link* link = mirror.find(index);
    if (is_interface(link) && !interfaces_.contains(index)) {
      add_interface(mirror, *link);
    }
  }
}

std::string Reconciler::wanted_vrf(const Mirror& mirror, const Link& link) const {
  const auto master = vrfs_.find(link.vrf_master);
  if (link.vrf_master == 0 || master == vrfs_.end() || !is_vrf(mirror.find(link.vrf_master))) {
    return std::string(router::kDefaultVrf);
  }
  return master->second.name;
}

router::Interface Reconciler::wanted_interface(const Mirror& mirror, const Link& link) const {
  router::Interface interface;
  interface.index = link.index;
  interface.name = wanted_name(link);
  interface.description = link.alias;
  interface.vrf = wanted_vrf(mirror, link);
  interface.up = link.up;
  interface.addresses = mirror.addresses(link.index);
  interface.ipv4_details = mirror.ipv4_details(link.index);
  return interface;
}

void Reconciler::add_interface(const Mirror& mirror, const Link& link) {
  std::uint32_t handle = 0;
  const router::Interface wanted = wanted_interface(mirror, link);
  if (accepted(model_->add_interface(wanted, &handle), "add interface", wanted.name, link.index)) {
    interfaces_[link.index] = handle;
  }
}

void Reconciler::change_interface(const Mirror& mirror, const Link& link, std::uint32_t handle) {
  router::Interface wanted = wanted_interface(mirror, link);
  wanted.handle = handle;
  if (accepted(model_->change_interface(wanted), "change interface", wanted.name, link.index)) {
    (void)accepted(model_->move_interface(handle, wanted.vrf), "join VRF", wanted.vrf, link.index);
  }
}

bool Reconciler::accepted(Status status, const char* operation, std::string_view name, std::uint32_t index) {
  if (status == kStatusOk) {
    return true;
  }
  ++refused_;
  refused_now_.insert(index);
  if (refused_before_.contains(index)) {
    return false;  // said when it happened first
  }
  log_line("kernel: %s: '%.*s' (ifIndex %u): %s", operation, static_cast<int>(name.size()), name.data(),
           index, err_text(status));
  return false;
}

}  // namespace kernel

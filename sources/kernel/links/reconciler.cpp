// The mirror has the result of a burst of kernel events, not its steps; reconcile.h makes the steps.
//
// A link whose name is ambiguous (mirror.cpp) has the temporary name until a dump resolves it. Such a VRF
// device is treated as missing.
#include "sources/kernel/links/reconciler.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/core/base/log.h"

namespace kernel {
namespace {

using reconcile::Operation;
using reconcile::Refusal;
using reconcile::WantedRouter;

bool is_vrf(const Link* link) {
  return link != nullptr && link->is_vrf && !link->name.empty();
}

bool is_interface(const Link* link) {
  return link != nullptr && !link->is_vrf;
}

std::string wanted_name(const Link& link) {
  return link.name.empty() ? reconcile::temporary_name(link.index) : link.name;
}

std::string wanted_vrf(const Mirror& mirror, const Link& link) {
  const Link* master = link.vrf_master == 0 ? nullptr : mirror.find(link.vrf_master);
  return is_vrf(master) ? master->name : std::string(router::kDefaultVrf);
}

router::Interface wanted_interface(const Mirror& mirror, const Link& link) {
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

}  // namespace

void Reconciler::run(const Mirror& mirror, const Changes& changes) {
  begin(mirror, changes);
  while (!is_done()) step(SIZE_MAX);
}

void Reconciler::begin(const Mirror& mirror, const Changes& changes) {
  refused_before_ = std::exchange(refused_now_, Indexes{});
  deleted_vrfs_.clear();
  created_vrfs_.clear();
  created_tables_.clear();
  Indexes indexes = refused_before_;
  indexes.insert(changes.removed.begin(), changes.removed.end());
  indexes.insert(changes.touched.begin(), changes.touched.end());
  add_ports(mirror, &indexes);
  reconcile::Policy* policy = this;
  run_ = std::make_unique<reconcile::Run>(wanted_router(mirror, changes, std::move(indexes)), model_, policy);
}

void Reconciler::step(std::size_t items) {
  (void)run_->step(items);  // no refusal ends it
  if (!run_->is_done()) return;
  run_.reset();
  remember_vrfs();
}

// A VRF that is added or changes affects its ports.
void Reconciler::add_ports(const Mirror& mirror, Indexes* indexes) const {
  Indexes masters;
  for (const std::uint32_t index : *indexes) {
    const Link* link = mirror.find(index);
    if (vrfs_.contains(index) || (link != nullptr && link->is_vrf)) masters.insert(index);
  }
  if (masters.empty()) return;
  for (const auto& [index, link] : mirror.links()) {
    if (masters.contains(link.vrf_master)) indexes->insert(index);
  }
}

WantedRouter Reconciler::wanted_router(const Mirror& mirror, const Changes& changes, Indexes indexes) {
  WantedRouter wanted;
  for (const std::uint32_t index : indexes) want_vrf(mirror, changes, index, &wanted);
  add_displaced(mirror, wanted, &indexes);
  want_interfaces(mirror, changes, indexes, &wanted);
  return wanted;
}

void Reconciler::want_vrf(const Mirror& mirror, const Changes& changes, std::uint32_t index,
                          WantedRouter* wanted) {
  const Link* link = mirror.find(index);
  const auto known = vrfs_.find(index);
  if (known == vrfs_.end()) {
    if (is_vrf(link)) want_new_vrf(*link, {}, wanted);
    return;
  }
  const KnownVrf& vrf = known->second;
  const bool stays = is_vrf(link) && !changes.removed.contains(index) && link->name == vrf.name &&
                     link->vrf_table == vrf.table;
  if (!stays) {
    wanted->deleted_vrfs.push_back(vrf.name);
    deleted_vrfs_[vrf.name] = index;
    if (is_vrf(link)) want_new_vrf(*link, vrf.name, wanted);
  } else if (const router::Vrf* present = model_->find_vrf(vrf.name)) {
    wanted->vrfs.push_back({*present, {}});  // with the attributes that the kernel does not have
    wanted->vrfs.back().vrf.description = link->alias;
  }
}

void Reconciler::want_new_vrf(const Link& link, const std::string& replaces, WantedRouter* wanted) {
  router::Vrf vrf;
  vrf.name = link.name;
  vrf.ipv4_table = vrf.ipv6_table = link.vrf_table;
  vrf.description = link.alias;
  wanted->vrfs.push_back({vrf, replaces});
  created_vrfs_[link.name] = link.index;
  created_tables_[link.name] = link.vrf_table;
}

// Members of deleted VRFs, and interfaces whose names others need.
void Reconciler::add_displaced(const Mirror& mirror, const WantedRouter& wanted, Indexes* indexes) const {
  Indexes displaced;
  if (!wanted.deleted_vrfs.empty()) {
    model_->for_each_interface([&](const router::Interface& each) {
      if (deleted_vrfs_.contains(each.vrf)) displaced.insert(each.index);
    });
  }
  for (const std::uint32_t index : *indexes) {
    const Link* link = mirror.find(index);
    if (!is_interface(link)) continue;
    const router::Interface* owner = model_->find_interface_by_name(wanted_name(*link));
    if (owner != nullptr) displaced.insert(owner->index);
  }
  indexes->merge(displaced);
}

// Interfaces that exist precede new ones.
void Reconciler::want_interfaces(const Mirror& mirror, const Changes& changes, const Indexes& indexes,
                                 WantedRouter* wanted) const {
  std::vector<router::Interface> added;
  for (const std::uint32_t index : indexes) {
    const Link* link = mirror.find(index);
    bool exists = model_->find_interface_by_index(index) != nullptr;
    if (exists && (!is_interface(link) || changes.removed.contains(index))) {
      wanted->removed_interfaces.push_back(index);
      exists = false;
    }
    if (is_interface(link)) (exists ? wanted->interfaces : added).push_back(wanted_interface(mirror, *link));
  }
  std::ranges::move(added, std::back_inserter(wanted->interfaces));
}

std::uint32_t Reconciler::choose_id(const router::Vrf& vrf) {
  return ids_.choose(*model_, vrf.name, vrf.ipv4_table);
}

// The ids are saved before the checkpoint saves anything under them.
void Reconciler::on_vrfs_done(const reconcile::Changes& changes) {
  if (changes.vrfs_created + changes.vrfs_deleted > 0) ids_.vrfs_changed();
  ids_.end_start();
  ids_.save(*model_);
}

// The link of the refused change. A refused VRF is not counted as created or deleted.
std::uint32_t Reconciler::link_of(const Refusal& refusal) {
  if (refusal.index != 0) return refusal.index;
  IndexesByName* changed = refusal.operation == Operation::kDeleteVrf   ? &deleted_vrfs_
                           : refusal.operation == Operation::kCreateVrf ? &created_vrfs_
                                                                        : nullptr;
  if (changed != nullptr) {
    const auto entry = changed->extract(refusal.name);
    return entry.empty() ? 0 : entry.mapped();
  }
  const auto known =
      std::ranges::find(vrfs_, refusal.name, [](const auto& each) { return each.second.name; });
  return known == vrfs_.end() ? 0 : known->first;
}

Status Reconciler::on_refusal(const Refusal& refusal) {
  ++refused_;
  const std::uint32_t index = link_of(refusal);
  if (const auto vrf = deleted_vrfs_.extract(refusal.undeleted_vrf); !vrf.empty()) {
    refused_now_.insert(vrf.mapped());
  }
  if (refused_now_.insert(index).second && !refused_before_.contains(index)) {
    log_warning("kernel", "%s (ifIndex %u)", refusal.text().c_str(), index);
  }
  return kStatusOk;
}

void Reconciler::remember_vrfs() {
  for (const auto& [name, index] : deleted_vrfs_) vrfs_.erase(index);
  for (const auto& [name, index] : created_vrfs_) vrfs_[index] = {name, created_tables_[name]};
}

}  // namespace kernel

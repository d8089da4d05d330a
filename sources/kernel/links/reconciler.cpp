// The mirror has the result of a burst of kernel events, not its steps; reconcile.h makes the steps.
//
// A link whose name is ambiguous (mirror.cpp) has the temporary name until a dump resolves it. Such a VRF
// device is treated as missing.
#include "sources/kernel/links/reconciler.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/core/base/clock.h"
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

void Reconciler::run(const Mirror& mirror, Changes changes) {
  begin(mirror, std::move(changes));
  while (!is_done()) step(SIZE_MAX);
}

void Reconciler::begin(const Mirror& mirror, Changes changes) {
  refused_before_ = std::exchange(refused_now_, Indexes{});
  created_tables_.clear();  // of VRFs whose creation was refused
  indexes_ = std::exchange(changes.touched, Indexes{});
  changes_ = std::move(changes);
  mirror_ = &mirror;
  phase_ = 0;
  begin_phase();
}

void Reconciler::step(std::size_t items) {
  if (is_reading()) return read_some(items);
  if (run_ == nullptr) return remember_some(items);
  (void)run_->step(items);  // no refusal ends it
  if (run_->is_done()) run_.reset();
}

// The links are complete before their VRFs are read, and these before the interfaces.
const std::vector<Reconciler::Phase>& Reconciler::phases() {
  static const std::vector<Phase> phases{
      &Reconciler::add_removed,    &Reconciler::add_refused,   &Reconciler::find_master,
      &Reconciler::add_port,       &Reconciler::want_vrf,      &Reconciler::find_member,
      &Reconciler::find_displaced, &Reconciler::add_displaced, &Reconciler::want_interface,
      &Reconciler::want_added,     &Reconciler::forget_index};
  return phases;
}

void Reconciler::begin_phase() {
  const Phase phase = phases()[phase_];
  const Indexes& indexes = phase == &Reconciler::add_removed     ? changes_.removed
                           : phase == &Reconciler::add_refused   ? refused_before_
                           : phase == &Reconciler::add_displaced ? displaced_
                                                                 : indexes_;
  next_index_ = indexes.begin();
  next_link_ = mirror_->links().begin();
  next_added_ = 0;
  last_handle_ = 0;
}

void Reconciler::read_some(std::size_t items) {
  const std::uint64_t start = clock_monotonic();
  for (; items > 0 && clock_monotonic() - start < reconcile::kStepTime; --items) {
    if ((this->*phases()[phase_])()) continue;
    if (++phase_ == phases().size()) return end_reading();
    begin_phase();
  }
}

void Reconciler::end_reading() {
  mirror_ = nullptr;
  changes_ = {};
  masters_.clear();
  displaced_.clear();
  added_ = {};
  reconcile::Policy* policy = this;
  run_ = std::make_unique<reconcile::Run>(std::exchange(wanted_, {}), model_, policy);
}

template <typename Visit>
bool Reconciler::visit_index(Visit visit) {
  if (next_index_ == indexes_.end()) return false;
  visit(*next_index_++);
  return true;
}

bool Reconciler::add_removed() {
  if (next_index_ == changes_.removed.end()) return false;
  indexes_.insert(*next_index_++);
  return true;
}

bool Reconciler::add_refused() {
  if (next_index_ == refused_before_.end()) return false;
  indexes_.insert(*next_index_++);
  return true;
}

// A VRF that is added or changes affects its ports.
bool Reconciler::find_master() {
  return visit_index([this](std::uint32_t index) {
    const Link* link = mirror_->find(index);
    if (vrfs_.contains(index) || (link != nullptr && link->is_vrf)) masters_.insert(index);
  });
}

bool Reconciler::add_port() {
  if (masters_.empty() || next_link_ == mirror_->links().end()) return false;
  const auto& [index, link] = *next_link_++;
  if (masters_.contains(link.vrf_master)) indexes_.insert(index);
  return true;
}

bool Reconciler::want_vrf() {
  return visit_index([this](std::uint32_t index) { want_vrf(index); });
}

void Reconciler::want_vrf(std::uint32_t index) {
  const Link* link = mirror_->find(index);
  const auto known = vrfs_.find(index);
  if (known == vrfs_.end()) {
    if (is_vrf(link)) want_new_vrf(*link, {});
    return;
  }
  const KnownVrf& vrf = known->second;
  const bool stays = is_vrf(link) && !changes_.removed.contains(index) && link->name == vrf.name &&
                     link->vrf_table == vrf.table;
  if (!stays) {
    wanted_.deleted_vrfs.push_back(vrf.name);
    deleted_vrfs_[vrf.name] = index;
    if (is_vrf(link)) want_new_vrf(*link, vrf.name);
  } else if (const router::Vrf* present = model_->find_vrf(vrf.name)) {
    wanted_.vrfs.push_back({*present, {}});  // with the attributes that the kernel does not have
    wanted_.vrfs.back().vrf.description = link->alias;
  }
}

void Reconciler::want_new_vrf(const Link& link, const std::string& replaces) {
  router::Vrf vrf;
  vrf.name = link.name;
  vrf.ipv4_table = vrf.ipv6_table = link.vrf_table;
  vrf.description = link.alias;
  wanted_.vrfs.push_back({vrf, replaces});
  created_vrfs_[link.name] = link.index;
  created_tables_[link.name] = link.vrf_table;
}

// A member of a deleted VRF.
bool Reconciler::find_member() {
  if (wanted_.deleted_vrfs.empty()) return false;
  const router::Interface* each = model_->interface_after(last_handle_);
  if (each == nullptr) return false;
  last_handle_ = each->handle;
  if (deleted_vrfs_.contains(each->vrf)) displaced_.insert(each->index);
  return true;
}

// Interfaces whose names others need.
bool Reconciler::find_displaced() {
  return visit_index([this](std::uint32_t index) {
    const Link* link = mirror_->find(index);
    if (!is_interface(link)) return;
    const router::Interface* owner = model_->find_interface_by_name(wanted_name(*link));
    if (owner != nullptr && owner->index != index) displaced_.insert(owner->index);
  });
}

bool Reconciler::add_displaced() {
  if (next_index_ == displaced_.end()) return false;
  indexes_.insert(*next_index_++);
  return true;
}

bool Reconciler::want_interface() {
  return visit_index([this](std::uint32_t index) { want_interface(index); });
}

void Reconciler::want_interface(std::uint32_t index) {
  const Link* link = mirror_->find(index);
  bool exists = model_->find_interface_by_index(index) != nullptr;
  if (exists && (!is_interface(link) || changes_.removed.contains(index))) {
    wanted_.removed_interfaces.push_back(index);
    exists = false;
  }
  if (is_interface(link)) (exists ? wanted_.interfaces : added_).push_back(wanted_interface(*mirror_, *link));
}

// Interfaces that exist precede new ones.
bool Reconciler::want_added() {
  if (next_added_ == added_.size()) return false;
  wanted_.interfaces.push_back(std::move(added_[next_added_++]));
  return true;
}

bool Reconciler::forget_index() {
  if (indexes_.empty()) return false;
  indexes_.erase(indexes_.begin());
  return true;
}

std::uint32_t Reconciler::choose_id(const router::Vrf& vrf) {
  const std::uint32_t id = ids_.choose(*model_, vrf.name, vrf.ipv4_table);
  ids_.assign(vrf.name, vrf.ipv4_table, id);
  return id;
}

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

// An index that was deleted may have been used again.
void Reconciler::remember_some(std::size_t items) {
  const std::uint64_t start = clock_monotonic();
  for (; items > 0 && !is_done() && clock_monotonic() - start < reconcile::kStepTime; --items) {
    if (!deleted_vrfs_.empty()) {
      vrfs_.erase(deleted_vrfs_.begin()->second);
      deleted_vrfs_.erase(deleted_vrfs_.begin());
    } else {
      const auto created = created_vrfs_.begin();
      vrfs_[created->second] = {created->first, created_tables_[created->first]};
      created_tables_.erase(created->first);
      created_vrfs_.erase(created);
    }
  }
}

}  // namespace kernel

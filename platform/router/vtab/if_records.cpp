#include "platform/router/vtab/if_records.h"

#include <algorithm>

#include "platform/router/vtab/vrf_records.h"

namespace vtab {
namespace {

void set_identity(IfNode* node, const router::Interface& interface) {
  set_name(node->if_name, interface.name);
  set_name(node->vrf_name, interface.vrf);
  node->if_index = interface.index;
}

std::uint32_t family_state(const router::Interface& interface, router::Family family) {
  const auto is_of_family = [family](const router::Address& address) { return address.family == family; };
  const bool has_address = std::any_of(interface.addresses.begin(), interface.addresses.end(), is_of_family);
  return interface.up && has_address ? kVtabStateUp : kVtabStateDown;
}

std::uint32_t change_of_family(std::uint32_t before, std::uint32_t now) {
  if (before == now) return kVtabNoChange;
  return now == kVtabStateUp ? kVtabChangedUp : kVtabChangedDown;
}

}  // namespace

IfState state_of(const router::Interface& interface) {
  return {family_state(interface, router::Family::kIpv4),
          family_state(interface, router::Family::kIpv6),
          {interface.addresses.begin(), interface.addresses.end()}};
}

IfChange change_between(const IfState& before, const IfState& now) {
  return {change_of_family(before.ipv4, now.ipv4), change_of_family(before.ipv6, now.ipv6)};
}

void IfRecords::show_downs(IfNode* node, const IfState& state) {
  if (state.ipv4 == kVtabStateDown) node->ipv4_state = kVtabStateDown;
  if (state.ipv6 == kVtabStateDown) node->ipv6_state = kVtabStateDown;
  report(node);
}

void IfRecords::show(IfNode* node, IfState state) {
  node->ipv4_state = state.ipv4;
  node->ipv6_state = state.ipv6;
  node->addresses = std::move(state.addresses);
  report(node);
}

void IfRecords::report(const IfNode* node) const {
  if (changed == nullptr) return;
  changed(node->if_name);
  if (node->renaming == nullptr) return;
  for (const std::string& name : node->renaming->former_names) changed(name.c_str());
}

void Holders::add(IfNode* node) {
  if (first_ == nullptr) {
    first_ = node;
    return;
  }
  if (others_ == nullptr) others_ = std::make_unique<std::vector<IfNode*>>();
  others_->push_back(node);
}

void Holders::remove(const IfNode* node) {
  if (others_ == nullptr) {
    first_ = nullptr;
    return;
  }
  if (first_ == node) std::swap(first_, others_->front());
  others_->erase(std::ranges::find(*others_, node));
  if (others_->empty()) others_.reset();
}

IfNode* IfRecords::find(std::string_view name) const {
  const auto found = holders_.find(name);
  return found == holders_.end() ? nullptr : found->second.first();
}

const IfNode* IfRecords::first() const {
  return by_index_.empty() ? nullptr : &by_index_.begin()->second;
}

const IfNode* IfRecords::after(std::uint32_t index) const {
  const auto next = by_index_.upper_bound(index);
  return next == by_index_.end() ? nullptr : &next->second;
}

void IfRecords::take_name(IfNode* node, const std::string& name) {
  holders_[name].add(node);
  if (changed != nullptr) changed(name.c_str());
}

void IfRecords::give_up_name(const IfNode* node, const std::string& name) {
  const auto found = holders_.find(name);
  found->second.remove(node);
  if (found->second.first() == nullptr) holders_.erase(found);
  if (changed != nullptr) changed(name.c_str());
}

IfNode* IfRecords::add(const router::Interface& interface) {
  IfNode& node = by_index_[interface.index];
  set_identity(&node, interface);
  take_name(&node, interface.name);
  show(&node, {});
  return &node;
}

IfNode* IfRecords::change(std::uint32_t old_index, const router::Interface& now) {
  auto taken = by_index_.extract(old_index);
  IfNode* const node = &taken.mapped();
  if (now.name != node->if_name) {
    if (node->renaming == nullptr) node->renaming = std::make_unique<Renaming>(Renaming{node->if_name, {}});
    node->renaming->former_names.emplace_back(node->if_name);
    take_name(node, now.name);
  }
  set_identity(node, now);
  taken.key() = now.index;
  by_index_.insert(std::move(taken));
  return node;
}

void IfRecords::know_name(IfNode* node) {
  if (node->renaming == nullptr) return;
  for (const std::string& name : node->renaming->former_names) give_up_name(node, name);
  node->renaming.reset();
}

IfNode* IfRecords::remove(std::uint32_t index) {
  auto taken = by_index_.extract(index);
  IfNode* const node = &taken.mapped();
  node->is_removed = true;
  removed_.emplace(node, std::move(taken));
  return node;
}

void IfRecords::release(IfNode* node) {
  if (!node->is_removed || node->pending > 0) return;
  know_name(node);
  give_up_name(node, node->if_name);
  removed_.erase(node);
}

}  // namespace vtab

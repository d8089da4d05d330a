#include "platform/router/vtab/if_records.h"

#include <algorithm>
#include <utility>

namespace vtab {
namespace {

void set_identity(IfNode* node, const router::Interface& interface) {
  node->if_name = interface.name;
  node->vrf_name = interface.vrf;
  node->if_index = interface.index;
}

std::uint8_t family_state(const router::Interface& interface, router::Family family) {
  const auto is_of_family = [family](const router::Address& address) { return address.family == family; };
  const bool has_address = std::any_of(interface.addresses.begin(), interface.addresses.end(), is_of_family);
  return interface.up && has_address ? kVtabStateUp : kVtabStateDown;
}

std::uint32_t change_of_family(std::uint8_t before, std::uint8_t now) {
  if (before == now) return kVtabNoChange;
  return now == kVtabStateUp ? kVtabChangedUp : kVtabChangedDown;
}

}  // namespace

IfState state_of(const router::Interface& interface) {
  return {family_state(interface, router::Family::kIpv4), family_state(interface, router::Family::kIpv6),
          interface.addresses};
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
  changed(node->if_name.c_str());
  if (!node->is_renamed) return;
  for (const SharedText& name : renamings_.at(node).former_names) changed(name.c_str());
}

const SharedText& IfRecords::known_name(const IfNode& node) const {
  return node.is_renamed ? renamings_.at(&node).known_name : node.if_name;
}

IfNode* IfRecords::find(std::string_view name) const {
  const auto found = first_holders_.find(name);
  return found == first_holders_.end() ? nullptr : found->second;
}

const IfNode* IfRecords::first() const {
  return by_index_.empty() ? nullptr : by_index_.begin()->get();
}

const IfNode* IfRecords::after(std::uint32_t index) const {
  const auto next = by_index_.upper_bound(index);
  return next == by_index_.end() ? nullptr : next->get();
}

void IfRecords::take_name(IfNode* node, const SharedText& name) {
  const bool is_first = first_holders_.try_emplace(name, node).second;
  if (!is_first) other_holders_[name].push_back(node);
  if (changed != nullptr) changed(name.c_str());
}

void IfRecords::give_up_name(const IfNode* node, const SharedText& name) {
  const auto first = first_holders_.find(name);
  const auto others = other_holders_.find(name);
  if (others == other_holders_.end()) {
    first_holders_.erase(first);
  } else {
    if (first->second == node) std::swap(first->second, others->second.front());
    others->second.erase(std::ranges::find(others->second, node));
    if (others->second.empty()) other_holders_.erase(others);
  }
  if (changed != nullptr) changed(name.c_str());
}

IfNode* IfRecords::add(const router::Interface& interface) {
  auto made = std::make_unique<IfNode>();
  set_identity(made.get(), interface);
  IfNode* const node = by_index_.insert(std::move(made)).first->get();
  take_name(node, interface.name);
  show(node, {});
  return node;
}

std::unique_ptr<IfNode> IfRecords::take(std::uint32_t index) {
  return std::move(by_index_.extract(by_index_.find(index)).value());
}

IfNode* IfRecords::change(std::uint32_t old_index, const router::Interface& now) {
  std::unique_ptr<IfNode> taken = take(old_index);
  IfNode* const node = taken.get();
  if (now.name != node->if_name) {
    Renaming& renaming = renamings_.try_emplace(node, Renaming{node->if_name, {}}).first->second;
    renaming.former_names.push_back(node->if_name);
    node->is_renamed = true;
    take_name(node, now.name);
  }
  set_identity(node, now);
  by_index_.insert(std::move(taken));
  return node;
}

void IfRecords::know_name(IfNode* node) {
  if (!node->is_renamed) return;
  for (const SharedText& name : renamings_.at(node).former_names) give_up_name(node, name);
  renamings_.erase(node);
  node->is_renamed = false;
}

IfNode* IfRecords::remove(std::uint32_t index) {
  std::unique_ptr<IfNode> taken = take(index);
  IfNode* const node = taken.get();
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

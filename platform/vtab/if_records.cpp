// The interface records: see if_records.h. Addresses are not copied into records; they are read from the
// router model when asked for.
#include "platform/vtab/if_records.h"

#include "platform/vtab/vrf_records.h"

namespace vtab {
namespace {

void fill(IfNode* node, const router::Interface& interface) {
  const std::uint32_t state = interface.up ? kVtabStateUp : kVtabStateDown;
  set_name(node->if_name, interface.name);
  set_name(node->vrf_name, interface.vrf);
  node->if_index = interface.index;
  node->ipv4_state = state;
  node->ipv6_state = state;
}

}  // namespace

IfNode* IfRecords::find(std::string_view name) const {
  const auto found = by_name_.find(name);
  return found == by_name_.end() ? nullptr : found->second;
}

const IfNode* IfRecords::first() const {
  return by_index_.empty() ? nullptr : &by_index_.begin()->second;
}

const IfNode* IfRecords::after(std::uint32_t index) const {
  const auto next = by_index_.upper_bound(index);
  return next == by_index_.end() ? nullptr : &next->second;
}

void IfRecords::add(const router::Interface& interface) {
  IfNode& node = by_index_[interface.index];
  fill(&node, interface);
  by_name_.emplace(node.if_name, &node);
}

void IfRecords::change(std::uint32_t old_index, const router::Interface& now) {
  auto taken = by_index_.extract(old_index);
  by_name_.erase(taken.mapped().if_name);
  fill(&taken.mapped(), now);
  taken.key() = now.index;
  IfNode& node = by_index_.insert(std::move(taken)).position->second;
  by_name_.emplace(node.if_name, &node);
}

void IfRecords::remove(std::uint32_t index) {
  auto taken = by_index_.extract(index);
  IfNode& node = taken.mapped();
  by_name_.erase(node.if_name);
  if (node.in_access) removed_in_access_.emplace(&node, std::move(taken));
}

void IfRecords::end_access(IfNode* node) {
  node->in_access = false;
  removed_in_access_.erase(node);
}

void IfRecords::clear() {
  by_name_.clear();
  by_index_.clear();
  removed_in_access_.clear();
}

}  // namespace vtab

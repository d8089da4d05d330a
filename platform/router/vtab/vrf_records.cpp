// The attribute block is the one piece of memory whose shortage is reported: it is the client's, and of the
// client's size. It is freed with its node.
#include "platform/router/vtab/vrf_records.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/core/base/memory.h"

namespace vtab {
namespace {

constexpr const char* kAttributeTag = "vtab attributes";

struct TableKind {
  std::uint32_t afi;
  std::uint32_t safi;
  const char* suffix;
  std::uint32_t router::Vrf::*table_id;
};

constexpr std::array<TableKind, 4> kTableKinds{{
    {1, 1, ".ipv4.unicast", &router::Vrf::ipv4_table},
    {1, 2, ".ipv4.multicast", &router::Vrf::ipv4_multicast_table},
    {2, 1, ".ipv6.unicast", &router::Vrf::ipv6_table},
    {2, 2, ".ipv6.multicast", &router::Vrf::ipv6_multicast_table},
}};

}  // namespace

VrfNode::~VrfNode() {
  std::free(attributes);
}

void set_name(std::span<char> slot, std::string_view name) {
  const std::size_t length = std::min(name.size(), slot.size() - 1);
  std::copy_n(name.data(), length, slot.begin());
  slot[length] = '\0';
}

VrfRecords::ByName::iterator VrfRecords::search(std::string_view name) {
  if (latest_) {
    if ((*latest_)->first == name) return *latest_;
    const auto next = std::next(*latest_);
    if (next != by_name_.end() && next->first == name) return *(latest_ = next);
  }
  const auto found = by_name_.find(name);
  latest_.reset();
  if (found != by_name_.end()) latest_ = found;
  return found;
}

VrfNode* VrfRecords::find(std::string_view name) {
  const auto found = search(name);
  return found == by_name_.end() ? nullptr : found->second.get();
}

VrfNode* VrfRecords::find_by_id(std::uint32_t id) const {
  const auto found = by_id_.find(id);
  return found == by_id_.end() ? nullptr : found->second;
}

VrfNode* VrfRecords::find_by_table(std::uint32_t table_id) const {
  const auto found = by_table_.lower_bound(table_id);
  return found == by_table_.end() || found->first != table_id ? nullptr : found->second;
}

VrfNode* VrfRecords::first() const {
  return by_name_.empty() ? nullptr : by_name_.begin()->second.get();
}

VrfNode* VrfRecords::after(std::string_view name) {
  const auto found = search(name);
  const auto next = found == by_name_.end() ? by_name_.upper_bound(name) : std::next(found);
  return next == by_name_.end() ? nullptr : next->second.get();
}

VrfNode* VrfRecords::add(std::string_view name, std::size_t attribute_size) {
  auto node = std::make_unique<VrfNode>();
  set_name(node->vrf_name, name);
  if (attribute_size != 0) {
    node->attributes = calloc_tagged(1, attribute_size, kAttributeTag);
    if (node->attributes == nullptr) return nullptr;
  }
  return by_name_.emplace(name, std::move(node)).first->second.get();
}

void VrfRecords::set_tables(VrfNode* node, const router::Vrf& vrf) {
  for (const VtabTableRecord& table : node->tables) by_table_.erase({table.table_id, node});
  for (std::size_t place = 0; place < kTableKinds.size(); ++place) {
    const TableKind& kind = kTableKinds[place];
    VtabTableRecord& table = node->tables[place];
    table.table_id = vrf.*kind.table_id;
    table.afi = kind.afi;
    table.safi = kind.safi;
    set_name(table.vrf_name, node->vrf_name);
    set_name(table.table_name, std::string(node->vrf_name) + kind.suffix);
    if (table.table_id != 0) by_table_.insert({table.table_id, node});
  }
  node->ipv4_table_id = vrf.ipv4_table;
  node->ipv6_table_id = vrf.ipv6_table;
}

void VrfRecords::complete(VrfNode* node, const router::Vrf& vrf) {
  node->vrf_id = vrf.id;
  by_id_[vrf.id] = node;
  set_tables(node, vrf);
  if (changed != nullptr) changed(node->vrf_name);
}

void VrfRecords::make_forward_reference(VrfNode* node) {
  by_id_.erase(node->vrf_id);
  node->vrf_id = 0;
  set_tables(node, router::Vrf{});
  if (changed != nullptr) changed(node->vrf_name);
}

void VrfRecords::remove(VrfNode* node) {
  const std::uint32_t id = node->vrf_id;
  if (id != 0) make_forward_reference(node);
  node->vrf_id = id;  // the client's callback for the deletion reads it
  const auto found = by_name_.find(std::string_view(node->vrf_name));
  removed_.emplace(node, std::move(found->second));
  latest_.reset();
  by_name_.erase(found);
}

bool VrfRecords::allot_attributes(std::size_t attribute_size) {
  for (auto& [name, node] : by_name_) {
    node->attributes = calloc_tagged(1, attribute_size, kAttributeTag);
    if (node->attributes != nullptr) continue;
    for (auto& [each, freed] : by_name_) std::free(std::exchange(freed->attributes, nullptr));
    return false;
  }
  return true;
}

}  // namespace vtab

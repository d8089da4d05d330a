// A VRF has an entry while it has interfaces or is in the VRF database. An entry's part of the totals, and
// its place among the VRFs with interfaces, are taken out before a change and put in again after it.
//
// A node remembers what it was counted as. Its interface's record is evaluated again when the record service
// reports a change under the node's name: names of interfaces are unique but for a moment during a rename.
#include "mpls/vpn/mib/src/tally/tally.h"

#include <map>
#include <set>
#include <string>
#include <string_view>

#include "mpls/vpn/mib/src/interface/active.h"
#include "platform/core/compact/ordered_multiset.h"
#include "platform/router/model/router.h"
#include "platform/router/vtab/vtab.h"

namespace {

struct TallyEntry : MplsVpnVrfTally {
  bool is_complete = false;   // the record service has a complete record
  bool is_announced = false;  // the VRF database has it
};

using TallyEntries = std::map<std::string, TallyEntry, router::ShorterFirst>;
using TallyNames = std::set<std::string_view, router::ShorterFirst>;  // keys of the entries

// REQUIRES: a node has the same name while it is in a set with this order.
struct ByIfName {
  using is_transparent = void;
  bool operator()(const IfNode* left, const IfNode* right) const {
    return std::string_view(left->if_name) < right->if_name;
  }
  bool operator()(const IfNode* left, std::string_view right) const { return left->if_name < right; }
  bool operator()(std::string_view left, const IfNode* right) const { return left < right->if_name; }
};

struct Tally {
  TallyEntries entries;
  TallyNames valid;    // VRFs with interfaces and a complete record
  TallyNames invalid;  // VRFs with interfaces and none
  MplsVpnTotals totals{};
  OrderedMultiset<IfNode*, ByIfName> nodes_by_name;
  std::uint32_t nameless = 0;
};

Tally& tally() {
  static Tally the_tally;
  return the_tally;
}

bool has_complete_record(const char* vrf_name) {
  const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf_name);
  return record != nullptr && record->vrf_id != 0;
}

MplsVpnTotals part_of(const TallyEntries::value_type& of) {
  const auto& [name, entry] = of;
  if (!entry.is_complete) return {};
  return {entry.is_announced && name != router::kDefaultVrf ? 1U : 0U, entry.active != 0 ? 1U : 0U,
          entry.interfaces};
}

void take_out(const TallyEntries::value_type& entry) {
  const MplsVpnTotals part = part_of(entry);
  tally().totals.configured_vrfs -= part.configured_vrfs;
  tally().totals.active_vrfs -= part.active_vrfs;
  tally().totals.connected_interfaces -= part.connected_interfaces;
}

void put_in(const TallyEntries::value_type& entry) {
  const MplsVpnTotals part = part_of(entry);
  tally().totals.configured_vrfs += part.configured_vrfs;
  tally().totals.active_vrfs += part.active_vrfs;
  tally().totals.connected_interfaces += part.connected_interfaces;
}

// The VRFs among which an entry is; null for one without interfaces.
TallyNames* names_with(const TallyEntry& entry) {
  if (entry.interfaces == 0) return nullptr;
  return entry.is_complete ? &tally().valid : &tally().invalid;
}

template <typename Change>
void change_entry(TallyEntries::iterator at, Change change) {
  TallyNames* const before = names_with(at->second);
  take_out(*at);
  change(at->second);
  put_in(*at);
  TallyNames* const after = names_with(at->second);
  if (before != after) {
    if (before != nullptr) before->erase(at->first);
    if (after != nullptr) after->insert(at->first);
  }
  if (at->second.interfaces == 0 && !at->second.is_announced) tally().entries.erase(at);
}

// The VRF's entry, made when there is none.
TallyEntries::iterator entry_of(const char* vrf_name) {
  const auto [at, is_new] = tally().entries.try_emplace(vrf_name);
  if (is_new) at->second.is_complete = has_complete_record(vrf_name);
  return at;
}

TallyState state_of(const IfNode* node) {
  const VtabIfRecord* record = node->if_name == nullptr ? nullptr : vtab_get_if_record(node->if_name);
  if (record == nullptr) return TallyState::kWithoutRecord;
  return interface_is_active_silently(record) ? TallyState::kActive : TallyState::kInactive;
}

void count(MplsVpnVrfTally* in, TallyState state, bool is_more) {
  const std::uint32_t one = is_more ? 1U : ~0U;
  in->interfaces += one;
  if (state == TallyState::kActive) in->active += one;
  if (state == TallyState::kWithoutRecord) in->without_record += one;
}

void vrf_record_changed(const char* vrf_name) {
  const auto at = tally().entries.find(std::string_view(vrf_name));
  if (at == tally().entries.end()) return;
  change_entry(at, [vrf_name](TallyEntry& entry) { entry.is_complete = has_complete_record(vrf_name); });
}

void evaluate(IfNode* node) {
  const TallyState now = state_of(node);
  if (now == node->tally) return;
  change_entry(entry_of(node->vrf_name), [node, now](TallyEntry& entry) {
    count(&entry, node->tally, false);
    count(&entry, now, true);
  });
  node->tally = now;
}

void if_record_changed(const char* if_name) {
  const auto [first, last] = tally().nodes_by_name.equal_range(std::string_view(if_name));
  for (auto at = first; at != last; ++at) evaluate(*at);
}

void forget_name(const IfNode* node) {
  const auto [first, last] = tally().nodes_by_name.equal_range(std::string_view(node->if_name));
  for (auto at = first; at != last; ++at) {
    if (*at != node) continue;
    tally().nodes_by_name.erase(at);
    return;
  }
}

const char* first_after(const TallyNames& names, const char* vrf_name) {
  const auto at = vrf_name == nullptr ? names.begin() : names.upper_bound(vrf_name);
  return at == names.end() ? nullptr : at->data();
}

}  // namespace

void mpls_vpn_tally_begin() {
  vtab_observe(vrf_record_changed, if_record_changed);
}

void mpls_vpn_tally_end() {
  vtab_observe(nullptr, nullptr);
}

void mpls_vpn_tally_enter(IfNode* node) {
  node->tally = state_of(node);
  if (node->if_name == nullptr) {
    ++tally().nameless;
  } else {
    tally().nodes_by_name.insert(node);
  }
  change_entry(entry_of(node->vrf_name), [node](TallyEntry& entry) { count(&entry, node->tally, true); });
}

void mpls_vpn_tally_leave(IfNode* node) {
  if (node->tally == TallyState::kNotCounted) return;
  if (node->if_name == nullptr) {
    --tally().nameless;
  } else {
    forget_name(node);
  }
  change_entry(entry_of(node->vrf_name), [node](TallyEntry& entry) { count(&entry, node->tally, false); });
  node->tally = TallyState::kNotCounted;
}

void mpls_vpn_tally_announce(const char* vrf_name) {
  change_entry(entry_of(vrf_name), [](TallyEntry& entry) { entry.is_announced = true; });
}

void mpls_vpn_tally_withdraw(const char* vrf_name) {
  change_entry(entry_of(vrf_name), [](TallyEntry& entry) { entry.is_announced = false; });
}

MplsVpnTotals mpls_vpn_tally_totals() {
  return tally().totals;
}

MplsVpnVrfTally mpls_vpn_tally_of(const char* vrf_name) {
  const auto at = tally().entries.find(std::string_view(vrf_name));
  if (at == tally().entries.end()) return {};
  const MplsVpnVrfTally& of_vrf = at->second;
  return of_vrf;
}

MplsVpnVrfTally mpls_vpn_tally_of_name(const char* vrf_name, const char* if_name) {
  MplsVpnVrfTally found;
  const auto [first, last] = tally().nodes_by_name.equal_range(std::string_view(if_name));
  for (auto at = first; at != last; ++at) {
    if (std::string_view((*at)->vrf_name) == vrf_name) count(&found, (*at)->tally, true);
  }
  return found;
}

IfNode* mpls_vpn_tally_node_of_name(const char* vrf_name, const char* if_name) {
  IfNode* found = nullptr;
  const auto [first, last] = tally().nodes_by_name.equal_range(std::string_view(if_name));
  for (auto at = first; at != last; ++at) {
    IfNode* node = *at;
    if (std::string_view(node->vrf_name) != vrf_name) continue;
    if (found == nullptr || node->if_index < found->if_index) found = node;
  }
  return found;
}

bool mpls_vpn_tally_has_nameless() {
  return tally().nameless != 0;
}

const char* mpls_vpn_tally_invalid_after(const char* vrf_name) {
  return first_after(tally().invalid, vrf_name);
}

const char* mpls_vpn_tally_valid_after(const char* vrf_name) {
  return first_after(tally().valid, vrf_name);
}

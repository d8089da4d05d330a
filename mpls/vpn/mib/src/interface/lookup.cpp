// Look-ups of the interface database. Each runs the repair pass once and then reads the tree without further
// repair: the helpers in the anonymous namespace never repair, so that a walk over a database that cannot be
// repaired costs one pass and not one per step.
//
// Interfaces of one VRF are a run of nodes with the same name in the VRF ordering, from (name, 0) on. A VRF
// is "invalid" if it has such a run but the record service has no record of the name, or only a forward
// reference (vrf_id 0): its interfaces are in no row of the MIB's tables. The tally has both kinds of VRFs in
// order, so no look-up walks over interfaces, unless a node without a name, which ends such a walk, is there.
//
// Main thread, without the database mutex (or, inside a join or leave, with it: then nothing is repaired).
#include <cstring>

#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/interface/database_internal.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/tally/tally.h"

namespace {

IfNode* search(unsigned thread, bool exact, const IfNode& key) {
  void* found = exact ? wavl_search(mpls_vpn_mib_if_tree(), thread, &key)
                      : wavl_search_greater_equal(mpls_vpn_mib_if_tree(), thread, &key);
  return static_cast<IfNode*>(found);
}

IfNode* successor(const IfNode* node) {
  return static_cast<IfNode*>(wavl_next(mpls_vpn_mib_if_tree(), kIfByVrf, node));
}

// The latest answer to a search for a next node. A walk continues from there; null without one.
IfNode* latest_next = nullptr;

// The next node from the key on, if it is the latest one or follows that; null for any other.
IfNode* next_near_latest(const IfNode& key) {
  if (latest_next == nullptr || latest_next->links[kIfByVrf].linked == 0) return nullptr;
  const WavlCompare compare = mpls_vpn_mib_if_tree()->compare[kIfByVrf];
  const std::uint32_t order = compare(latest_next, &key);
  if (order != kWavlLess) return order == kWavlEqual ? latest_next : nullptr;
  IfNode* const following = successor(latest_next);
  return following != nullptr && compare(following, &key) != kWavlLess ? following : nullptr;
}

IfNode* search_by_vrf(bool exact, const char* vrf_name, std::uint32_t if_index) {
  IfNode key{};
  key.vrf_name = const_cast<char*>(vrf_name);  // only read by the compare function
  key.vrf_name_length = vrf_name == nullptr ? 0 : static_cast<std::uint32_t>(std::strlen(vrf_name));
  key.if_index = if_index;
  if (exact) return search(kIfByVrf, true, key);
  IfNode* const near = next_near_latest(key);
  return latest_next = near != nullptr ? near : search(kIfByVrf, false, key);
}

bool is_of_vrf(const IfNode* node, const char* vrf_name) {
  return node->vrf_name != nullptr && vrf_name != nullptr && std::strcmp(node->vrf_name, vrf_name) == 0;
}

IfNode* first_of_run(const char* vrf_name) {
  IfNode* node = search_by_vrf(false, vrf_name, 0);
  return node != nullptr && is_of_vrf(node, vrf_name) ? node : nullptr;
}

IfNode* next_of_run(const IfNode* node, const char* vrf_name) {
  IfNode* next = successor(node);
  return next != nullptr && is_of_vrf(next, vrf_name) ? next : nullptr;
}

IfNode* report_found(const char* function, IfNode* node) {
  mpls_vpn_debug(DBASE, "Found interface (%s): vrf_name = %s, if_index = %u, if_name = %s, if_handle = 0x%x",
                 function, mpls_vpn_shown(node->vrf_name), node->if_index, mpls_vpn_shown(node->if_name),
                 node->if_handle);
  return node;
}

// True, after a print, when the walk of `function` must end at this node.
bool ends_walk(const IfNode* node, const char* function) {
  if (mpls_vpn_mib_if_node_validate(node) == kStatusOk) return false;
  mpls_vpn_report_failure(DBASE, kStatusInvalidNode, "Invalid node found by %s", function);
  return true;
}

// mpls_vpn_mib_get_if without the repair.
IfNode* get_if_unrepaired(bool exact, const char* vrf_name, std::uint32_t if_index) {
  static constexpr const char* kFunction = "mpls_vpn_mib_get_if";
  IfNode* node = search_by_vrf(exact, vrf_name, if_index);
  if (node == nullptr) {
    mpls_vpn_debug(DBASE, "get_greater_equal found node NULL");
    return nullptr;
  }
  if (mpls_vpn_mib_if_node_validate(node) != kStatusOk) {
    mpls_vpn_report_failure(DBASE, kStatusInvalidNode, "Found invalid if node in %s", kFunction);
    return nullptr;
  }
  return report_found(kFunction, node);
}

const char* report_invalid(const char* vrf_name) {
  if (vrf_name != nullptr) mpls_vpn_debug(DBASE, "Found invalid %s", vrf_name);
  return vrf_name;
}

// The name of the first invalid VRF from this node on; null at the end and at an invalid node.
const char* invalid_vrf_from(const IfNode* node, const char* function) {
  for (; node != nullptr; node = successor(node)) {
    if (ends_walk(node, function)) return nullptr;
    if (!vrf_exists(node->vrf_name)) return report_invalid(node->vrf_name);
  }
  return nullptr;
}

// The same after the nodes of `vrf_name`.
const char* next_invalid_vrf_from(const IfNode* node, const char* vrf_name) {
  while (node != nullptr && is_of_vrf(node, vrf_name)) node = successor(node);
  return invalid_vrf_from(node, "mpls_vpn_mib_get_next_invalid_vrf");
}

// The following node of a VRF with a complete record; null when there is none.
IfNode* skip_invalid_vrf(const IfNode* node) {
  if (mpls_vpn_tally_has_nameless()) return successor(node);
  const char* valid = mpls_vpn_tally_valid_after(node->vrf_name);
  return valid == nullptr ? nullptr : search_by_vrf(false, valid, 0);
}

// The first node from this one on whose VRF has a complete record.
IfNode* valid_from(IfNode* node, const char* function) {
  for (; node != nullptr; node = skip_invalid_vrf(node)) {
    if (ends_walk(node, function)) return nullptr;
    if (vrf_exists(node->vrf_name)) return node;
  }
  return nullptr;
}

// `find` has the node without a walk.
template <typename Matches, typename Find>
IfNode* find_in_vrf(const char* function, const char* vrf_name, Matches matches, Find find) {
  mpls_vpn_debug(DBASE, "Entering %s", function);
  mpls_vpn_mib_clean_if_dbase();
  if (!mpls_vpn_tally_has_nameless()) {
    IfNode* node = find();
    return node == nullptr ? nullptr : report_found(function, node);
  }
  for (IfNode* node = first_of_run(vrf_name); node != nullptr; node = next_of_run(node, vrf_name)) {
    if (ends_walk(node, function)) return nullptr;
    if (matches(*node)) return report_found(function, node);
  }
  return nullptr;
}

}  // namespace

void mpls_vpn_mib_forget_latest(const IfNode* node) {
  if (latest_next == node) latest_next = nullptr;
}

IfNode* mpls_vpn_mib_get_if(bool exact, const char* vrf_name, std::uint32_t if_index) {
  mpls_vpn_mib_clean_if_dbase();
  return get_if_unrepaired(exact, vrf_name, if_index);
}

IfNode* mpls_vpn_mib_get_if_by_handle(bool exact, std::uint32_t if_handle) {
  mpls_vpn_mib_clean_if_dbase();
  IfNode key{};
  key.if_handle = if_handle;
  IfNode* node = search(kIfByHandle, exact, key);
  return node == nullptr ? nullptr : report_found(__func__, node);
}

IfNode* mpls_vpn_mib_get_first_if_of_vrf(const char* vrf_name) {
  IfNode* node = mpls_vpn_mib_get_if(false, vrf_name, 0);
  return node != nullptr && is_of_vrf(node, vrf_name) ? node : nullptr;
}

IfNode* mpls_vpn_mib_get_next_if_of_vrf(const IfNode* node, const char* vrf_name) {
  mpls_vpn_mib_clean_if_dbase();
  return next_of_run(node, vrf_name);
}

IfNode* mpls_vpn_mib_get_if_by_vrf_and_handle(const char* vrf_name, std::uint32_t if_handle) {
  const auto matches = [=](const IfNode& node) { return node.if_handle == if_handle; };
  return find_in_vrf(__func__, vrf_name, matches, [=]() -> IfNode* {
    IfNode key{};
    key.if_handle = if_handle;
    IfNode* node = search(kIfByHandle, true, key);
    return node != nullptr && node->if_index != 0 && is_of_vrf(node, vrf_name) ? node : nullptr;
  });
}

IfNode* mpls_vpn_mib_get_if_by_vrf_and_name(const char* vrf_name, const char* if_name) {
  const auto matches = [=](const IfNode& node) {
    return if_name != nullptr && std::strcmp(node.if_name, if_name) == 0;
  };
  return find_in_vrf(__func__, vrf_name, matches, [=]() -> IfNode* {
    if (vrf_name == nullptr || if_name == nullptr) return nullptr;
    return mpls_vpn_tally_node_of_name(vrf_name, if_name);
  });
}

const char* mpls_vpn_mib_get_first_invalid_vrf() {
  mpls_vpn_mib_clean_if_dbase();
  if (!mpls_vpn_tally_has_nameless()) return report_invalid(mpls_vpn_tally_invalid_after(nullptr));
  return invalid_vrf_from(static_cast<IfNode*>(wavl_first(mpls_vpn_mib_if_tree(), kIfByVrf)), __func__);
}

const char* mpls_vpn_mib_get_next_invalid_vrf(const char* vrf_name) {
  mpls_vpn_mib_clean_if_dbase();
  const IfNode* node = get_if_unrepaired(false, vrf_name, 0);
  if (node == nullptr) return nullptr;
  const char* found = mpls_vpn_tally_has_nameless() ? next_invalid_vrf_from(node, vrf_name)
                                                    : report_invalid(mpls_vpn_tally_invalid_after(vrf_name));
  if (found == nullptr || mpls_vpn_name_compare(found, vrf_name) == kWavlEqual) return nullptr;
  mpls_vpn_debug(DBASE, "Returning invalid vrf %s", found);
  return found;
}

IfNode* mpls_vpn_mib_get_next_valid_intf(const char* vrf_name, std::uint32_t if_index) {
  mpls_vpn_mib_clean_if_dbase();
  return valid_from(get_if_unrepaired(false, vrf_name, if_index), __func__);
}

IfNode* mpls_vpn_mib_get_following_valid_intf(const IfNode* node) {
  IfNode* const following = successor(node);
  const bool is_of_same_vrf = following != nullptr && is_of_vrf(following, node->vrf_name);
  if (is_of_same_vrf && !ends_walk(following, __func__)) return following;
  return is_of_same_vrf ? nullptr : valid_from(following, __func__);
}

IfNode* mpls_vpn_mib_if_dbase_first() {
  mpls_vpn_mib_clean_if_dbase();
  return static_cast<IfNode*>(wavl_first(mpls_vpn_mib_if_tree(), kIfByVrf));
}

IfNode* mpls_vpn_mib_if_dbase_after(const char* vrf_name, std::uint32_t if_index) {
  mpls_vpn_mib_clean_if_dbase();
  IfNode* node = search_by_vrf(false, vrf_name, if_index);
  const bool is_same = node != nullptr && is_of_vrf(node, vrf_name) && node->if_index == if_index;
  return is_same ? successor(node) : node;
}

IfNode* mpls_vpn_mib_if_dbase_next(const IfNode* node) {
  mpls_vpn_mib_clean_if_dbase();
  return successor(node);
}

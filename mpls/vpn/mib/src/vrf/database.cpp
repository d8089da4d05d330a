// One tree with one ordering; all state is in its nodes. The operations take no lock: writers are the
// membership handlers, which hold the database mutex, and readers run on the same thread. VRFs that have
// interfaces without having been announced are found by the interface database.
#include "mpls/vpn/mib/src/vrf/database.h"

#include <cstdlib>

#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/tally/tally.h"
#include "platform/core/base/memory.h"

namespace {

WavlTree mpls_vpn_mib_vrf_dbase MPLS_GUARDED_BY(mpls_vpn_mutex);

constexpr unsigned kByName = 0;

// The tree for reading, which needs no lock on the main thread.
const WavlTree* vrf_tree() MPLS_NO_THREAD_SAFETY_ANALYSIS {
  return &mpls_vpn_mib_vrf_dbase;
}

std::uint32_t compare_by_name(const void* left, const void* right) {
  if (left == nullptr || right == nullptr) return mpls_vpn_order(left != nullptr, right != nullptr);
  return mpls_vpn_name_compare(static_cast<const VrfNode*>(left)->vrf_name,
                               static_cast<const VrfNode*>(right)->vrf_name);
}

// The node of the latest exact search that found one. A walk over the record service's VRFs, which are in the
// same order, asks for the node of one VRF after the other.
VrfNode* latest = nullptr;

bool has_name(const VrfNode* node, const char* vrf_name) {
  return node != nullptr && mpls_vpn_name_compare(node->vrf_name, vrf_name) == kWavlEqual;
}

VrfNode* search_near_latest(const char* vrf_name) {
  if (latest == nullptr || has_name(latest, vrf_name)) return latest;
  auto* next = static_cast<VrfNode*>(wavl_next(vrf_tree(), kByName, latest));
  return has_name(next, vrf_name) ? next : nullptr;
}

VrfNode* search(bool exact, const char* vrf_name) {
  if (VrfNode* near = exact ? search_near_latest(vrf_name) : nullptr) return latest = near;
  VrfNode key{};
  key.vrf_name = const_cast<char*>(vrf_name);  // only read by the compare function
  void* found =
      exact ? wavl_search(vrf_tree(), kByName, &key) : wavl_search_greater_equal(vrf_tree(), kByName, &key);
  auto* node = static_cast<VrfNode*>(found);
  if (exact && node != nullptr) latest = node;
  return node;
}

void free_vrf_node(VrfNode* node) {
  std::free(node->vrf_name);
  std::free(node);
}

// Null without memory for the node and its name.
VrfNode* new_vrf_node(const char* vrf_name, VtabVrfRecord* vrf_rec) {
  auto* node = static_cast<VrfNode*>(calloc_tagged(1, sizeof(VrfNode), "VRF node"));
  if (node == nullptr) return nullptr;
  node->vrf_name = text_copy(vrf_name);
  node->vrf_rec = vrf_rec;
  if (node->vrf_name != nullptr || vrf_name == nullptr) return node;
  free_vrf_node(node);
  return nullptr;
}

bool unlink_node(VrfNode* node, const char* function) MPLS_REQUIRES(mpls_vpn_mutex) {
  const Status rc = wavl_delete_all(&mpls_vpn_mib_vrf_dbase, node);
  if (rc == kStatusOk) {
    if (latest == node) latest = nullptr;
    if (node->vrf_name != nullptr) mpls_vpn_tally_withdraw(node->vrf_name);
    return true;
  }
  mpls_vpn_report_failure(DBASE, rc, "%s: Cannot delete node from WAVL tree", function);
  return false;
}

int print_vrf_fn(void* visited, void* /*argument*/) {
  const auto* node = static_cast<const VrfNode*>(visited);
  if (mpls_vpn_mib_vrf_node_validate(node) == kStatusOk) {
    // The facility takes one line break off a print's end, so this one is not seen.
    mpls_vpn_debug(DBASE, "VRF = %s\n", node->vrf_name);
  } else {
    mpls_vpn_report_failure(DBASE, kStatusInvalidNode, "Found invalid if node in %s", "print_vrf_fn");
  }
  return 1;
}

}  // namespace

// Runs before there is a second user of the database.
Status mpls_vpn_mib_vrf_dbase_init() MPLS_NO_THREAD_SAFETY_ANALYSIS {
  const WavlCompare compare[] = {compare_by_name};
  return wavl_init(&mpls_vpn_mib_vrf_dbase, 1, compare);
}

void mpls_vpn_mib_vrf_dbase_end() {
  const MplsVpnLock lock(__func__, ERR);
  if (!lock) return;
  while (auto* node = static_cast<VrfNode*>(wavl_first(&mpls_vpn_mib_vrf_dbase, kByName))) {
    if (!unlink_node(node, __func__)) break;
    free_vrf_node(node);
  }
}

VrfNode* mpls_vpn_mib_create_vrf_wavl_node(const char* vrf_name, VtabVrfRecord* vrf_rec) {
  VrfNode* node = new_vrf_node(vrf_name, vrf_rec);
  if (node == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusNoMemory, "Error (%s): No memory to create if node", __func__);
    return nullptr;
  }
  const Status rc = wavl_insert(&mpls_vpn_mib_vrf_dbase, kByName, node);
  if (rc != kStatusOk) {
    free_vrf_node(node);
    mpls_vpn_report_failure(ERR, rc, "Error (%s): Cannot insert node into WAVL tree", __func__);
    return nullptr;
  }
  if (vrf_name != nullptr && vrf_rec != nullptr) mpls_vpn_tally_announce(vrf_name);
  return node;
}

int mpls_vpn_mib_delete_vrf_wavl_node(VrfNode* node) {
  return unlink_node(node, __func__) ? 1 : 0;
}

int mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name(const char* vrf_name) {
  mpls_vpn_debug(DBASE, "Entering %s: vrf_name = %s", __func__, mpls_vpn_shown(vrf_name));
  if (vrf_name == nullptr) {
    mpls_vpn_report_failure(DBASE, kStatusInvalid, "Invoked %s with NULL vrf_name", __func__);
    return 0;
  }
  VrfNode* node = search(true, vrf_name);
  if (node == nullptr) {
    mpls_vpn_report_failure(DBASE, kStatusNoSuchRow, "%s: Cannot find matching WAVL node", __func__);
    return 0;
  }
  if (!unlink_node(node, __func__)) return 0;
  free_vrf_node(node);
  return 1;
}

VrfNode* mpls_vpn_mib_get_vrf_node(bool exact, const char* vrf_name) {
  VrfNode* node = search(exact, vrf_name);
  if (node == nullptr) {
    mpls_vpn_debug(DBASE, "get_greater_equal found node NULL");
    return nullptr;
  }
  if (mpls_vpn_mib_vrf_node_validate(node) != kStatusOk) {
    mpls_vpn_report_failure(DBASE, kStatusInvalidNode, "Found invalid if node in %s", __func__);
    return nullptr;
  }
  return node;
}

VrfNode* mpls_vpn_mib_vrf_dbase_first() {
  return static_cast<VrfNode*>(wavl_first(vrf_tree(), kByName));
}

VrfNode* mpls_vpn_mib_vrf_dbase_after(const char* vrf_name) {
  VrfNode* node = search(false, vrf_name);
  return has_name(node, vrf_name) ? mpls_vpn_mib_vrf_dbase_next(node) : node;
}

VrfNode* mpls_vpn_mib_vrf_dbase_next(const VrfNode* node) {
  return static_cast<VrfNode*>(wavl_next(vrf_tree(), kByName, node));
}

Status mpls_vpn_mib_vrf_node_validate(const VrfNode* node) {
  if (node->vrf_name == nullptr) {
    mpls_vpn_report_failure(DBASE, kStatusInvalidNode, "Invalid node: vrf_name is NULL");
    return kStatusInvalidNode;
  }
  if (node->vrf_rec == nullptr) {
    mpls_vpn_report_failure(DBASE, kStatusInvalidNode, "Invalid node: vrf_rec is NULL");
    return kStatusInvalidNode;
  }
  return kStatusOk;
}

void mpls_vpn_mib_vrf_dbase_print() {
  mpls_vpn_debug(DBASE, "Start print");
  if (wavl_walk(vrf_tree(), kByName, print_vrf_fn, nullptr) == 0) {
    mpls_vpn_trace(kTraceError, kStatusInvalid, "the walk of the VRF database was stopped");
  }
  mpls_vpn_debug(DBASE, "End print");
}

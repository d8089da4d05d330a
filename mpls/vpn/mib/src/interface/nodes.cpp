// The interface database's tree, its state, and the creation and release of nodes. lookup.cpp has the
// look-ups, repair.cpp the repair pass, interface_name.cpp the interface manager's names.
//
// A node contains the links of both orderings, so linking never allocates. It is in the handle ordering from
// its creation to its deletion, and in the VRF ordering from the moment it has an index. The rows of
// mplsL3VpnIfConfTable (RFC 4382) are the nodes of the VRF ordering whose VRF has a complete record.
//
// Main thread, with the database mutex held; the print and the validity test need no lock.
#include "mpls/vpn/mib/src/interface/database.h"

#include <cstdlib>
#include <cstring>

#include "mpls/vpn/mib/src/interface/database_internal.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/tally/tally.h"
#include "platform/core/base/memory.h"

WavlTree mpls_vpn_mib_if_dbase;

namespace {

bool dbase_dirty MPLS_GUARDED_BY(mpls_vpn_mutex) = false;

// The order of mpls_vpn_name_compare().
std::uint32_t compare_vrf_names(const IfNode* left, const IfNode* right) {
  if (left->vrf_name_length != right->vrf_name_length) {
    return mpls_vpn_order(left->vrf_name_length, right->vrf_name_length);
  }
  if (left->vrf_name == nullptr || right->vrf_name == nullptr) {
    return mpls_vpn_order(left->vrf_name != nullptr, right->vrf_name != nullptr);
  }
  return mpls_vpn_order(std::memcmp(left->vrf_name, right->vrf_name, left->vrf_name_length), 0);
}

std::uint32_t compare_by_vrf(const void* left, const void* right) {
  if (left == nullptr || right == nullptr) return mpls_vpn_order(left != nullptr, right != nullptr);
  const auto* first = static_cast<const IfNode*>(left);
  const auto* second = static_cast<const IfNode*>(right);
  const std::uint32_t names = compare_vrf_names(first, second);
  return names != kWavlEqual ? names : mpls_vpn_order(first->if_index, second->if_index);
}

std::uint32_t compare_by_handle(const void* left, const void* right) {
  if (left == nullptr || right == nullptr) return mpls_vpn_order(left != nullptr, right != nullptr);
  return mpls_vpn_order(static_cast<const IfNode*>(left)->if_handle,
                        static_cast<const IfNode*>(right)->if_handle);
}

constexpr const char* kCreate = "mpls_vpn_mib_create_if_wavl_node";

bool may_create(const char* vrf_name, std::uint32_t if_handle) {
  if (if_handle == 0) {
    mpls_vpn_report_failure(ERR, kStatusInvalid, "Error (%s): NULL interface handle", kCreate);
    return false;
  }
  if (vrf_name == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusInvalid, "Error (%s): NULL VRF for interface 0x%x", kCreate,
                            if_handle);
    return false;
  }
  return true;
}

// The texts of a node are in the node's block, the interface's name after the VRF's, which saves two blocks.
// A name that the interface gets later has a block of its own.
char* place_of_vrf_name(IfNode* node) {
  return reinterpret_cast<char*>(node + 1);
}

char* place_of_if_name(IfNode* node, const char* vrf_name) {
  return place_of_vrf_name(node) + std::strlen(vrf_name) + 1;
}

void free_if_name(IfNode* node) {
  if (node->vrf_name != nullptr && node->if_name == place_of_if_name(node, node->vrf_name)) return;
  std::free(node->if_name);
}

// A node with copies of the texts, in no ordering; null without memory for it.
IfNode* new_if_node(const char* vrf_name, std::uint32_t if_index, const char* if_name,
                    std::uint32_t if_handle) {
  const std::size_t vrf_name_length = std::strlen(vrf_name);
  const std::size_t texts = vrf_name_length + 1 + (if_name == nullptr ? 0 : std::strlen(if_name)) + 1;
  auto* node = static_cast<IfNode*>(calloc_tagged(1, sizeof(IfNode) + texts, "IF node"));
  if (node == nullptr) return nullptr;
  node->vrf_name = text_copy_to(place_of_vrf_name(node), vrf_name);
  node->vrf_name_length = static_cast<std::uint32_t>(vrf_name_length);
  node->if_index = if_index;
  if (node->vrf_name != nullptr) node->if_name = text_copy_to(place_of_if_name(node, vrf_name), if_name);
  node->if_handle = if_handle;
  if (node->vrf_name != nullptr && (node->if_name != nullptr || if_name == nullptr)) return node;
  mpls_vpn_mib_free_if_node(node);
  return nullptr;
}

bool link_by_vrf(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex) {
  if (node->if_index == 0) {
    mpls_vpn_report(DBASE, kTraceDbase, "DIRTY: no if_index for interface 0x%x", node->if_handle);
    mpls_vpn_mib_if_dbase_set_dirty(true);
    return true;
  }
  const Status rc = wavl_insert(&mpls_vpn_mib_if_dbase, kIfByVrf, node);
  if (rc == kStatusOk) {
    mpls_vpn_tally_enter(node);
    return true;
  }
  mpls_vpn_report_failure(
      ERR, rc, "Error (%s): Cannot insert node into vrf/ifindex WAVL thread for interface 0x%x, if_index %u",
      kCreate, node->if_handle, node->if_index);
  return false;
}

// Removes the node from the VRF ordering and frees it. A node that cannot be unlinked is not freed: a leaked
// node is harmless, a linked node that is freed is not.
void discard_half_linked(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex) {
  const Status rc = wavl_delete(&mpls_vpn_mib_if_dbase, kIfByVrf, node);
  if (rc != kStatusOk && rc != kStatusNoSuchRow) {  // a node without an index is not there
    mpls_vpn_trace(kTraceError, rc, "interface 0x%x stays linked by its VRF", node->if_handle);
    return;
  }
  mpls_vpn_tally_leave(node);
  mpls_vpn_mib_free_if_node(node);
}

// False when another node has the handle; this node is then discarded.
bool link_by_handle(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex) {
  const Status rc = wavl_insert(&mpls_vpn_mib_if_dbase, kIfByHandle, node);
  if (rc == kStatusOk) return true;
  mpls_vpn_report_failure(
      ERR, rc, "Error (%s): Cannot insert node into ifhandle WAVL thread for interface 0x%x, if_index",
      kCreate, node->if_handle);
  discard_half_linked(node);
  return false;
}

int print_visited_node(void* node, void* /*argument*/) {
  return mpls_vpn_mib_if_node_print(static_cast<IfNode*>(node));
}

}  // namespace

// Reads without the mutex: see the lock rule in mpls/vpn/mib/src/support/mutex.h.
const WavlTree* mpls_vpn_mib_if_tree() MPLS_NO_THREAD_SAFETY_ANALYSIS {
  return &mpls_vpn_mib_if_dbase;
}
bool mpls_vpn_mib_if_dbase_is_dirty() MPLS_NO_THREAD_SAFETY_ANALYSIS {
  return dbase_dirty;
}

void mpls_vpn_mib_if_dbase_set_dirty(bool dirty) {
  dbase_dirty = dirty;
}

IncompleteIfs& mpls_vpn_mib_incomplete_ifs() {
  static IncompleteIfs incomplete;
  return incomplete;
}

bool mpls_vpn_mib_if_is_complete(const IfNode* node) {
  return node->if_name != nullptr && node->if_index != 0;
}

void mpls_vpn_mib_free_if_node(IfNode* node) {
  if (node == nullptr) return;
  mpls_vpn_mib_forget_latest(node);
  free_if_name(node);
  std::free(node);
}

void mpls_vpn_mib_set_if_name(IfNode* node, char* if_name) {
  const bool is_counted = node->tally != TallyState::kNotCounted;
  mpls_vpn_tally_leave(node);
  free_if_name(node);
  node->if_name = if_name;
  if (is_counted) mpls_vpn_tally_enter(node);
}

Status mpls_vpn_mib_if_dbase_init() {
  const MplsVpnLock lock(__func__, ERR);
  if (!lock) return lock.status();
  mpls_vpn_tally_begin();
  const WavlCompare compare[] = {compare_by_vrf, compare_by_handle};
  return wavl_init(&mpls_vpn_mib_if_dbase, 2, compare);
}

void mpls_vpn_mib_if_dbase_end() {
  const MplsVpnLock lock(__func__, ERR);
  if (!lock) return;
  while (auto* node = static_cast<IfNode*>(wavl_first(&mpls_vpn_mib_if_dbase, kIfByHandle))) {
    if (wavl_delete_all(&mpls_vpn_mib_if_dbase, node) != kStatusOk) break;
    mpls_vpn_tally_leave(node);
    mpls_vpn_mib_free_if_node(node);
  }
  mpls_vpn_mib_incomplete_ifs().clear();
  mpls_vpn_tally_end();
  mpls_vpn_mib_if_dbase_set_dirty(false);
}

IfNode* mpls_vpn_mib_create_if_wavl_node(const char* vrf_name, std::uint32_t if_index, const char* if_name,
                                         std::uint32_t if_handle) {
  mpls_vpn_debug(DBASE, "Entering %s: vrf_name = %s, if_index = %u, if_name = %s, if_handle = 0x%x", kCreate,
                 mpls_vpn_shown(vrf_name), if_index, mpls_vpn_shown(if_name), if_handle);
  if (!may_create(vrf_name, if_handle)) return nullptr;
  IfNode* node = new_if_node(vrf_name, if_index, if_name, if_handle);
  if (node == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusNoMemory,
                            "Error (%s): No memory to create if node for ifhandle = 0x%x", kCreate,
                            if_handle);
    return nullptr;
  }
  if (!link_by_vrf(node)) {
    mpls_vpn_mib_free_if_node(node);
    return nullptr;
  }
  if (!link_by_handle(node)) return nullptr;
  if (!mpls_vpn_mib_if_is_complete(node)) mpls_vpn_mib_incomplete_ifs().emplace(if_handle, node);
  mpls_vpn_trace(kTraceDbase, kStatusOk, "created: VRF %s, if_index %u, if_handle 0x%x", vrf_name, if_index,
                 if_handle);
  return node;
}

int mpls_vpn_mib_delete_if_wavl_node(IfNode* node) {
  mpls_vpn_report(DBASE, kTraceDbase, "Entering %s: with if_name = %s, if_handle = 0x%x", __func__,
                  mpls_vpn_shown(node->if_name), node->if_handle);
  const Status rc = wavl_delete_all(&mpls_vpn_mib_if_dbase, node);
  if (rc != kStatusOk) {
    mpls_vpn_report_failure(DBASE, rc, "%s: Cannot delete node from WAVL tree", __func__);
    return 0;
  }
  mpls_vpn_tally_leave(node);
  mpls_vpn_mib_incomplete_ifs().erase(node->if_handle);
  mpls_vpn_mib_free_if_node(node);
  return 1;
}

Status mpls_vpn_mib_if_node_validate(const IfNode* node) {
  if (node->vrf_name == nullptr) {
    mpls_vpn_report_failure(DBASE, kStatusInvalidNode, "Invalid node: vrf_name is NULL");
    return kStatusInvalidNode;
  }
  if (node->if_name == nullptr) {
    mpls_vpn_report_failure(DBASE, kStatusInvalidNode, "Invalid node: if_name is NULL");
    return kStatusInvalidNode;
  }
  return kStatusOk;
}

int mpls_vpn_mib_if_node_print(const IfNode* node) {
  const Status rc = mpls_vpn_mib_if_node_validate(node);
  mpls_vpn_debug(DBASE, "vrf_name = %s, if_index = %u, if_name = %s, if_handle = 0x%x, valid? %s",
                 mpls_vpn_shown(node->vrf_name), node->if_index, mpls_vpn_shown(node->if_name),
                 node->if_handle, rc == kStatusOk ? "yes" : err_text(rc));
  return 1;
}

void mpls_vpn_mib_if_dbase_walk() {
  mpls_vpn_debug(DBASE, "Start walk");
  if (wavl_walk(mpls_vpn_mib_if_tree(), kIfByVrf, print_visited_node, nullptr) == 0) {
    mpls_vpn_trace(kTraceError, kStatusInvalid, "the walk of the interface database was stopped");
  }
  mpls_vpn_debug(DBASE, "End walk");
}

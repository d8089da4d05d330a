// The repair pass of the interface database: completes the nodes that were stored before their name or index
// could be resolved.
//
// The pass visits the incomplete nodes in the order of their handles, under the database mutex. Look-ups call
// it; it does nothing while the database is clean. It leaves the database DIRTY when something stays
// unresolved, so that the next look-up tries again and completes the node as soon as the platform knows the
// interface. Complete nodes are not visited: every step of a walk is a look-up.
//
// A caller that holds the mutex (a join or leave) cannot run the pass: the lock fails, which is reported, and
// the next look-up without the mutex repairs. A join must see the nodes unrepaired.
//
// One step deletes: a node whose (VRF, index) belongs to another node already. Main thread.
#include "mpls/vpn/mib/src/interface/database.h"

#include <iterator>

#include "mpls/vpn/mib/src/interface/database_internal.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/tally/tally.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/memory.h"
#include "platform/router/ifindex/ifindex.h"

namespace {

void resolve_name(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex) {
  char* name = text_copy(mpls_vpn_get_interface_name(node->if_handle));
  mpls_vpn_mib_set_if_name(node, name);
  if (node->if_name != nullptr) {
    mpls_vpn_report(DBASE, kTraceDbase, "Interface 0x%x: resolved if_name = %s", node->if_handle,
                    node->if_name);
    return;
  }
  mpls_vpn_debug(DBASE, "DIRTY: Failed to resolve if_name for interface 0x%x", node->if_handle);
  mpls_vpn_mib_if_dbase_set_dirty(true);
}

// 1. Or 0 when another node has its place in the VRF ordering: this node is then deleted.
int link_resolved_node(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex) {
  const Status rc = wavl_insert(&mpls_vpn_mib_if_dbase, kIfByVrf, node);
  if (rc == kStatusOk) {
    mpls_vpn_tally_enter(node);
    return 1;
  }
  mpls_vpn_report_failure(
      ERR, rc, "Error (%s): Cannot insert node into vrf/ifindex WAVL thread for interface 0x%x, if_index",
      "mpls_vpn_mib_clean_if_dbase_walker", node->if_handle);
  const Status unlinked = wavl_delete_all(&mpls_vpn_mib_if_dbase, node);
  if (unlinked != kStatusOk) {
    mpls_vpn_trace(kTraceError, unlinked, "interface 0x%x stays linked by its handle", node->if_handle);
    node->if_index = 0;  // a node outside the VRF ordering has no index
    return 0;
  }
  mpls_vpn_mib_incomplete_ifs().erase(node->if_handle);
  mpls_vpn_mib_free_if_node(node);
  return 0;
}

int resolve_index(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex) {
  const Status rc = ifname_to_index(node->if_name, &node->if_index);
  if (rc == kStatusOk && node->if_index != 0) {
    mpls_vpn_report(DBASE, kTraceDbase, "Interface 0x%x: resolved if_index = %u", node->if_handle,
                    node->if_index);
    return link_resolved_node(node);
  }
  mpls_vpn_debug(DBASE, "DIRTY: Failed to resolve if_index for interface 0x%x: %s", node->if_handle,
                 err_text(rc));
  node->if_index = 0;
  mpls_vpn_mib_if_dbase_set_dirty(true);
  return 1;
}

// 1, or 0 when the visit of a node stopped it.
int visit_incomplete_nodes() MPLS_REQUIRES(mpls_vpn_mutex) {
  if (fault_check("mpls_vpn_mib_clean_if_dbase") != kStatusOk) return 0;
  IncompleteIfs& incomplete = mpls_vpn_mib_incomplete_ifs();
  for (auto at = incomplete.begin(); at != incomplete.end();) {
    IfNode* node = at->second;
    const auto next = std::next(at);  // a visit may delete its node, and no other
    if (mpls_vpn_mib_clean_if_dbase_walker(node) == 0) return 0;
    if (mpls_vpn_mib_if_is_complete(node)) incomplete.erase(at);
    at = next;
  }
  return 1;
}

int repair_nodes() MPLS_REQUIRES(mpls_vpn_mutex) {
  mpls_vpn_mib_if_dbase_set_dirty(false);
  const int result = visit_incomplete_nodes();
  if (result == 0) {
    mpls_vpn_report(DBASE, kTraceDbase, "DIRTY: WAVL walk failed");
    mpls_vpn_mib_if_dbase_set_dirty(true);
  }
  return result;
}

}  // namespace

int mpls_vpn_mib_clean_if_dbase_walker(IfNode* node) {
  if (node->if_name == nullptr) resolve_name(node);
  if (node->if_name == nullptr || node->if_index != 0) return 1;
  return resolve_index(node);
}

int mpls_vpn_mib_clean_if_dbase() {
  if (!mpls_vpn_mib_if_dbase_is_dirty()) return 1;
  mpls_vpn_debug(DBASE, "Start cleaning interface database...");
  int result = 0;
  {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) return 0;
    result = repair_nodes();
  }
  mpls_vpn_debug(DBASE, "Done cleaning interface database. State is %s.",
                 mpls_vpn_mib_if_dbase_is_dirty() ? "DIRTY" : "clean");
  return result;
}

// Handlers of the membership service's events: joins, leaves and VRF events, applied to the databases.
//
// A join resolves name and index before it takes the mutex. It then compares three things: the node with that
// (VRF, index), the node with that handle, and the announcement. If both keys lead to one node, the interface
// is already in place. Any other node found is in conflict: it is deleted, its VRF touched, and a new node
// created. An interface whose name or index cannot be resolved is entered by handle only; the repair pass
// completes it later. Interfaces with a subscriber's name (".ip" or ".pppoe" in it) are never entered.
//
// Look-ups made here run under the mutex and therefore never repair (support/mutex.h).
//
// A VRF that is announced again, after the connection was lost, has a node already; its creation time is
// stamped anew. Times: mplsL3VpnVrfCreationTime and mplsL3VpnVrfConfLastChanged of RFC 4382. Main thread.
#include "mpls/vpn/mib/src/membership/membership.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"
#include "mpls/vpn/mib/src/interface/active.h"
#include "mpls/vpn/mib/src/interface/cached_ifindex.h"
#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/traps/procedures.h"
#include "mpls/vpn/mib/src/vrf/database.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/memory.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/router/vmap/vmap.h"
#include "platform/store/tree/kvtree.h"

namespace {

constexpr std::size_t kNameBufferSize = 65;
constexpr std::size_t kRdTextSize = 51;

// The interface that joins, as far as it could be resolved.
struct Joining {
  std::uint32_t if_handle;
  const char* vrf_name;
  std::uint32_t if_index;                     // 0: not resolved
  std::array<char, kNameBufferSize> if_name;  // empty: not resolved
};

void resolve_name(Joining* joining) {
  const char* name = mpls_vpn_get_interface_name(joining->if_handle);
  if (name != nullptr) std::snprintf(joining->if_name.data(), joining->if_name.size(), "%s", name);
}

void refresh_name(IfNode* node, const Joining& joining) MPLS_REQUIRES(mpls_vpn_mutex) {
  if (node->if_name != nullptr && std::strcmp(node->if_name, joining.if_name.data()) == 0) {
    mpls_vpn_debug(VMAP, "Interface was already in this vrf. VRF is created or deleted");
    return;
  }
  char* name = text_copy(joining.if_name.data());
  if (name == nullptr) {  // a node without a name would end every walk of its VRF, so retain the old one
    mpls_vpn_error("mpls_vpn_mib_if2vrf_add", "text_copy failed", kStatusNoMemory);
    return;
  }
  mpls_vpn_mib_set_if_name(node, name);
  mpls_vpn_report(VMAP, kTraceVmap, "Updated in VRF %s the ifname for ifhandle 0x%x, ifindex %u",
                  joining.vrf_name, joining.if_handle, joining.if_index);
}

bool delete_node_in_the_way(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex) {
  if (mpls_vpn_mib_delete_if_wavl_node(node) != 0) return true;
  mpls_vpn_report_failure(VMAP, kStatusInvalid, "Could not delete interface from the WAVL tree");
  return false;
}

// Deletes the node of another handle that has the joining interface's (VRF, index).
bool clear_key(IfNode* node, const Joining& joining) MPLS_REQUIRES(mpls_vpn_mutex) {
  update_vrf_last_changed(node->vrf_name);
  mpls_vpn_report(VMAP, kTraceVmap,
                  "CONFLICT: deleting node (VRF %s, ifindex %u, ifhandle 0x%x) due to new ifhandle 0x%x",
                  node->vrf_name, node->if_index, node->if_handle, joining.if_handle);
  return delete_node_in_the_way(node);
}

// Deletes the node that has the joining interface's handle in another place.
bool clear_handle(IfNode* node, const Joining& joining) MPLS_REQUIRES(mpls_vpn_mutex) {
  update_vrf_last_changed(node->vrf_name);
  mpls_vpn_report(
      VMAP, kTraceVmap,
      "CONFLICT: deleting node (VRF %s, ifindex %u, ifhandle 0x%x) due to new (VRF %s, ifindex %u)",
      node->vrf_name, node->if_index, node->if_handle, joining.vrf_name, joining.if_index);
  return delete_node_in_the_way(node);
}

// Whether the interface is active and has not raised this notification yet. The print is TRUE if it has.
bool may_raise(const IfNode* node, const char* notification, std::uint32_t was_sent) {
  const VtabIfRecord* record = vtab_get_if_record(node->if_name);
  if (record == nullptr) return false;
  mpls_vpn_debug(TRAPS, "mpls vpn mib vrf %s trap generate: %s", notification,
                 was_sent != 0 ? "TRUE" : "FALSE");
  return interface_is_active(record) && was_sent == 0;
}

void consider_vrf_up(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex) {
  if (!may_raise(node, "up", node->vrf_up_trap_sent)) return;
  mpls_vpn_trace(kTraceVmap, kStatusOk, "interface %s is up in VRF %s", node->if_name, node->vrf_name);
  mpls_vpn_mib_trap_vrf_up(node->vrf_name, node->if_name, node);
}

void consider_vrf_down(const IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex) {
  if (!may_raise(node, "down", node->vrf_down_trap_sent)) return;
  mpls_vpn_trace(kTraceVmap, kStatusOk, "interface %s leaves VRF %s while up", node->if_name, node->vrf_name);
  mpls_vpn_mib_trap_vrf_down(node->vrf_name, node->if_name);
}

// The times of a VRF that is announced while the daemon starts again are restored from the checkpoint later.
void checkpoint_created_vrf(std::uint32_t vrf_id, const VtabVrfRecord* record) {
  if (backend_scan_in_progress != 0 && mpls_vpn_mib_chkpt_first_run() == 0) return;
  if (vrf_id == 0) return;
  const Status rc = mpls_vpn_mib_chkpt_vrf_save(vrf_id, record);
  if (rc != kStatusOk) {
    mpls_vpn_report_failure(ERR, rc, "Could not checkpoint VRF %s ", record->vrf_name);
  }
}

void enter_interface(const Joining& joining) MPLS_REQUIRES(mpls_vpn_mutex) {
  IfNode* by_key =
      joining.if_index == 0 ? nullptr : mpls_vpn_mib_get_if(true, joining.vrf_name, joining.if_index);
  IfNode* by_handle = mpls_vpn_mib_get_if_by_handle(true, joining.if_handle);
  if (by_key != nullptr && by_key == by_handle) {
    refresh_name(by_key, joining);
    return;
  }
  if (by_key != nullptr && !clear_key(by_key, joining)) return;
  if (by_handle != nullptr && !clear_handle(by_handle, joining)) return;
  IfNode* node = mpls_vpn_mib_create_if_wavl_node(joining.vrf_name, joining.if_index, joining.if_name.data(),
                                                  joining.if_handle);
  if (node == nullptr) return;
  update_vrf_last_changed(joining.vrf_name);
  consider_vrf_up(node);
}

void remove_interface(std::uint32_t if_handle, const char* vrf_name) MPLS_REQUIRES(mpls_vpn_mutex) {
  IfNode* node = mpls_vpn_mib_get_if_by_vrf_and_handle(vrf_name, if_handle);
  if (node == nullptr) {
    mpls_vpn_report_failure(VMAP, kStatusNoSuchRow,
                            "%s: Cannot find matching WAVL node for interface 0x%x in VRF %s",
                            "mpls_vpn_mib_if2vrf_del", if_handle, vrf_name);
    return;
  }
  consider_vrf_down(node);
  if (mpls_vpn_mib_delete_if_wavl_node(node) == 0) {
    mpls_vpn_report_failure(VMAP, kStatusInvalid,
                            "Could not delete interface 0x%x in VRF %s from the WAVL tree", if_handle,
                            vrf_name);
    return;
  }
  update_vrf_last_changed(vrf_name);
}

}  // namespace

void mpls_vpn_mib_if2vrf_add(std::uint32_t if_handle, const char* vrf_name) {
  if (if_handle == 0 || vrf_name == nullptr) return;
  mpls_vpn_report(VMAP, kTraceVmap, "VMAP: interface 0x%x updated under vrf %s", if_handle, vrf_name);
  Joining joining{if_handle, vrf_name, 0, {}};
  resolve_name(&joining);
  if (joining.if_name[0] != '\0') {
    if (vmap_is_subscribers_name(joining.if_name.data())) return;
    joining.if_index = mpls_vpn_cached_ifname_to_index(joining.if_name.data());
  }
  const MplsVpnLock lock(__func__, ERR);
  if (!lock) return;
  enter_interface(joining);
}

void mpls_vpn_mib_if2vrf_del(std::uint32_t if_handle, const char* vrf_name) {
  if (if_handle == 0 || vrf_name == nullptr) return;
  mpls_vpn_report(VMAP, kTraceVmap, "VMAP: interface 0x%x has been removed from vrf %s", if_handle, vrf_name);
  const MplsVpnLock lock(__func__, ERR);
  if (!lock) return;
  remove_interface(if_handle, vrf_name);
}

void mpls_vpn_mib_vrf_created(const char* vrf_name, std::uint32_t vrf_id, std::uint32_t flags) {
  mpls_vpn_debug(VMAP, "VMAP: VRF %s created", vrf_name);
  mpls_vpn_trace(kTraceVmap, kStatusOk, "VRF %s created, vrf_id 0x%x, flags 0x%x", vrf_name, vrf_id, flags);
  VtabVrfRecord* record = get_vrf_record(vrf_name);
  if (record == nullptr) return;
  mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  text_replace(&attributes->rd, nullptr);
  attributes->creation_time = static_cast<std::uint32_t>(clock_stamp() / kNanosecondsPerSecond);
  attributes->is_big_vrf = (flags & kVrfFlagBigVrf) != 0 ? 1 : 0;
  if (mpls_vpn_mib_create_vrf_wavl_node(vrf_name, record) == nullptr) {
    mpls_vpn_report_failure(VMAP, kStatusInvalid, "Could not insert into VRF database");
  }
  checkpoint_created_vrf(vrf_id, record);
}

void mpls_vpn_mib_vrf_deleted(const char* vrf_name, std::uint32_t vrf_id) {
  mpls_vpn_debug(VMAP, "VMAP: VRF %s deleted", vrf_name);
  mpls_vpn_trace(kTraceVmap, kStatusOk, "VRF %s deleted, vrf_id 0x%x", vrf_name, vrf_id);
  if (mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name(vrf_name) == 0) {
    mpls_vpn_report_failure(VMAP, kStatusInvalid, "Could not delete from VRF database");
  }
}

void mpls_vpn_mib_vrf_complete_missing(VtabVrfRecord* record) {
  mpls_vpn_debug(VMAP, "Entering function %s", __func__);
  if (record == nullptr) {
    mpls_vpn_report_failure(VMAP, kStatusInvalid, "NULL arguments in %s", __func__);
    return;
  }
  mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  if (attributes->rd != nullptr) return;
  std::array<char, kRdTextSize> text{};
  const Status rc = bgp_vpn_rd_get(record->vrf_name, text.data(), text.size());
  if (mpls_vpn_checked(__func__, "bgp_vpn_rd_get failed", rc) != kStatusOk) return;
  mpls_vpn_debug(VMAP, "RD get succeeded for vrf %s, RD = %s", record->vrf_name, text.data());
  attributes->rd = text_copy(text.data());
  if (attributes->rd == nullptr) {
    mpls_vpn_error(__func__, "text_copy failed", kStatusNoMemory);
    return;
  }
  update_timestamp(record, &attributes->conf_last_changed_time);
}

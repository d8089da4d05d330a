// The managed connection to the membership service and its callbacks.
//
// Open: bind, build a member database with subscriptions to all interfaces and all VRFs, register. A step
// that fails undoes those before it in reverse order and returns -1; the event manager tries again. Close:
// unbind, which also releases the member database. A closed connection does not empty the daemon's databases:
// the next open subscribes to everything again, and a repeated announcement changes nothing.
//
// Flags mark the items that this daemon ignores. The VRF "default" is the routing context of interfaces in no
// VRF and is not a VPN.
#include "mpls/vpn/mib/src/membership/connection.h"

#include "mpls/vpn/mib/src/membership/membership.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/router/model/default_vrf.h"

namespace {

constexpr std::uint32_t kMemberDatabaseType = 2;
constexpr std::uint32_t kIntfBatch = 40;
constexpr const char* kRegister = "mpls_vpn_mib_vmap_register_for_notification";
constexpr const char* kOpen = "connection_manager_open_handler";

VmapClient* vmap_client = nullptr;
EventConn* vmap_connection = nullptr;

// The membership service requires one and ignores its result.
int library_callback(void* /*argument*/) {
  return 1;
}

void unbind(VmapClient* client) {
  const Status rc = vmap_c_unbind(client);
  if (rc != kStatusOk) mpls_vpn_trace(kTraceError, rc, "%s: vmap_c_unbind", kOpen);
}

// Subscribes to everything and registers, which replays what exists.
Status subscribe(VmapMemberDatabase* database, int* fd, std::uint32_t* num_results) {
  Status rc = mpls_vpn_checked(kOpen, "vmap_c_mdb_add_intf_all",
                               vmap_c_mdb_add_intf_all(database, intf_reg_cb_func, kIntfBatch));
  if (rc != kStatusOk) return rc;
  rc = mpls_vpn_checked(kOpen, "vmap_c_mdb_add_vrf_all", vmap_c_mdb_add_vrf_all(database, vrf_reg_cb_func));
  if (rc != kStatusOk) return rc;
  return mpls_vpn_checked(kOpen, "vmap_c_notif_reg", vmap_c_notif_reg(database, fd, num_results));
}

Status build_member_database(VmapClient* client, int* fd, std::uint32_t* num_results) {
  VmapMemberDatabase* database = nullptr;
  Status rc =
      mpls_vpn_checked(kOpen, "vmap_c_mdb_init", vmap_c_mdb_init(client, kMemberDatabaseType, &database));
  if (rc != kStatusOk) return rc;
  rc = subscribe(database, fd, num_results);
  if (rc != kStatusOk) vmap_c_mdb_free(database);
  return rc;
}

const char* event_text(VmapEvent event) {
  return event == VmapEvent::kUpdate ? "Update" : "Delete";
}

bool is_for_us(const VmapVrfItem* item) {
  return item->vrf_name != router::kDefaultVrf && (item->flags & kVmapVrfFlagIgnore) == 0;
}

}  // namespace

Status mpls_vpn_mib_vmap_register_for_notification(EventManager* evm) {
  Status rc = mpls_vpn_checked(kRegister, "vmap_c_lib_init",
                               vmap_c_lib_init("mpls_vpn", evm, library_callback, &vmap_client));
  if (rc != kStatusOk) return rc;
  rc = mpls_vpn_checked(kRegister, "event_conn_create",
                        event_conn_create(evm, connection_manager_open_handler, vmap_client,
                                          kEventConnRetries, &vmap_connection));
  if (rc != kStatusOk) return rc;
  rc = mpls_vpn_checked(kRegister, "event_conn_notify",
                        event_conn_notify(vmap_connection, kEventConnBoth, connection_manager_close_handler));
  if (rc != kStatusOk) return rc;
  rc = event_conn_open(vmap_connection);
  if (rc == kStatusConnectionRetry) {
    mpls_vpn_report(VMAP, kTraceVmap, "retry connection open with VMAP");
    return kStatusOk;
  }
  return mpls_vpn_checked(kRegister, "event_conn_open", rc);
}

void mpls_vpn_mib_vmap_end() {
  if (vmap_connection != nullptr) event_conn_destroy(vmap_connection);
  vmap_connection = nullptr;
  if (vmap_client != nullptr) vmap_c_lib_end(vmap_client);
  vmap_client = nullptr;
}

int connection_manager_open_handler(void* handle, EventManager* /*evm*/) {
  auto* client = static_cast<VmapClient*>(handle);
  if (client == nullptr) {
    mpls_vpn_error(kOpen, "vmap_handle", kStatusInvalid);
    return -1;
  }
  int fd = -1;
  if (mpls_vpn_checked(kOpen, "vmap_c_bind", vmap_c_bind(client, &fd)) != kStatusOk) return -1;
  std::uint32_t num_results = 0;
  if (build_member_database(client, &fd, &num_results) != kStatusOk) {
    unbind(client);
    return -1;
  }
  mpls_vpn_report(VMAP, kTraceVmap, "In %s, connection established: fd = %d, num_results = %u", kOpen, fd,
                  num_results);
  return fd;
}

Status connection_manager_close_handler(void* handle) {
  auto* client = static_cast<VmapClient*>(handle);
  if (client == nullptr) {
    mpls_vpn_error(__func__, "vmap_close_handler", kStatusInvalid);
    return kStatusInvalid;
  }
  return vmap_c_unbind(client);
}

void vrf_reg_cb_func(VmapMemberDatabase* /*database*/, VmapEvent event, const VmapVrfItem* item) {
  if (item == nullptr) {
    mpls_vpn_report_failure(VMAP, kStatusInvalid, "%s invoked with NULL item", __func__);
    return;
  }
  mpls_vpn_report(VMAP, kTraceVmap,
                  "VMAP Callback VRF %s CB: vrf_name: '%s', vrf_id: 0x%x, vr_id: 0x%x, flags: 0x%x, attr: %p",
                  event_text(event), item->vrf_name, item->vrf_id, item->vr_id, item->flags, item->attr);
  if (!is_for_us(item)) return;
  const MplsVpnLock lock(__func__, ERR);
  if (!lock) return;
  if (event == VmapEvent::kUpdate) {
    mpls_vpn_mib_vrf_created(item->vrf_name, item->vrf_id, item->flags);
  } else {
    mpls_vpn_mib_vrf_deleted(item->vrf_name, item->vrf_id);
  }
}

void intf_reg_cb_func(VmapMemberDatabase* /*database*/, VmapEvent event, const VmapIntfItem* item) {
  if (item == nullptr) {
    mpls_vpn_report_failure(VMAP, kStatusInvalid, "%s invoked with NULL item", __func__);
    return;
  }
  mpls_vpn_report(VMAP, kTraceVmap,
                  "VMAP Callback INTF %s CB: ifh: 0x%x, vrf_id: 0x%x, flags: 0x%x, attr: %p",
                  event_text(event), item->ifh, item->vrf_id, item->flags, item->attr);
  if ((item->flags & kVmapIntfFlagsIgnore) != 0) return;
  if (event == VmapEvent::kUpdate) {
    mpls_vpn_mib_if2vrf_add(item->ifh, item->vrf_name);
  } else {
    mpls_vpn_mib_if2vrf_del(item->ifh, item->vrf_name);
  }
}

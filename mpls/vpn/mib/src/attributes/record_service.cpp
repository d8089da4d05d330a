// The daemon as a client of the record service.
//
// The service creates a VRF record; when configuration names a VRF that the service does not have yet,
// get_vrf_record creates it. The record's vrf_id is 0 until the VRF is created, and its block stores what is
// configured meanwhile.
//
// A callback begins the access of its record, takes the database mutex inside it, and releases both in
// reverse order. When a VRF is deleted the block's texts are freed; the service discards the record.
//
// Main thread only. mplsL3VpnVrfConfLastChanged (RFC 4382) is the last-changed time.
#include "mpls/vpn/mib/src/attributes/record_service.h"

#include <cstring>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"
#include "mpls/vpn/mib/src/support/mutex.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/traps/procedures.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/memory.h"
#include "platform/router/model/default_vrf.h"
#include "platform/store/tree/kvtree.h"

namespace {

// --- Registration

struct RegistrationStep {
  Status (*run)(EventManager*);
  const char* failure;
};

constexpr RegistrationStep kRegistration[] = {
    {[](EventManager* evm) { return vtab_init("mpls_vpn_mib", evm, 0, sizeof(mpls_vpn_vrf_attr), 1, 3); },
     "Failed to initialize VTAB"},
    {[](EventManager*) { return vtab_specify_if_callback(if_cb); }, "Failed to register interface callback"},
    {[](EventManager*) { return vtab_specify_vrf_callback(vrf_cb); }, "Failed to register VRF callback"},
    {[](EventManager*) { return vtab_reg_vrf_attributes("all", 3, 0x87, router::kDefaultVrf.data(), 1); },
     "Failed to register VRF attributes"},
    {[](EventManager*) {
       return vtab_reg_if_attributes("all-if", "all", 3, 1, router::kDefaultVrf.data(), 0x221, 0);
     },
     "Failed to register if attributes"},
};

// --- Events

void delete_checkpoint(const VtabVrfRecord* record) {
  const Status rc = mpls_vpn_mib_chkpt_vrf_delete(record);
  if (rc != kStatusOk) mpls_vpn_report_failure(ERR, rc, "Could not delete VRF from checkpoint VRF");
}

// A VRF that is deleted while configuration names it becomes a forward reference, without a delete event.
bool became_forward_reference(const VtabVrfRecord* record) {
  return record->vrf_id == 0 && mpls_vpn_vrf_attributes(record)->chkpt_objid != 0;
}

void handle_vrf_event(VtabVrfRecord* record, std::uint32_t event) {
  switch (event) {
    case kVtabEventCreate:
      mpls_vpn_report(VTAB, kTraceVtab, "VTAB: VRF %s Callback event create", record->vrf_name);
      break;
    case kVtabEventDelete:
      mpls_vpn_debug(VTAB, "VTAB: VRF Callback event delete");
      mpls_vpn_trace(kTraceVtab, kStatusOk, "VRF %s: record deleted", record->vrf_name);
      delete_checkpoint(record);
      mpls_vpn_free_attribute_texts(mpls_vpn_vrf_attributes(record));
      break;
    case kVtabEventUpdate:
      mpls_vpn_debug(VTAB, "VTAB: VRF Callback event update");
      if (became_forward_reference(record)) delete_checkpoint(record);
      break;
    default:
      break;
  }
}

void handle_if_event(const char* if_name, const char* vrf_name, std::uint32_t first_code,
                     std::uint32_t second_code) MPLS_REQUIRES(mpls_vpn_mutex) {
  const IfChange change = mpls_vpn_mib_if_change(first_code, second_code);
  if (change == IfChange::kNone) return;
  mpls_vpn_trace(kTraceVtab, kStatusOk, "interface %s of VRF %s %s", if_name, vrf_name,
                 change == IfChange::kUp ? "is up" : "is down");
  if (change == IfChange::kUp) {
    mpls_vpn_mib_trap_vrf_up(vrf_name, if_name, nullptr);
  } else {
    mpls_vpn_mib_trap_vrf_down(vrf_name, if_name);
  }
}

// --- Creation of records

VtabVrfRecord* create_vrf_record(const char* vrf_name) {
  static constexpr const char* kFunction = "get_vrf_record";
  Status rc = mpls_vpn_checked(kFunction, "Unable to lock VTAB database", vtab_lock_dbase(kFunction));
  if (rc != kStatusOk) return nullptr;
  mpls_vpn_debug(VTAB, "Create VTAB record for VRF %s", vrf_name);
  mpls_vpn_trace(kTraceVtab, kStatusOk, "create record of VRF %s", vrf_name);
  VtabVrfRecord* record = vtab_create_vrf_record(vrf_name);
  rc = mpls_vpn_checked(kFunction, "Unable to unlock VTAB database", vtab_unlock_dbase());
  if (rc != kStatusOk) return nullptr;
  if (record == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusNoVrfRecord, "vtab_create_vrf_record() returned NULL record");
  }
  return record;
}

}  // namespace

Status mpls_vpn_mib_vtab_init(EventManager* evm) {
  mpls_vpn_debug(START, "Initializing VTAB...");
  for (const RegistrationStep& step : kRegistration) {
    if (const Status rc = mpls_vpn_checked(__func__, step.failure, step.run(evm))) return rc;
  }
  mpls_vpn_report(START, kTraceInit, "VTAB init done.");
  return kStatusOk;
}

VtabVrfRecord* get_vrf_record(const char* vrf_name) {
  VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf_name);
  return record != nullptr ? record : create_vrf_record(vrf_name);
}

VtabVrfRecord* vrf_record_after(const char* vrf_name) {
  VtabVrfRecord key{};
  const std::size_t length = std::strlen(vrf_name);
  if (length >= sizeof key.vrf_name) return nullptr;  // longer than any: the last of all
  std::memcpy(key.vrf_name, vrf_name, length);
  return vtab_get_next_vrf_record(&key);
}

bool vrf_exists(const char* vrf_name) {
  const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf_name);
  return record != nullptr && record->vrf_id != 0;
}

void update_timestamp(const VtabVrfRecord* record, std::uint32_t* field) {
  if (backend_scan_in_progress != 0 && mpls_vpn_mib_chkpt_first_run() == 0) return;
  *field = static_cast<std::uint32_t>(clock_stamp() / kNanosecondsPerSecond);
  mpls_vpn_debug(CFGMGR, "Updated timestamp to: %u", *field);
  mpls_vpn_trace(kTraceVtab, kStatusOk, "VRF %s changed", record->vrf_name);
  if (record->vrf_id == 0) return;
  const Status rc = mpls_vpn_mib_chkpt_vrf_save(record->vrf_id, record);
  if (rc != kStatusOk) {
    mpls_vpn_report_failure(ERR, rc, "Could not update timestamp in checkpointed data for VRF %s",
                            record->vrf_name);
  }
}

void update_vrf_last_changed(const char* vrf_name) {
  const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf_name);
  if (record == nullptr) return;
  update_timestamp(record, &mpls_vpn_vrf_attributes(record)->conf_last_changed_time);
}

Status vrf_cb(const char* vrf_name) {
  VtabVrfRecord* record = nullptr;
  std::uint32_t event = 0;
  std::uint32_t unused = 0;
  const Status rc = vtab_lock_begin_access_vrf_record(vrf_name, &record, &event, &unused);
  mpls_vpn_checked(__func__, "Error received from vtab_lock_begin_access_vrf_record", rc);
  if (rc != kStatusOk) return kStatusOk;
  if (record == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusNoVrfRecord, "VRF Callback vrf_rec is NULL!!!");
    return kStatusOk;
  }
  if (const MplsVpnLock lock{__func__, DBASE}) handle_vrf_event(record, event);
  return mpls_vpn_checked(__func__, "Error received from vtab_lock_end_access_vrf_record",
                          vtab_unlock_end_access_vrf_record(record));
}

IfChange mpls_vpn_mib_if_change(std::uint32_t first_code, std::uint32_t second_code) {
  if (first_code == kVtabChangedUp || second_code == kVtabChangedUp) return IfChange::kUp;
  if (first_code == kVtabChangedDown || second_code == kVtabChangedDown) return IfChange::kDown;
  return IfChange::kNone;
}

Status if_cb(const char* if_name, const char* vrf_name) {
  static constexpr int kRecordNotFound = 1898;
  if (vrf_name == router::kDefaultVrf) return kStatusOk;
  mpls_vpn_debug(VTAB, "VTAB: Interface %s Callback, vrf = %s", if_name, vrf_name);
  mpls_vpn_trace(kTraceVtab, kStatusOk, "callback of interface %s", if_name);
  VtabIfRecord* record = nullptr;
  std::uint32_t first_code = kVtabNoChange;
  std::uint32_t second_code = kVtabNoChange;
  std::uint32_t unused[2] = {};
  const Status rc = vtab_lock_begin_access_if_record(if_name, vrf_name, &record, &first_code, &second_code,
                                                     &unused[0], &unused[1]);
  mpls_vpn_checked(__func__, "Error received from vtab_lock_begin_access_if_record", rc);
  if (rc != kStatusOk) return kStatusOk;
  if (record == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusNoSuchRow, "Could not find IF record %d", kRecordNotFound);
    return kStatusOk;
  }
  if (const MplsVpnLock lock{__func__, DBASE}) handle_if_event(if_name, vrf_name, first_code, second_code);
  return mpls_vpn_checked(__func__, "Error received from vtab_lock_end_access_if_record",
                          vtab_unlock_end_access_if_record(vrf_name, record));
}

// Checkpoint records of VRFs.
//
// A record is eight octets, the two times in seconds. Its key is the VRF's id, which is stable across
// restarts where names can change. The VRF's attribute block stores the object id that the store gave the
// record, so that a deletion needs no look-up; a save looks the record up by key and so finds the one of an
// earlier run.
//
// A record is written whenever a time changes; the store commits before anything that could show the new
// times leaves the process. A run that finds no records is a first run. During the initial scan of a later
// run nothing is saved: most of what is announced then existed before, and saving would replace its times in
// the store. The restore then saves a record for each VRF that has none, which was created meanwhile.
//
// Main thread. O(1) per save, O(records) per restore.
#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/core/chkpt/chkpt.h"

namespace {

constexpr std::uint32_t kApplicationNumber = 1235;
constexpr std::uint32_t kTableId = 100;
constexpr char kChkptInit[] = "mpls_vpn_mib_chkpt_init";
constexpr char kAdd[] = "mpls_vpn_mib_chkpt_gen_add";
constexpr char kDelete[] = "mpls_vpn_mib_chkpt_gen_delete";
constexpr char kRestoreVrf[] = "mpls_vpn_mib_chkpt_restore_vrf";

struct VrfTimes {
  std::uint32_t creation_time;           // seconds
  std::uint32_t conf_last_changed_time;  // seconds
};
static_assert(sizeof(VrfTimes) == 8);

ChkptTable* vrf_times = nullptr;
std::uint32_t first_run = 0;

// Times are printed as signed numbers.
int shown(std::uint32_t seconds) {
  return static_cast<int>(seconds);
}
std::uint32_t shown_id(std::uint64_t object_id) {
  return static_cast<std::uint32_t>(object_id);
}

// --- Saving

Status create_record(std::uint32_t vrf_id, mpls_vpn_vrf_attr* attributes) {
  std::uint64_t object_id = 0;
  const Status rc =
      mpls_vpn_checked(kAdd, "chkpt_create", chkpt_create(vrf_times, &vrf_id, sizeof vrf_id, &object_id));
  if (rc != kStatusOk) return rc;
  attributes->chkpt_objid = object_id;
  mpls_vpn_debug(CHKPT, "Created new chkpt ObjId = 0x%x", shown_id(object_id));
  return kStatusOk;
}

Status find_or_create_record(std::uint32_t vrf_id, mpls_vpn_vrf_attr* attributes) {
  std::uint64_t object_id = 0;
  const Status rc = chkpt_mapkey(vrf_times, &vrf_id, sizeof vrf_id, &object_id);
  if (rc == kStatusChkptKeyNotFound) return create_record(vrf_id, attributes);
  if (rc == kStatusOk) attributes->chkpt_objid = object_id;
  return mpls_vpn_checked(kAdd, "chkpt_mapkey", rc);
}

// --- Restoring

struct RecordRead {
  std::uint32_t vrf_id;
  VrfTimes times;
  std::size_t size;         // of the record's data, which may differ from sizeof times
  std::uint64_t object_id;  // 0: there is no further record
};

Status read_next(ChkptIterator* iterator, RecordRead* record) {
  *record = {};
  std::size_t key_size = sizeof record->vrf_id;
  record->size = sizeof record->times;
  return mpls_vpn_checked(kRestoreVrf, "chkpt_iterate_next",
                          chkpt_iterate_next(iterator, &record->vrf_id, &key_size, &record->times,
                                             &record->size, &record->object_id));
}

bool restore_vrf_data(const RecordRead& read) {
  mpls_vpn_debug(CHKPT, "Entering %s", __func__);
  const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_id(read.vrf_id);
  if (record == nullptr) {
    mpls_vpn_report(CHKPT, kTraceChkpt, "Stale chkpt record for VRF with vrf_id=0x%x.", read.vrf_id);
    return false;
  }
  mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  attributes->creation_time = read.times.creation_time;
  attributes->conf_last_changed_time = read.times.conf_last_changed_time;
  attributes->chkpt_objid = read.object_id;
  return true;
}

bool is_usable(const RecordRead& read) {
  if (read.size != sizeof read.times) {
    mpls_vpn_report_failure(ERR, kStatusInvalid, "'%s' rec_size mismatch, %u/%u", "VRF",
                            static_cast<unsigned>(read.size), static_cast<unsigned>(sizeof read.times));
    return false;
  }
  mpls_vpn_report(CHKPT, kTraceChkpt,
                  "Read rec, key/vrf_id=0x%x, creation_time = %d, conf_last_changed_time = %d", read.vrf_id,
                  shown(read.times.creation_time), shown(read.times.conf_last_changed_time));
  return restore_vrf_data(read);
}

struct Counts {
  std::uint32_t total;
  std::uint32_t good;
};

void restore_records(ChkptIterator* iterator, Counts* counts) {
  RecordRead read;
  while (read_next(iterator, &read) == kStatusOk) {
    if (read.object_id == 0) {
      mpls_vpn_debug(CHKPT, "Done VRF, rec_cnt=%u", counts->good);
      return;
    }
    ++counts->total;
    if (is_usable(read)) {
      ++counts->good;
    } else {
      mpls_vpn_checked(kRestoreVrf, "chkpt_delete", chkpt_delete(vrf_times, read.object_id));
    }
  }
}

Status restore_vrfs() {
  mpls_vpn_debug(CHKPT, "Restoring VRF data from chkpt");
  ChkptIterator* iterator = nullptr;
  const Status rc =
      mpls_vpn_checked(kRestoreVrf, "chkpt_iterate_start", chkpt_iterate_start(vrf_times, &iterator));
  if (rc != kStatusOk) return rc;
  Counts counts{};
  restore_records(iterator, &counts);
  mpls_vpn_checked(kRestoreVrf, "chkpt_iterate_end", chkpt_iterate_end(iterator));
  mpls_vpn_report(CHKPT, kTraceChkpt,
                  "Checkpoint found a total of %d records. Good records = %d, stale record = %d.",
                  shown(counts.total), shown(counts.good), shown(counts.total - counts.good));
  return kStatusOk;
}

bool is_stored(std::uint32_t vrf_id) {
  std::uint64_t object_id = 0;
  return chkpt_mapkey(vrf_times, &vrf_id, sizeof vrf_id, &object_id) == kStatusOk;
}

// "default" and VRFs that the membership service has not announced yet have no creation time. After a partial
// restore the store has records whose object ids no block has.
bool is_without_record(const VtabVrfRecord* record) {
  const mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  if (record->vrf_id == 0 || attributes->chkpt_objid != 0 || attributes->creation_time == 0) return false;
  return !is_stored(record->vrf_id);
}

}  // namespace

Status mpls_vpn_mib_chkpt_init(EventManager* evm) {
  mpls_vpn_debug(START, "Chkpt init");
  ChkptApplication application;
  chkpt_application_init(&application, kApplicationNumber, "mpls_vpn");
  Status rc = mpls_vpn_checked(kChkptInit, "chkpt_init", chkpt_init(&application, evm));
  if (rc != kStatusOk) return rc;
  ChkptTableDescriptor descriptor;
  chkpt_table_init(&descriptor, 1, 1, sizeof(VrfTimes), 1, 0);
  bool had_contents = false;
  rc = mpls_vpn_checked(kChkptInit, "chkpt_register",
                        chkpt_register(&descriptor, kTableId, &vrf_times, &had_contents));
  if (rc != kStatusOk) return rc;
  first_run = had_contents ? 0 : 1;
  chkpt_on_recovery(mpls_vpn_mib_chkpt_save_missing);
  mpls_vpn_report(CHKPT, kTraceChkpt, "First run =%d", static_cast<int>(first_run));
  return kStatusOk;
}

std::uint32_t mpls_vpn_mib_chkpt_first_run() {
  return first_run;
}

Status mpls_vpn_mib_chkpt_vrf_save(std::uint32_t vrf_id, const VtabVrfRecord* record) {
  mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  mpls_vpn_report(CHKPT, kTraceChkpt,
                  "Checkpoint save VRF %s, vrf_id = 0x%x, creation_time = %d, conf_last_changed_time = %d",
                  record->vrf_name, vrf_id, shown(attributes->creation_time),
                  shown(attributes->conf_last_changed_time));
  const Status rc = find_or_create_record(vrf_id, attributes);
  if (rc != kStatusOk) return rc;
  const VrfTimes times = {attributes->creation_time, attributes->conf_last_changed_time};
  return mpls_vpn_checked(kAdd, "chkpt_save",
                          chkpt_save(vrf_times, attributes->chkpt_objid, &times, sizeof times));
}

Status mpls_vpn_mib_chkpt_vrf_delete(const VtabVrfRecord* record) {
  mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  mpls_vpn_report(CHKPT, kTraceChkpt,
                  "Checkpoint delete VRF objid = 0x%x, creation_time = %d, conf_last_changed_time = %d",
                  shown_id(attributes->chkpt_objid), shown(attributes->creation_time),
                  shown(attributes->conf_last_changed_time));
  if (attributes->chkpt_objid == 0) {
    mpls_vpn_report_failure(ERR, kStatusNoSuchRow, "Attempt to delete from checkpoint with NULL objid");
    return kStatusOk;
  }
  const Status rc =
      mpls_vpn_checked(kDelete, "chkpt_delete", chkpt_delete(vrf_times, attributes->chkpt_objid));
  if (rc == kStatusOk) attributes->chkpt_objid = 0;
  return rc;
}

Status mpls_vpn_mib_chkpt_restore() {
  mpls_vpn_debug(START, "Restoring data from chkpt...");
  const Status rc = mpls_vpn_checked(__func__, kRestoreVrf, restore_vrfs());
  if (rc == kStatusOk) mpls_vpn_debug(START, "...Restored data from chkpt");
  return rc;
}

void mpls_vpn_mib_chkpt_save_missing() {
  for (const VtabVrfRecord* record = vtab_get_first_vrf_record(); record != nullptr;
       record = vtab_get_next_vrf_record(record)) {
    if (!is_without_record(record)) continue;
    const Status rc = mpls_vpn_mib_chkpt_vrf_save(record->vrf_id, record);
    if (rc != kStatusOk) {
      mpls_vpn_report_failure(ERR, rc, "Could not checkpoint VRF %s ", record->vrf_name);
    }
  }
}

void mpls_vpn_mib_chkpt_end() {
  chkpt_on_recovery(nullptr);
  chkpt_end();
  vrf_times = nullptr;
  first_run = 0;
}

// Handlers of VRF configuration.
//
// A notification is a path and, when something was set, a value. The path's arguments say which VRF it is
// about; the VRF's record is found, or made for a set, and its attribute block changed. Texts in the block
// are heap copies (text_replace). Main thread; attribute blocks and the route-target database need no lock.
#include "mpls/vpn/mib/src/mpls_vpn_mib_vrf_config.h"

#include "mpls/vpn/mib/src/mpls_vpn_mib_notify_args.h"
#include "mpls/vpn/mib/src/mpls_vpn_mib_vtab.h"
#include "mpls/vpn/mib/src/mpls_vpn_report.h"
#include "platform/kvtree/tuple.h"

namespace {

constexpr std::uint32_t kAfiIpv4 = 1;
constexpr std::uint32_t kAfiIpv6 = 2;
constexpr std::uint32_t kSafiUnicast = 1;

// A record made while memory was short has no block, and is as good as none.
VtabVrfRecord* with_block(VtabVrfRecord* record) {
  return record == nullptr || record->attributes == nullptr ? nullptr : record;
}

VtabVrfRecord* find_record(const char* vrf_name) {
  return with_block(vtab_get_vrf_record_by_vrf_name(vrf_name));
}

VtabVrfRecord* find_or_create_record(const char* vrf_name) {
  return with_block(get_vrf_record(vrf_name));
}

void stamp_change(const VtabVrfRecord* record) {
  update_timestamp(record, &mpls_vpn_vrf_attributes(record)->conf_last_changed_time);
}

// The VRF and the family of a path that has them.
struct FamilyArguments {
  const char* vrf_name;
  std::uint32_t afi;
  std::uint32_t safi;
};

bool take_family_arguments(const RequestArgs* args, const char* handler, FamilyArguments* family) {
  return mpls_vpn_mib_text_argument(args, 0, "vrf_name", handler, __LINE__, &family->vrf_name) &&
         mpls_vpn_mib_number_argument(args, 1, handler, __LINE__, &family->afi) &&
         mpls_vpn_mib_number_argument(args, 2, handler, __LINE__, &family->safi);
}

// --- Route thresholds
// ------------------------------------------------------------------------------------------

struct Thresholds {
  std::uint32_t high;
  std::uint32_t mid;
};

bool is_unicast(const FamilyArguments& family) {
  return (family.afi == kAfiIpv4 || family.afi == kAfiIpv6) && family.safi == kSafiUnicast;
}

// A tuple that does not unpack leaves no thresholds.
Thresholds thresholds_of(const KvNotifyInfo* info, const char* handler) {
  Thresholds thresholds{};
  const Status rc = tuple_unpack(info->value, "%d%d", {&thresholds.high, &thresholds.mid});
  if (rc != kStatusOk) mpls_vpn_report_failure(ERR, rc, "Error in %s:Could not unpack tuple", handler);
  return thresholds;
}

void store_thresholds(const VtabVrfRecord* record, const Thresholds& thresholds) {
  if (record == nullptr) return;
  mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  attributes->high_thresh = thresholds.high;
  attributes->mid_thresh = thresholds.mid;
  stamp_change(record);
}

}  // namespace

void mpls_vpn_mib_thresh_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  mpls_vpn_debug(VTAB, "Entering %s", __func__);
  FamilyArguments family{};
  if (!take_family_arguments(args, __func__, &family) || !is_unicast(family)) return;
  if (mpls_vpn_mib_is_set(info)) {
    const Thresholds thresholds = thresholds_of(info, __func__);
    mpls_vpn_report(VTAB, kTraceVtab,
                    "notify for threshold change on VRF %s, high_tresh = %u, mid_thresh = %u ",
                    family.vrf_name, thresholds.high, thresholds.mid);
    store_thresholds(find_or_create_record(family.vrf_name), thresholds);
  } else if (mpls_vpn_mib_is_deleted(info)) {
    store_thresholds(find_record(family.vrf_name), {0, 0});
  }
}

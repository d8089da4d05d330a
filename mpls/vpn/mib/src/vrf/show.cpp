// The VRF "default" is the routing context of interfaces in no VRF: its record lists those interfaces and
// has no tables.
#include "mpls/vpn/mib/src/vrf/show.h"

#include <memory>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/membership/membership.h"
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/provider/xml_filter.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/router/model/default_vrf.h"

namespace {

constexpr char kShowName[] = "mpls_vpn_mib_prov_get_vrf_show";
constexpr char kFillName[] = "fill_show_vrf_parcel";
constexpr char kInvalidName[] = "mpls_vpn_mib_prov_get_vrf_invalid";
constexpr std::uint32_t kSlotsOfOneFamily = 1;
constexpr std::uint32_t kSlotsOfAll = 4;

std::uint32_t slots_of(std::uint32_t afi_index) {
  return afi_index != 0 ? kSlotsOfOneFamily : kSlotsOfAll;
}

void add_selected_tables(ParcelArray* tables, const VtabVrfRecord* record, std::uint32_t afi_index,
                         std::uint32_t second_selector, bool is_xml) {
  if (is_xml && mpls_vpn_mib_prov_xml_filter(record, &afi_index) == 0) return;
  add_tables(tables, record, afi_index, second_selector, slots_of(afi_index));
}

// Stores the VRF's record in *record, or returns why there is nothing to show.
Status find_shown(const char* vrf_name, VtabVrfRecord** record) {
  if (vrf_in_database(vrf_name) == nullptr) {
    mpls_vpn_debug(PROV, "Ignoring VRFs not present in DB");
    return kStatusNoSuchRow;
  }
  *record = vtab_get_vrf_record_by_vrf_name(vrf_name);
  if (*record == nullptr) {
    mpls_vpn_debug(PROV, "No VRF found");
    return kStatusNoVrfRecord;
  }
  if ((*record)->vrf_id == 0) {
    mpls_vpn_debug(PROV, "Ignoring VRF FWD REF %s", (*record)->vrf_name);
    return kStatusNoSuchRow;
  }
  return kStatusOk;
}

Status refuse(mpls_vpn_vrf* show, Status why, const char* handler) {
  prov_release_parcel(show, &kShowVrfParcel, handler);
  return why;
}

// What is known at once. False for a record that has no more.
bool begin_show(mpls_vpn_vrf* show, const VtabVrfRecord* record) {
  *show = {};
  if (record == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusInvalid, "NULL arguments in %s", kFillName);
    return false;
  }
  const mpls_vpn_vrf_attr& attributes = *mpls_vpn_vrf_attributes(record);
  prov_copy_inner_text(&show->VRFName, record->vrf_name, kFillName);
  prov_copy_inner_text(&show->VRFDescription, attributes.description, kFillName);
  prov_copy_inner_text(&show->RouteDistinguisher, attributes.rd, kFillName);
  show->isBigVrf = attributes.is_big_vrf;
  if (record->vrf_name != router::kDefaultVrf) return true;
  add_default_vrf_ifs(&show->Interfaces);
  return false;
}

// Refuses a record without its name: a reader could not identify it.
Status encode_named(KvReply* reply, mpls_vpn_vrf* show, const char* handler) {
  if (show->VRFName == nullptr) return refuse(show, kStatusNoMemory, handler);
  return prov_encode_parcel(reply, show, &kShowVrfParcel);
}

using SharedShow = std::shared_ptr<ShowInSteps>;

// Whether the answer is continued in another step. A record with many interfaces is encoded in one of its
// own.
bool is_postponed(const SharedShow& filling, KvReply* reply, bool was_filled) {
  const bool is_over = !was_filled && reply->steps != nullptr && reply->steps->is_over();
  if (filling->is_filled && !is_over) return false;
  reply->steps->state = filling;
  return true;
}

Status continue_show(const SharedShow& filling, const VtabVrfRecord* record, KvReply* reply,
                     const RequestArgs* args) {
  const bool was_filled = filling->is_filled;
  const bool is_xml = args->form == kFormEncodedName;
  if (!was_filled)
    filling->is_filled = fill_show_vrf_parcel(filling.get(), record, 0, 0, is_xml, reply->steps);
  if (is_postponed(filling, reply, was_filled)) return kStatusUnfinished;
  return encode_named(reply, filling->take(), kShowName);
}

// The VRF may have been deleted since the last step. Nothing is printed again.
Status resume_show(const SharedShow& filling, KvReply* reply, const RequestArgs* args) {
  const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(args->arg[0].text);
  if (record == nullptr || record->vrf_id == 0) return kStatusNoSuchRow;
  return continue_show(filling, record, reply, args);
}

Status continue_invalid(const SharedShow& filling, KvReply* reply, const RequestArgs* args) {
  const char* vrf_name = args->arg[0].text;
  const bool was_filled = filling->is_filled;
  if (!was_filled) filling->is_filled = fill_vrf_invalid_parcel(filling.get(), vrf_name, reply->steps);
  if (is_postponed(filling, reply, was_filled)) return kStatusUnfinished;
  mpls_vpn_vrf* const show = filling->take();
  if (show->Interfaces.count != 0) return encode_named(reply, show, kInvalidName);
  mpls_vpn_debug(PROV, "Requested VRF %s invalid, but found no ifs", vrf_name);
  return refuse(show, kStatusNoSuchRow, kInvalidName);
}

}  // namespace

ShowInSteps::~ShowInSteps() {
  if (names.has_begun) prov_release_parcel(&show, &kShowVrfParcel, __func__);
}

mpls_vpn_vrf* ShowInSteps::take() {
  names = {};
  return &show;
}

bool fill_show_vrf_parcel(ShowInSteps* filling, const VtabVrfRecord* record, std::uint32_t afi_index,
                          std::uint32_t second_selector, bool is_xml, const KvSteps* steps) {
  mpls_vpn_vrf* const show = &filling->show;
  if (!filling->names.has_begun && !begin_show(show, record)) return true;
  if (!add_ifs_some(&filling->names, &show->Interfaces, record->vrf_name, steps)) return false;
  add_selected_tables(&show->AF, record, afi_index, second_selector, is_xml);
  return true;
}

bool fill_vrf_invalid_parcel(ShowInSteps* filling, const char* vrf_name, const KvSteps* steps) {
  if (filling == nullptr || vrf_name == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusInvalid, "NULL arguments in %s", __func__);
    return true;
  }
  if (!filling->names.has_begun) {
    filling->show = {};
    prov_copy_inner_text(&filling->show.VRFName, vrf_name, __func__);
  }
  return add_ifs_some(&filling->names, &filling->show.Interfaces, vrf_name, steps);
}

Status mpls_vpn_mib_prov_get_vrf_show(KvReply* reply, const RequestArgs* args) {
  if (const auto* begun = kvtree_resumed<SharedShow>(reply)) return resume_show(*begun, reply, args);
  if (const Status rc = prov_check_arguments(args, 1, kShowName)) return rc;
  const char* vrf_name = args->arg[0].text;
  mpls_vpn_debug(PROV, "Entering function %s with vrfName = %s, is_xml: %s", kShowName, vrf_name,
                 args->form == kFormEncodedName ? "TRUE" : "FALSE");
  VtabVrfRecord* record = nullptr;
  if (const Status rc = find_shown(vrf_name, &record)) return rc;
  mpls_vpn_debug(PROV, "Found VRF %s", record->vrf_name);
  mpls_vpn_mib_vrf_complete_missing(record);
  return continue_show(std::make_shared<ShowInSteps>(), record, reply, args);
}

Status mpls_vpn_mib_prov_get_vrf_invalid(KvReply* reply, const RequestArgs* args) {
  if (const auto* begun = kvtree_resumed<SharedShow>(reply)) return continue_invalid(*begun, reply, args);
  if (const Status rc = prov_check_arguments(args, 1, kInvalidName)) return rc;
  const char* vrf_name = args->arg[0].text;
  mpls_vpn_debug(PROV, "Entering function %s with vrfName = %s", kInvalidName, vrf_name);
  if (vrf_exists(vrf_name)) {
    mpls_vpn_debug(PROV, "VRF %s found, but it is not invalid", vrf_name);
    return kStatusNoSuchRow;
  }
  return continue_invalid(std::make_shared<ShowInSteps>(), reply, args);
}

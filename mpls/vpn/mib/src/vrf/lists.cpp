// One walk over the record service's VRFs: the list and the datalist differ in where they begin, in the
// content of an item, and in a word of their reports. The limit is tested after an item was added, so that
// a maximum of 0 yields one item.
//
// A walk in steps continues after the name of the last VRF that it visited, which may be deleted meanwhile. A
// VRF that is created meanwhile is visited if its name is later in the order.
#include "mpls/vpn/mib/src/vrf/lists.h"

#include <memory>
#include <string>
#include <utility>

#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/membership/membership.h"
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/vrf/list_items.h"
#include "mpls/vpn/mib/src/vrf/show.h"
#include "platform/router/model/default_vrf.h"
#include "platform/router/vtab/vtab.h"

namespace {

constexpr VrfListKind kList = {"mpls_vpn_prov_list_vrf", false};
constexpr VrfListKind kDatalist = {"mpls_vpn_prov_datalist_vrf", true};

// What is stored between the steps of a walk, with a filter that has lost the names of the request.
struct VrfWalk {
  const VrfListKind* kind;
  VrfFilter filter;
  bool is_named;      // the request names a VRF
  bool ends_at_item;  // ... and no other
  bool is_xml;
  std::string last;                   // the VRF visited last
  std::shared_ptr<ShowInSteps> item;  // of that VRF, if it is not complete
};

enum class Step { kGoOn, kEnd, kUnfinished };

VtabVrfRecord* first_record(const VrfWalk& walk, std::uint32_t form) {
  if (form > kFormEncodedNameAfiSafi) return nullptr;
  if (!walk.is_named) return vtab_get_first_vrf_record();
  const bool from_next = walk.kind->is_datalist && (form == kFormName || form == kFormEncodedName);
  if (from_next) return vrf_record_after(walk.filter.vrf_name);
  return vtab_get_vrf_record_by_vrf_name(walk.filter.vrf_name);
}

// Whether a VRF is left out; prints why. The datalist traces the first two reasons.
bool is_ignored(const VrfWalk& walk, const VtabVrfRecord* record) {
  if (record->vrf_name == router::kDefaultVrf) {
    mpls_vpn_debug(PROV, "Ignoring default VRF");
    if (walk.kind->is_datalist) mpls_vpn_trace(kTraceProv, kStatusOk, "Ignoring default VRF");
    return true;
  }
  if (record->vrf_id == 0) {
    mpls_vpn_debug(PROV, "Ignoring VRF FWD REF %s", record->vrf_name);
    if (walk.kind->is_datalist) {
      mpls_vpn_trace(kTraceProv, kStatusOk, "Ignoring VRF FWD REF %s", record->vrf_name);
    }
    return true;
  }
  if (vrf_in_database(record->vrf_name) != nullptr) return false;
  mpls_vpn_debug(PROV, "Ignoring VRFs not present in DB");
  return true;
}

Step count_item(const VrfWalk& walk, KvListReply* reply, bool is_added) {
  if (!is_added) return Step::kGoOn;
  return count_vrf_list_item(reply) || walk.ends_at_item ? Step::kEnd : Step::kGoOn;
}

Step add_datalist_item(VrfWalk* walk, KvListReply* reply, const VtabVrfRecord* record) {
  const bool is_filled = fill_show_vrf_parcel(walk->item.get(), record, walk->filter.afi, walk->filter.safi,
                                              walk->is_xml, reply->steps);
  if (!is_filled) return Step::kUnfinished;
  const auto item = std::exchange(walk->item, nullptr);
  return count_item(*walk, reply,
                    add_vrf_datalist_item(*walk->kind, reply, record->vrf_name, item->take(), walk->is_xml));
}

Step visit(VrfWalk* state, KvListReply* reply, VtabVrfRecord* record) {
  const VrfWalk& walk = *state;
  if (walk.item != nullptr) return add_datalist_item(state, reply, record);
  if (is_ignored(walk, record)) return Step::kGoOn;
  if (walk.kind->is_datalist) mpls_vpn_mib_vrf_complete_missing(record);
  if (!vrf_matches_afi_safi(record->vrf_name, &walk.filter)) {
    if (walk.is_named) return Step::kEnd;
    mpls_vpn_debug(PROV, "VRF does not match AFI SAFI filter");
    return Step::kGoOn;
  }
  if (!walk.kind->is_datalist)
    return count_item(walk, reply, add_vrf_list_item(*walk.kind, reply, record->vrf_name));
  state->item = std::make_shared<ShowInSteps>();
  return add_datalist_item(state, reply, record);
}

bool is_form_with_families(std::uint32_t form) {
  return form == kFormNameAfiSafi || form == kFormEncodedNameAfiSafi;
}

bool is_encoded_form(std::uint32_t form) {
  return form == kFormEncodedName || form == kFormEncodedNameAfiSafi;
}

// Visits VRFs from this one on: kStatusUnfinished if the step was over before the last.
Status continue_walk(VrfWalk* walk, KvListReply* reply, VtabVrfRecord* record) {
  for (; record != nullptr; record = vtab_get_next_vrf_record(record)) {
    const Step step = visit(walk, reply, record);
    if (step == Step::kEnd) return kStatusOk;
    const bool is_over = reply->steps != nullptr && reply->steps->is_over();
    if (step == Step::kGoOn && !is_over) continue;
    walk->last = record->vrf_name;
    return kStatusUnfinished;
  }
  return kStatusOk;
}

// The VRF whose item is not complete, or the next one.
VtabVrfRecord* resumed_record(VrfWalk* walk) {
  VtabVrfRecord* const record =
      walk->item == nullptr ? nullptr : vtab_get_vrf_record_by_vrf_name(walk->last.c_str());
  if (record != nullptr && record->vrf_id != 0) return record;
  walk->item = nullptr;
  return vrf_record_after(walk->last.c_str());
}

Status begin_walk(VrfWalk* walk, KvListReply* reply, const RequestArgs* args) {
  const VrfListKind& kind = *walk->kind;
  mpls_vpn_debug(PROV, "Entering %s", kind.function);
  if (const Status rc = create_vrf_list(kind, reply)) return rc;
  walk->is_xml = kind.is_datalist && is_encoded_form(args->form);
  if (kind.is_datalist) {
    mpls_vpn_debug(PROV, "%s: is_xml %s", kind.function, walk->is_xml ? "TRUE" : "FALSE");
  }
  set_filter_vrf_afi_safi(&walk->filter, args);
  walk->is_named = (walk->filter.flags & kFilterVrfName) != 0;
  walk->ends_at_item = walk->is_named && is_form_with_families(args->form);
  VtabVrfRecord* const first = first_record(*walk, args->form);
  release_filter_vrf_name(&walk->filter);
  walk->filter.vrf_name = nullptr;
  return continue_walk(walk, reply, first);
}

Status answer(const VrfListKind& kind, KvListReply* reply, const RequestArgs* args) {
  if (auto* walk = kvtree_resumed<VrfWalk>(reply)) return continue_walk(walk, reply, resumed_record(walk));
  VrfWalk walk = {&kind, {}, false, false, false, {}, nullptr};
  const Status rc = begin_walk(&walk, reply, args);
  if (rc == kStatusUnfinished) reply->steps->state = std::move(walk);
  return rc;
}

}  // namespace

Status mpls_vpn_prov_list_vrf(KvListReply* reply, const RequestArgs* args) {
  return answer(kList, reply, args);
}

Status mpls_vpn_prov_datalist_vrf(KvListReply* reply, const RequestArgs* args) {
  return answer(kDatalist, reply, args);
}

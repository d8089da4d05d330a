// Names are those of the interface database's nodes, which only the main thread deletes. No filter
// applies. A walk in steps continues after the name of the VRF that it added last.
#include <memory>
#include <string>
#include <utility>

#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/tally/tally.h"
#include "mpls/vpn/mib/src/vrf/list_items.h"
#include "mpls/vpn/mib/src/vrf/lists.h"
#include "mpls/vpn/mib/src/vrf/show.h"

namespace {

constexpr VrfListKind kInvalidList = {"mpls_vpn_prov_list_vrf_invalid", false};
constexpr VrfListKind kInvalidDatalist = {"mpls_vpn_prov_datalist_vrf_invalid", true};

const char* first_invalid(const VrfListKind& kind, const RequestArgs* args) {
  const bool is_named = !kvtree_absent(args, 0);
  const char* vrf_name =
      is_named ? mpls_vpn_mib_get_next_invalid_vrf(args->arg[0].text) : mpls_vpn_mib_get_first_invalid_vrf();
  if (kind.is_datalist && is_named) {
    mpls_vpn_debug(PROV, "Starting from vrf invalid %s", mpls_vpn_shown(vrf_name));
  } else if (kind.is_datalist) {
    mpls_vpn_debug(PROV, "First vrf invalid %s", mpls_vpn_shown(vrf_name));
  }
  return vrf_name;
}

// What is stored between the steps of a walk.
struct InvalidWalk {
  std::string last;                   // the VRF visited last
  std::shared_ptr<ShowInSteps> item;  // of that VRF, if it is not complete
};

bool add_item(const VrfListKind& kind, KvListReply* reply, const char* vrf_name, InvalidWalk* walk) {
  if (!kind.is_datalist) return add_vrf_list_item(kind, reply, vrf_name);
  const auto item = std::exchange(walk->item, nullptr);
  return add_vrf_datalist_item(kind, reply, vrf_name, item->take(), false);
}

// False if the step was over before the item was complete.
bool fill_item(const VrfListKind& kind, KvListReply* reply, const char* vrf_name, InvalidWalk* walk) {
  if (!kind.is_datalist) return true;
  if (walk->item == nullptr) walk->item = std::make_shared<ShowInSteps>();
  return fill_vrf_invalid_parcel(walk->item.get(), vrf_name, reply->steps);
}

// kStatusUnfinished if the step was over before the last VRF.
Status add_invalid_items(const VrfListKind& kind, KvListReply* reply, const char* vrf_name,
                         InvalidWalk walk) {
  for (; vrf_name != nullptr; vrf_name = mpls_vpn_mib_get_next_invalid_vrf(vrf_name)) {
    const bool is_filled = fill_item(kind, reply, vrf_name, &walk);
    if (is_filled && add_item(kind, reply, vrf_name, &walk) && count_vrf_list_item(reply)) break;
    if (is_filled && (reply->steps == nullptr || !reply->steps->is_over())) continue;
    walk.last = vrf_name;
    reply->steps->state = std::move(walk);
    return kStatusUnfinished;
  }
  return kStatusOk;
}

// The VRF may have lost its interfaces, or exist, since the last step.
Status resume(const VrfListKind& kind, KvListReply* reply, InvalidWalk walk) {
  const std::string last = walk.last;
  const bool is_resumed =
      walk.item != nullptr && !vrf_exists(last.c_str()) && mpls_vpn_tally_of(last.c_str()).interfaces > 0;
  if (is_resumed) return add_invalid_items(kind, reply, last.c_str(), std::move(walk));
  return add_invalid_items(kind, reply, mpls_vpn_mib_get_next_invalid_vrf(last.c_str()), {});
}

Status answer_invalid(const VrfListKind& kind, KvListReply* reply, const RequestArgs* args) {
  if (auto* walk = kvtree_resumed<InvalidWalk>(reply)) return resume(kind, reply, std::move(*walk));
  mpls_vpn_debug(PROV, "Entering %s", kind.function);
  if (const Status rc = create_vrf_list(kind, reply)) return rc;
  return add_invalid_items(kind, reply, first_invalid(kind, args), {});
}

}  // namespace

Status mpls_vpn_prov_list_vrf_invalid(KvListReply* reply, const RequestArgs* args) {
  return answer_invalid(kInvalidList, reply, args);
}

Status mpls_vpn_prov_datalist_vrf_invalid(KvListReply* reply, const RequestArgs* args) {
  return answer_invalid(kInvalidDatalist, reply, args);
}

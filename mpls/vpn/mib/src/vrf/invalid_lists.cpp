// Names are those of the interface database's nodes, which only the main thread deletes. No filter
// applies. A walk in steps continues after the name of the VRF that it added last.
#include <string>

#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/support/report.h"
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

bool add_invalid_item(const VrfListKind& kind, KvListReply* reply, const char* vrf_name) {
  if (!kind.is_datalist) return add_vrf_list_item(kind, reply, vrf_name);
  mpls_vpn_vrf show;
  fill_vrf_invalid_parcel(&show, vrf_name);
  return add_vrf_datalist_item(kind, reply, vrf_name, &show, false);
}

struct LastInvalid {
  std::string vrf_name;
};

// kStatusUnfinished if the step was over before the last VRF.
Status add_invalid_items(const VrfListKind& kind, KvListReply* reply, const char* vrf_name) {
  for (; vrf_name != nullptr; vrf_name = mpls_vpn_mib_get_next_invalid_vrf(vrf_name)) {
    if (add_invalid_item(kind, reply, vrf_name) && count_vrf_list_item(reply)) break;
    if (reply->steps != nullptr && reply->steps->is_over()) {
      reply->steps->state = LastInvalid{vrf_name};
      return kStatusUnfinished;
    }
  }
  return kStatusOk;
}

Status answer_invalid(const VrfListKind& kind, KvListReply* reply, const RequestArgs* args) {
  if (const auto* last = kvtree_resumed<LastInvalid>(reply))
    return add_invalid_items(kind, reply, mpls_vpn_mib_get_next_invalid_vrf(last->vrf_name.c_str()));
  mpls_vpn_debug(PROV, "Entering %s", kind.function);
  if (const Status rc = create_vrf_list(kind, reply)) return rc;
  return add_invalid_items(kind, reply, first_invalid(kind, args));
}

}  // namespace

Status mpls_vpn_prov_list_vrf_invalid(KvListReply* reply, const RequestArgs* args) {
  return answer_invalid(kInvalidList, reply, args);
}

Status mpls_vpn_prov_datalist_vrf_invalid(KvListReply* reply, const RequestArgs* args) {
  return answer_invalid(kInvalidDatalist, reply, args);
}

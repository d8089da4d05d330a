// Names are those of the interface database's nodes, which only the main thread deletes. No filter
// applies.
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

Status answer_invalid(const VrfListKind& kind, KvListReply* reply, const RequestArgs* args) {
  mpls_vpn_debug(PROV, "Entering %s", kind.function);
  if (const Status rc = create_vrf_list(kind, reply)) return rc;
  for (const char* vrf_name = first_invalid(kind, args); vrf_name != nullptr;
       vrf_name = mpls_vpn_mib_get_next_invalid_vrf(vrf_name)) {
    if (add_invalid_item(kind, reply, vrf_name) && count_vrf_list_item(reply)) break;
  }
  return kStatusOk;
}

}  // namespace

Status mpls_vpn_prov_list_vrf_invalid(KvListReply* reply, const RequestArgs* args) {
  return answer_invalid(kInvalidList, reply, args);
}

Status mpls_vpn_prov_datalist_vrf_invalid(KvListReply* reply, const RequestArgs* args) {
  return answer_invalid(kInvalidDatalist, reply, args);
}

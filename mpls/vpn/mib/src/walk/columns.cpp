#include "mpls/vpn/mib/src/walk/columns.h"

#include <iterator>

#include "mpls/vpn/mib/src/interface/columns.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/route/columns.h"
#include "mpls/vpn/mib/src/route_target/columns.h"
#include "mpls/vpn/mib/src/vrf/columns.h"

namespace {

constexpr auto kPackRoute = mib::pack_reply<mib::Route, kMibRouteParcel, mib::kRouteColumns>;

}  // namespace

const KvColumnRule mpls_vpn_mib_column_rules[] = {
    {"scalars", mib::pack_reply<mib::Scalars, kMibScalarsParcel, mib::kScalarColumns>},
    {"interface-next", mib::pack_reply<mib::Interface, kMibInterfaceParcel, mib::kInterfaceColumns>,
     mpls_vpn_mib_read_interface_columns},
    {"vrf-next", mib::pack_reply<mib::Vrf, kMibVrfParcel, mib::kVrfColumns>, mpls_vpn_mib_read_vrf_columns},
    {"rt-next", mib::pack_reply<mib::RouteTarget, kMibRtParcel, mib::kRouteTargetColumns>,
     mpls_vpn_mib_read_rt_columns},
    {"route", kPackRoute},
    {"route-next", kPackRoute, mpls_vpn_mib_read_route_columns},
};
const std::size_t mpls_vpn_mib_column_rule_count = std::size(mpls_vpn_mib_column_rules);

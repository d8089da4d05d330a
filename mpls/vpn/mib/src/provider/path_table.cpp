// The tables of paths.
//
// A row is a path pattern below the bind point, the mode word of its entry, and the handlers of the
// operations that the path serves. Key components: <s> text, <n> number, <i> interface, <ip4> IPv4 form, <ad>
// address, <x> any, <*> a component that is not passed on: the handlers of EIGRP and static routes expect the
// interface as argument 3 and 7. A path without a handler for an operation does not serve it; a notification
// without a handler is dropped. A path may omit keys at the end of a pattern, which makes the filter of
// "vrf-detail-filter" optional.
//
// In the VRF table, rows with the literal table name "default" accompany a row with any table name; the
// literal is tried first. Constant data.
#include "mpls/vpn/mib/src/provider/path_table.h"

#include <iterator>

#include "mpls/vpn/mib/src/configuration/protocols.h"
#include "mpls/vpn/mib/src/configuration/threshold_events.h"
#include "mpls/vpn/mib/src/configuration/vrf_handlers.h"
#include "mpls/vpn/mib/src/interface/entry.h"
#include "mpls/vpn/mib/src/provider/scalars.h"
#include "mpls/vpn/mib/src/route/entry.h"
#include "mpls/vpn/mib/src/route_target/entry.h"
#include "mpls/vpn/mib/src/vrf/entry.h"
#include "mpls/vpn/mib/src/vrf/lists.h"
#include "mpls/vpn/mib/src/vrf/show.h"

namespace {

// The mode of a configuration item states what its node has beyond the path. Nothing reads it: kKvModeNext is
// the only mode that the data store tests, and these share no bit with it.
enum ItemMode : std::uint32_t {
  kPresenceMode = 1,
  kTextMode = 3,
  kTupleMode = 5,  // also of static routes, of which the daemon reads the path only
  kNumberMode = 7,
};

// The routing table's events, in two tables: the subscription to /oper/rib_threshold/ delivers them. Below
// the provider's own subtree the same paths are known but have no answer (kStatusNoHandler).
constexpr KvPathRow kMidThresholdEvent = {"<s>/mid-thresh-exc",
                                          {.notify = mpls_vpn_mib_mid_thresh_exceeded_notify}};
constexpr KvPathRow kMaxThresholdEvent = {"<s>/max-thresh-exc",
                                          {.notify = mpls_vpn_mib_high_thresh_exceeded_notify}};

// clang-format off
constexpr KvPathRow kProvPaths[] = {
    {"scalars",                            {.get = mpls_vpn_mib_prov_get_scalars}},
    {"interface/<s>/<n>",                  {.get = mpls_vpn_mib_prov_get_interface}},
    {"interface-next/<s>/<n>",             {.mode = kKvModeNext, .get = mpls_vpn_mib_prov_get_interface}},
    {"vrf/<s>",                            {.get = mpls_vpn_mib_prov_get_vrf}},
    {"vrf-next/<s>",                       {.mode = kKvModeNext, .get = mpls_vpn_mib_prov_get_vrf}},
    {"vrf-detail/<s>",                     {.get = mpls_vpn_mib_prov_get_vrf_show, .list = mpls_vpn_prov_list_vrf,
                                            .datalist = mpls_vpn_prov_datalist_vrf}},
    {"vrf-detail-filter/<s>/<n>/<n>/<s>",  {.mode = kKvModeNext, .list = mpls_vpn_prov_list_vrf,
                                            .datalist = mpls_vpn_prov_datalist_vrf}},
    {"vrf-invalid-detail/<s>",             {.get = mpls_vpn_mib_prov_get_vrf_invalid,
                                            .list = mpls_vpn_prov_list_vrf_invalid,
                                            .datalist = mpls_vpn_prov_datalist_vrf_invalid}},
    {"rt/<s>/<n>/<n>",                     {.get = mpls_vpn_mib_prov_get_rt}},
    {"rt-next/<s>/<n>/<n>",                {.mode = kKvModeNext, .get = mpls_vpn_mib_prov_get_rt}},
    {"route/<s>/<n>/<n>/<n>/<s>/<s>",      {.get = mpls_vpn_mib_prov_get_route}},
    {"route-next/<s>/<n>/<n>/<n>/<s>/<s>", {.mode = kKvModeNext, .get = mpls_vpn_mib_prov_get_route}},
    kMidThresholdEvent,
    kMaxThresholdEvent,
};

#define VRF_TABLE "vrf/<s>/ord_z/afi_safi/<n>/<n>/"
#define ROUTE_TARGET "<n>/<n>/<n>/<n>/<ip4>/<n>/<n>"
constexpr KvPathRow kVrfPaths[] = {
    {"vrf/<s>/ord_a/vmap/ord_k/vmap/descr",                       {kTextMode, mpls_vpn_mib_vrf_descr_notify}},
    {VRF_TABLE "default/ord_b/bgp/ord_c/import-rt/" ROUTE_TARGET, {kPresenceMode, mpls_vpn_mib_import_rt_notify}},
    {VRF_TABLE "default/ord_b/bgp/ord_e/export-rt/" ROUTE_TARGET, {kPresenceMode, mpls_vpn_mib_export_rt_notify}},
    {VRF_TABLE "<s>/ord_e/rib/table-prefix-limit",                {kTupleMode, mpls_vpn_mib_thresh_notify}},
    {VRF_TABLE "default/ord_b/bgp/ord_b/import-policy",           {kTextMode, mpls_vpn_mib_import_policy_notify}},
    {VRF_TABLE "default/ord_b/bgp/ord_d/export-policy",           {kTextMode, mpls_vpn_mib_export_policy_notify}},
};
#undef VRF_TABLE
#undef ROUTE_TARGET
// clang-format on

constexpr KvPathRow kBgpPaths[] = {
    {"<s>/<x>/<x>/<s>/<s>/nbr/<n>/prov/<s>/<n>/<ad>/<s>", {kPresenceMode, mpls_vpn_mib_bgp_nbr_af_notify}},
};

constexpr KvPathRow kRipPaths[] = {
    {"<s>/ord_t/if/<i>/ord_d/enabled", {kPresenceMode, mpls_vpn_mib_rip_notify}},
};

constexpr KvPathRow kOspfPaths[] = {
    {"<s>/<s>/<s>/ord_v/area/<ip4>/<x>/ord_i/name_scope/<i>/ord_A/running",
     {kPresenceMode, mpls_vpn_mib_ospf_notify}},
};

constexpr KvPathRow kEigrpPaths[] = {
    {"<s>/<s>/<s>/ord_m/af/<*>/ord_t/if/<i>/ord_a/enabled", {kPresenceMode, mpls_vpn_mib_eigrp_notify}},
};

constexpr KvPathRow kStaticPaths[] = {
    {"<s>/address/<s>/<s>/ord_c/<*>/route/<ad>/<x>/<s>/<s>/nexthop/<i>/<ad>",
     {kTupleMode, mpls_vpn_mib_static_notify}},
};

constexpr KvPathRow kThresholdPaths[] = {kMidThresholdEvent, kMaxThresholdEvent};

}  // namespace

const KvPathTable mpls_vpn_mib_prov_paths = {kProvPaths, std::size(kProvPaths)};
const KvPathTable mpls_vpn_mib_vrf_paths = {kVrfPaths, std::size(kVrfPaths)};
const KvPathTable mpls_vpn_mib_bgp_paths = {kBgpPaths, std::size(kBgpPaths)};
const KvPathTable mpls_vpn_mib_rip_paths = {kRipPaths, std::size(kRipPaths)};
const KvPathTable mpls_vpn_mib_ospf_paths = {kOspfPaths, std::size(kOspfPaths)};
const KvPathTable mpls_vpn_mib_eigrp_paths = {kEigrpPaths, std::size(kEigrpPaths)};
const KvPathTable mpls_vpn_mib_static_paths = {kStaticPaths, std::size(kStaticPaths)};
const KvPathTable mpls_vpn_mib_threshold_paths = {kThresholdPaths, std::size(kThresholdPaths)};

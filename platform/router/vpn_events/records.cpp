// See records.h. Constant data.
#include "platform/router/vpn_events/records.h"

#include <iterator>

namespace vpn_events {

namespace {

constexpr std::uint32_t kChangesOffsets[] = {offsetof(VpnChanges, first), offsetof(VpnChanges, changes.count),
                                             offsetof(VpnChanges, changes.elements)};
constexpr std::uint32_t kChangeOffsets[] = {offsetof(VpnChange, vrf),       offsetof(VpnChange, item),
                                            offsetof(VpnChange, family),    offsetof(VpnChange, old_value),
                                            offsetof(VpnChange, old_owner), offsetof(VpnChange, new_value),
                                            offsetof(VpnChange, new_owner)};
constexpr ParcelStructLayout kStructs[] = {
    {1, sizeof(VpnChanges), kChangesOffsets, std::size(kChangesOffsets)},
    {2, sizeof(VpnChange), kChangeOffsets, std::size(kChangeOffsets)}};
constexpr ParcelLayout kLayout = {kStructs, std::size(kStructs)};

}  // namespace

const ParcelDescription kVpnChangesParcel = {
    1,
    "vpn_changes",
    1,
    1,
    "vpn_changes_desc.dll",
    &kLayout,
    "$1={first}D{changes}a($2);"
    "$2={vrf}s{item}D{family}D{old_value}s{old_owner}s{new_value}s{new_owner}s;",
    "$1=Da($2);$2=sDDssss;"};

}  // namespace vpn_events

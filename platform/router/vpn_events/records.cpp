// The field tables of the changes. Constant data.
#include "platform/router/vpn_events/records.h"

#include <array>

#include "platform/core/parcel/description.h"

namespace vpn_events {

namespace {

constexpr std::array kChangeFields = {
    PARCEL_FIELD(VpnChange, vrf),       PARCEL_FIELD(VpnChange, item),
    PARCEL_FIELD(VpnChange, family),    PARCEL_FIELD(VpnChange, old_value),
    PARCEL_FIELD(VpnChange, old_owner), PARCEL_FIELD(VpnChange, new_value),
    PARCEL_FIELD(VpnChange, new_owner),
};
constexpr auto kChange = parcel_structure<VpnChange>(2, kChangeFields);

constexpr std::array kChangesFields = {
    PARCEL_FIELD(VpnChanges, first),
    PARCEL_FIELD(VpnChanges, changes, parcel_array_of(kChange)),
};
constexpr auto kChanges = parcel_structure<VpnChanges>(1, kChangesFields);

}  // namespace

constinit const ParcelDescription kVpnChangesParcel =
    parcel_description<kChanges, kChange>("vpn_changes", 1, 1, "vpn_changes_desc.dll");

}  // namespace vpn_events

// The field table of an interface's state. Constant data.
#include "platform/router/interface_states/records.h"

#include <array>

#include "platform/core/parcel/description.h"

namespace interface_states {

namespace {

constexpr std::array kStateFields = {
    PARCEL_FIELD(InterfaceState, handle),      PARCEL_FIELD(InterfaceState, index),
    PARCEL_FIELD(InterfaceState, name),        PARCEL_FIELD(InterfaceState, vrf),
    PARCEL_FIELD(InterfaceState, description), PARCEL_FIELD(InterfaceState, up),
    PARCEL_FIELD(InterfaceState, addresses),
};
constexpr auto kState = parcel_structure<InterfaceState>(1, kStateFields);

}  // namespace

constinit const ParcelDescription kInterfaceStateParcel =
    parcel_description<kState>("interface_state", 1, 1, "interface_state_desc.dll");

}  // namespace interface_states

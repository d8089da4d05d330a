// A row of mplsL3VpnIfConfTable: the record, its fields on the wire, its columns.
#pragma once

#include <array>
#include <cstdint>

#include "mpls/vpn/mib/src/records/column.h"
#include "platform/core/parcel/field_table.h"

struct mpls_vpn_mib_interface {
  char* name;
  std::int32_t ifConfIndex;  // ifIndex of IF-MIB
  std::int32_t vpnClassification;
  std::uint8_t protocol;  // BITS, bit 0 being 0x80
  std::int32_t storageType;
  std::int32_t rowStatus;
  char* vrfName;
};
inline constexpr std::array kMibInterfaceFields = {
    PARCEL_FIELD(mpls_vpn_mib_interface, name),
    PARCEL_FIELD(mpls_vpn_mib_interface, ifConfIndex),
    PARCEL_FIELD(mpls_vpn_mib_interface, vpnClassification),
    PARCEL_FIELD(mpls_vpn_mib_interface, protocol),
    PARCEL_FIELD(mpls_vpn_mib_interface, storageType),
    PARCEL_FIELD(mpls_vpn_mib_interface, rowStatus),
    PARCEL_FIELD(mpls_vpn_mib_interface, vrfName),
};

namespace mib {

using Interface = mpls_vpn_mib_interface;

inline constexpr std::uint32_t kInterfaceEntry[] = {2, 1, 1};

inline constexpr Column<Interface> kInterfaceColumns[] = {
    hidden<&Interface::vrfName>("vrfName", kDisplayString),
    hidden<&Interface::ifConfIndex>("ifConfIndex", kInteger32),
    hidden<&Interface::name>("name", kDisplayString),
    column<&Interface::vpnClassification>("vpnClassification", kInterfaceEntry, 2, kClassification),
    column<&Interface::protocol>("protocol", kInterfaceEntry, 3, kProtocols),
    column<&Interface::storageType>("storageType", kInterfaceEntry, 4, kStorageType),
    column<&Interface::rowStatus>("rowStatus", kInterfaceEntry, 5, kRowStatus),
};

}  // namespace mib

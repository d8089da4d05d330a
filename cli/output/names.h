// Names of the numbers in the daemon's records, as the MIBs spell them (RFC 4382 section 5, RFC 2579 section
// 2, RFC 4001 section 3, RFC 4292 section 5). Address families are those of RFC 4760.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

// The protocols of an mplsL3VpnIfVpnRouteDistProtocol octet, bit 0 (0x80) first; a bit without a name is
// "bit7".
std::vector<std::string> protocol_names(std::uint8_t bits);
// Numbers without a name are shown as they are.
std::string classification_name(std::int32_t value);       // mplsL3VpnIfVpnClassification
std::string storage_type_name(std::int32_t value);         // StorageType
std::string row_status_name(std::int32_t value);           // RowStatus
std::string notification_switch_name(std::int32_t value);  // the daemon's switch: 0 or 1
std::string vrf_status_name(std::int32_t value);           // mplsL3VpnVrfConfAdminStatus, ...OperStatus
std::string route_target_type_name(std::int32_t value);    // mplsL3VpnVrfRTType
std::string address_type_name(std::int32_t value);         // InetAddressType
std::string route_type_name(std::int32_t value);           // inetCidrRouteType
std::string route_protocol_name(std::int32_t value);       // IANAipRouteProtocol; netmgmt is "static"
std::string afi_name(std::uint32_t value);                 // "ipv4", "ipv6"
std::string safi_name(std::uint32_t value);                // "unicast", "multicast", "flow" (RFC 8955)

}  // namespace cli

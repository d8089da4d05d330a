// What the daemon and its clients agree on: the path of its data, and values of the MIB in its records.
#pragma once

#include <cstdint>

// What the daemon provides in the data store, and the path that its traps have.
inline constexpr char kMplsVpnPath[] = "/oper/mpls_vpn/gl/";

// RFC 2579
inline constexpr std::int32_t kRowStatusActive = 1;
inline constexpr std::int32_t kStorageTypeReadOnly = 5;
inline constexpr std::uint32_t kTruthTrue = 1;
inline constexpr std::uint32_t kTruthFalse = 2;

// InetAddressType (RFC 4001)
inline constexpr std::int32_t kInetAddressUnknown = 0;
inline constexpr std::int32_t kInetAddressIpv4 = 1;
inline constexpr std::int32_t kInetAddressIpv6 = 2;
inline constexpr std::int32_t kInetAddressIpv6z = 4;

// inetCidrRouteType (RFC 4292) of a route without next hop
inline constexpr std::uint32_t kRouteTypeLocal = 3;

// RFC 4382
inline constexpr std::int32_t kVpnClassificationEnterprise = 2;  // mplsL3VpnIfVpnClassification
inline constexpr std::int32_t kVrfOperStatusUp = 1;              // mplsL3VpnVrfOperStatus
inline constexpr std::int32_t kVrfOperStatusDown = 2;
inline constexpr std::int32_t kRtImport = 1;  // MplsL3VpnRtType
inline constexpr std::int32_t kRtExport = 2;
inline constexpr std::int32_t kRtBoth = 3;

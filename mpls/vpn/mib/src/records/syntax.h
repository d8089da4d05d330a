// The syntaxes of the MIB's objects (RFC 2578, RFC 2579, RFC 4382) with the names of their values.
#pragma once

#include <cstdint>
#include <span>

namespace mib {

enum class Type : std::uint8_t {
  // Numbers
  kInteger,
  kTruth,  // TruthValue; 1 in the record is true, every other number false
  kUnsigned,
  kGauge,
  kCounter,
  kTimeStamp,  // in the record seconds since 1970, 0 for never
  // Octet strings
  kText,
  kBits,  // one octet
  kAddress,
  kMplsIndex,
  kOctets,
};

constexpr bool is_octet_string(Type type) {
  return type >= Type::kText;
}

struct Syntax {
  Type type;
  // Of the values `first`, first + 1 and so on; of BITS: of the bits, the first being 0x80.
  std::span<const char* const> names = {};
  std::int32_t first = 1;
  std::uint32_t most = 0;  // octets of a text for a manager
};

inline constexpr Syntax kInteger32 = {Type::kInteger};
inline constexpr Syntax kUnsigned32 = {Type::kUnsigned};
inline constexpr Syntax kGauge32 = {Type::kGauge};
inline constexpr Syntax kCounter32 = {Type::kCounter};
inline constexpr Syntax kTimeStamp = {Type::kTimeStamp};
inline constexpr Syntax kDisplayString = {Type::kText, {}, 0, 255};
inline constexpr Syntax kAdminString = {Type::kText, {}, 0, 255};         // SnmpAdminString (RFC 3411)
inline constexpr Syntax kRouteDistinguisher = {Type::kText, {}, 0, 256};  // MplsL3VpnRouteDistinguisher
inline constexpr Syntax kInetAddress = {Type::kAddress};
inline constexpr Syntax kMplsIndex = {Type::kMplsIndex};  // MplsIndexType (RFC 3813)
inline constexpr Syntax kOctetString = {Type::kOctets};

inline constexpr const char* kTruthNames[] = {"disabled", "enabled"};
inline constexpr Syntax kTruthValue = {Type::kTruth, kTruthNames, 0};

inline constexpr const char* kRowStatusNames[] = {"active",      "notInService",  "notReady",
                                                  "createAndGo", "createAndWait", "destroy"};
inline constexpr Syntax kRowStatus = {Type::kInteger, kRowStatusNames};

inline constexpr const char* kStorageTypeNames[] = {"other", "volatile", "nonVolatile", "permanent",
                                                    "readOnly"};
inline constexpr Syntax kStorageType = {Type::kInteger, kStorageTypeNames};

// mplsL3VpnVrfOperStatus, mplsL3VpnVrfConfAdminStatus
inline constexpr const char* kVrfStatusNames[] = {"up", "down", "testing"};
inline constexpr Syntax kVrfStatus = {Type::kInteger, kVrfStatusNames};

// mplsL3VpnIfVpnClassification
inline constexpr const char* kClassificationNames[] = {"carrierOfCarrier", "enterprise", "interProvider"};
inline constexpr Syntax kClassification = {Type::kInteger, kClassificationNames};

// mplsL3VpnIfVpnRouteDistProtocol; the last bit has no name.
inline constexpr const char* kProtocolNames[] = {"none", "bgp",    "ospf",  "rip",
                                                 "isis", "static", "other", "bit7"};
inline constexpr Syntax kProtocols = {Type::kBits, kProtocolNames};

inline constexpr const char* kRouteTargetTypeNames[] = {"import", "export", "both"};
inline constexpr Syntax kRouteTargetType = {Type::kInteger, kRouteTargetTypeNames};

inline constexpr const char* kAddressTypeNames[] = {"unknown", "ipv4", "ipv6", "ipv4z", "ipv6z"};
inline constexpr Syntax kInetAddressType = {Type::kInteger, kAddressTypeNames, 0};

// inetCidrRouteType (RFC 4292)
inline constexpr const char* kRouteTypeNames[] = {"other", "reject", "local", "remote", "blackhole"};
inline constexpr Syntax kRouteType = {Type::kInteger, kRouteTypeNames};

// IANAipRouteProtocol; netmgmt is "static".
inline constexpr const char* kRouteProtocolNames[] = {
    "other", "local",   "static", "icmp", "egp",  "ggp",   "hello", "rip", "isis", "esis",
    "igrp",  "bbn-spf", "ospf",   "bgp",  "idpr", "eigrp", "dvmrp", "rpl", "dhcp", "ttdp"};
inline constexpr Syntax kRouteProtocol = {Type::kInteger, kRouteProtocolNames};

}  // namespace mib

// Address families and SAFIs of tables (RFC 4760; SAFI 133: RFC 8955), and their names in messages.
#pragma once

#include <cstdint>

inline constexpr std::uint32_t kAfiIpv4 = 1;
inline constexpr std::uint32_t kAfiIpv6 = 2;
inline constexpr std::uint32_t kSafiUnicast = 1;
inline constexpr std::uint32_t kSafiMulticast = 2;
inline constexpr std::uint32_t kSafiFlowRules = 133;

inline const char* afi_text(std::uint32_t afi) {
  return afi == kAfiIpv4 ? "IPv4" : "IPv6";
}

inline const char* safi_text(std::uint32_t safi) {
  return safi == kSafiUnicast ? "Unicast" : "Multicast";
}

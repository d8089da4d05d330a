// Names of address families and SAFIs in messages.
#pragma once

#include <cstdint>

#include "platform/core/address/address.h"

inline const char* afi_text(std::uint32_t afi) {
  return afi == inet::kIpv4Afi ? "IPv4" : "IPv6";
}

inline const char* safi_text(std::uint32_t safi) {
  return safi == inet::kUnicastSafi ? "Unicast" : "Multicast";
}

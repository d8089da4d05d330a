// Names of the numbers in the daemon's records, as the MIBs spell them. Numbers without a name are shown as
// they are. Address families are those of RFC 4760.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mpls/vpn/mib/src/records/syntax.h"

namespace cli {

std::string name_of(const mib::Syntax& syntax, std::int32_t value);
// The names of the bits that are 1, the first bit being 0x80.
std::vector<std::string> bit_names(const mib::Syntax& syntax, std::uint8_t bits);

std::string afi_name(std::uint32_t value);   // "ipv4", "ipv6"
std::string safi_name(std::uint32_t value);  // "unicast", "multicast", "flow" (RFC 8955)

}  // namespace cli

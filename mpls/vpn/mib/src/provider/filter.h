// What a VRF request asks for: the decoded arguments, and the two tests that every VRF handler applies.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/vrf/database.h"
#include "platform/store/tree/kvtree.h"

// Forms of a request (RequestArgs.form): without and with AFI and SAFI, each also with an encoded VRF name.
inline constexpr std::uint32_t kFormName = 0;
inline constexpr std::uint32_t kFormNameAfiSafi = 1;
inline constexpr std::uint32_t kFormEncodedName = 2;
inline constexpr std::uint32_t kFormEncodedNameAfiSafi = 3;

// To the handler of a table's row, form 1 is a next read, which each handler defines. Every other form reads
// the row of exactly this key, also the structured request of the same path (form 3).
inline bool is_next_read(const RequestArgs* args) {
  return args->form == kFormNameAfiSafi;
}

// Flags of a filter: what the request named.
inline constexpr std::uint32_t kFilterAfi = 0x1;
inline constexpr std::uint32_t kFilterSafi = 0x2;
inline constexpr std::uint32_t kFilterVrfName = 0x4;

struct VrfFilter {
  std::uint32_t flags;
  const char* vrf_name;  // null without kFilterVrfName; lives as long as the request, or as decoded_name
  char* decoded_name;    // owned; null but in the two encoded forms
  std::uint32_t afi;     // 1 IPv4, 2 IPv6
  std::uint32_t safi;    // 1 unicast, 2 multicast
};

// Clears the filter and fills it from the arguments. A name that does not decode, and an unknown form, are
// reported and leave their part of the filter empty. The caller ends with release_filter_vrf_name.
void set_filter_vrf_afi_safi(VrfFilter* filter, const RequestArgs* args);
// Frees a decoded name. A borrowed one is left alone.
void release_filter_vrf_name(VrfFilter* filter);

// True when the filter names neither AFI nor SAFI, or the VRF has a table of that AFI and SAFI. A SAFI
// without an AFI matches by common bits: 3 is unicast or multicast.
bool vrf_matches_afi_safi(const char* vrf_name, const VrfFilter* filter);

// The VRF's node if the VRF database has it and it is complete, else null.
const VrfNode* vrf_in_database(const char* vrf_name);

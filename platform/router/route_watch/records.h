// The record of a VRF whose routes are watched: a contract with every process that decodes it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/core/parcel/parcel.h"

namespace route_watch {

// The provider, and what it answers: "vrf-next/NAME", the first watched VRF after this name; "-" is before
// all.
inline constexpr char kProviderPath[] = "/oper/route_watch/";
inline constexpr char kVrfNext[] = "vrf-next";

// Times are seconds since 1970; 0: it has not changed since the process started.
struct WatchedTableRecord {
  std::uint32_t afi;     // 1 ipv4, 2 ipv6
  std::uint32_t routes;  // now
  std::uint32_t low;     // the low-water mark; 0: none
  std::uint32_t hold;    // seconds
  std::uint32_t is_low;  // 1: there have been fewer routes than `low` for `hold` seconds
  std::uint32_t changed;
  std::uint32_t mid;         // 0: none
  std::uint32_t maximum;     // 0: none
  std::uint32_t is_unread;   // 1: its routes are not read yet, so `is_low` is of an earlier process
  std::uint32_t unread_for;  // ... for so many seconds
};
static_assert(sizeof(WatchedTableRecord) == 40);

inline constexpr std::uint32_t kLongReading =
    20;  // seconds, from which on a table that is not read is reported

inline constexpr std::size_t kMostPrefixes = 1000;  // that are watched, of all VRFs

struct WatchedPrefixRecord {
  char* prefix;
  std::uint32_t is_present;
  std::uint32_t changed;
  std::uint32_t is_watched;  // 0: it is beyond the limit
  std::uint32_t is_unread;   // 1: the routes of its table are not read yet
};
static_assert(sizeof(WatchedPrefixRecord) == 24);

struct WatchedVrfRecord {
  char* vrf;
  ParcelArray tables;  // of WatchedTableRecord: those with a mark or a threshold, and those that are not read
  ParcelArray prefixes;       // of WatchedPrefixRecord; of those that are not watched at most kMostPrefixes
  std::uint32_t not_watched;  // how many there are
};
static_assert(sizeof(WatchedVrfRecord) == 48);

extern const ParcelDescription kWatchedVrfParcel;

}  // namespace route_watch

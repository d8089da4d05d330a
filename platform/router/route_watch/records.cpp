// The field tables of a watched VRF. Constant data.
#include "platform/router/route_watch/records.h"

#include <array>

#include "platform/core/parcel/description.h"

namespace route_watch {

namespace {

constexpr std::array kTableFields = {
    PARCEL_FIELD(WatchedTableRecord, afi),       PARCEL_FIELD(WatchedTableRecord, routes),
    PARCEL_FIELD(WatchedTableRecord, low),       PARCEL_FIELD(WatchedTableRecord, hold),
    PARCEL_FIELD(WatchedTableRecord, is_low),    PARCEL_FIELD(WatchedTableRecord, changed),
    PARCEL_FIELD(WatchedTableRecord, mid),       PARCEL_FIELD(WatchedTableRecord, maximum),
    PARCEL_FIELD(WatchedTableRecord, is_unread), PARCEL_FIELD(WatchedTableRecord, unread_for),
};
constexpr auto kTable = parcel_structure<WatchedTableRecord>(2, kTableFields);

constexpr std::array kPrefixFields = {
    PARCEL_FIELD(WatchedPrefixRecord, prefix),    PARCEL_FIELD(WatchedPrefixRecord, is_present),
    PARCEL_FIELD(WatchedPrefixRecord, changed),   PARCEL_FIELD(WatchedPrefixRecord, is_watched),
    PARCEL_FIELD(WatchedPrefixRecord, is_unread),
};
constexpr auto kPrefix = parcel_structure<WatchedPrefixRecord>(3, kPrefixFields);

constexpr std::array kVrfFields = {
    PARCEL_FIELD(WatchedVrfRecord, vrf),
    PARCEL_FIELD(WatchedVrfRecord, tables, parcel_array_of(kTable)),
    PARCEL_FIELD(WatchedVrfRecord, prefixes, parcel_array_of(kPrefix)),
    PARCEL_FIELD(WatchedVrfRecord, not_watched),
};
constexpr auto kVrf = parcel_structure<WatchedVrfRecord>(1, kVrfFields);

}  // namespace

constinit const ParcelDescription kWatchedVrfParcel =
    parcel_description<kVrf, kTable, kPrefix>("watched_vrf", 1, 1, "watched_vrf_desc.dll");

}  // namespace route_watch

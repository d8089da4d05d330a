// The field tables of the latest notifications. Constant data.
#include "platform/store/history/records.h"

#include <array>

#include "platform/core/parcel/description.h"

namespace notification_history {

namespace {

constexpr std::array kCountFields = {PARCEL_FIELD(NotificationCount, count)};
constexpr auto kCount = parcel_structure<NotificationCount>(2, kCountFields);

constexpr std::array kPastFields = {
    PARCEL_FIELD(PastNotification, number),       PARCEL_FIELD(PastNotification, time),
    PARCEL_FIELD(PastNotification, milliseconds), PARCEL_FIELD(PastNotification, type),
    PARCEL_FIELD(PastNotification, record),
};
constexpr auto kPast = parcel_structure<PastNotification>(3, kPastFields);

constexpr std::array kLatestFields = {
    PARCEL_FIELD(LatestNotifications, counts, parcel_array_of(kCount)),
    PARCEL_FIELD(LatestNotifications, waiting),
    PARCEL_FIELD(LatestNotifications, notifications, parcel_array_of(kPast)),
};
constexpr auto kLatest = parcel_structure<LatestNotifications>(1, kLatestFields);

}  // namespace

constinit const ParcelDescription kLatestNotificationsParcel =
    parcel_description<kLatest, kCount, kPast>("latest_notifications", 1, 1, "latest_notifications_desc.dll");

}  // namespace notification_history

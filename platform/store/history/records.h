// The record of the latest notifications: a contract with every process that decodes it.
#pragma once

#include <cstdint>

#include "platform/core/parcel/parcel.h"

namespace notification_history {

// The provider, and what it answers: "latest/N", N at most kMostListed.
inline constexpr char kProviderPath[] = "/oper/notifications/";
inline constexpr char kItemName[] = "latest";
inline constexpr std::uint32_t kMostListed = 500;

// Numbers beyond 32 bits are the largest one.
struct PastNotification {
  std::uint32_t number;  // of all types, from 1
  std::uint32_t time;    // seconds since 1970
  std::uint32_t milliseconds;
  std::uint32_t type;
  ParcelOctets record;  // as subscribers receive it
};
static_assert(sizeof(PastNotification) == 32);

struct NotificationCount {
  std::uint32_t count;
};
static_assert(sizeof(NotificationCount) == 4);

struct LatestNotifications {
  ParcelArray counts;         // of NotificationCount, by type
  std::uint32_t waiting;      // for the SNMP front end
  ParcelArray notifications;  // of PastNotification, the oldest first
};
static_assert(sizeof(LatestNotifications) == 40);

extern const ParcelDescription kLatestNotificationsParcel;

}  // namespace notification_history

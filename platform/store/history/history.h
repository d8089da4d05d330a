// The history of notifications for "mplsvpn show traps": the latest ones and how many of each type there
// were, over restarts, and how many wait for the SNMP front end. Takes each notification as its provider
// raises it. A provider of the data store itself, at /oper/notifications/ (records.h); every reader may get
// it. Main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/store/tree/kvtree.h"

struct NotificationSource {
  std::string path;        // of the providers whose notifications are listed
  std::string subscriber;  // who retains them (kvtree_retain_notifications)
  std::string file;        // stores the history; empty: it is lost with the process
  std::size_t types;
  // Below `types`; nothing for a notification that is not listed.
  std::function<std::optional<std::uint32_t>(const KvProviderNotification&)> type_of;
};

// The manager is the one that serves the store and must live until notification_history_stop. A file that
// cannot be used is logged. kStatusExists when it is provided, or the status of binding or registering.
[[nodiscard]] Status notification_history_start(EventManager* manager, NotificationSource source);
void notification_history_stop();  // ignored when it is not provided

struct NotificationFigures {
  std::vector<std::uint64_t> counts;  // by type, over restarts; empty when no history is provided
  std::size_t waiting = 0;
  std::string problem{};  // why the history is not stored; empty if it is
};
NotificationFigures notification_figures();

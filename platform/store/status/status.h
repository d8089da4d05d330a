// The state of the process for "mplsvpn show status": what runs for how long, long iterations of the event
// loop, and the clients of the data store (records.h). A provider of the data store itself, at
// /oper/process/status; every reader may get it. Main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/store/status/facts.h"

struct ProcessIdentity {
  std::string version{};
  std::string source{};  // of the router, as its log lines name it
  // How much the source had to correct; null, or without a value, if it corrects nothing.
  std::function<std::optional<std::uint64_t>()> corrections{};
  // The messages that it dropped because they are malformed; the same.
  std::function<std::optional<std::uint64_t>()> malformed{};
  // Null for none.
  std::function<std::vector<process_status::SourceFact>()> sources{};
  std::function<std::vector<process_status::DatabaseFact>()> databases{};
  std::function<std::vector<std::string>()> route_module_failures{};
  std::function<std::optional<process_status::TrapsFact>()> traps{};
  // Why the settings in the file are not those in effect; empty if they are.
  std::function<std::string()> settings_problem{};
  std::function<process_status::MetricsFact()> metrics{};
};

// Time begins now. The manager is the one that serves the store and must live until process_status_stop.
// kStatusExists when it is provided, or the status of binding or registering.
[[nodiscard]] Status process_status_start(EventManager* manager, ProcessIdentity identity);
void process_status_stop();  // ignored when it is not provided

// The platform's settings: CONFIG_DIRECTORY/platform.yaml, read at start and after SIGHUP (reload.h).
//
//   source: kernel            # the live Linux kernel (the default), or: file
//   router_file: router.yaml  # with source: file; relative to the settings' folder
//   frr: auto                 # follow the routing suite's configuration: with the kernel only (the default);
//                             # or true, false, or its shell: "/usr/bin/vtysh -N pe1"
//   metrics: false            # /metrics for Prometheus: not served (the default), or true, or a map:
//                             # {address: 127.0.0.1, port: 10166, vrf: mgmt, interfaces: true}
#pragma once

#include <string>
#include <vector>

#include "daemon/metrics/settings.h"
#include "daemon/sources.h"

namespace daemon_host {

struct Settings : SourceSettings {
  const SourceKind* source = &source_kinds().front();
  daemon_metrics::MetricsSettings metrics;
  bool has_directory = true;  // that platform.yaml would be in
  std::string warning;        // for the operator; empty for none
  bool operator==(const Settings&) const = default;
};

// False, and "FILE:LINE:COLUMN: what" in *error, for a file that does not parse, has an unknown key or value
// or a key twice, or lacks a required option of its source. A missing file means the defaults; a missing
// folder also sets has_directory and the warning.
[[nodiscard]] bool read_settings(const std::string& config_directory, Settings* settings, std::string* error);
// The keys whose values differ.
std::vector<std::string> changed_settings(const Settings& former, const Settings& now);

}  // namespace daemon_host

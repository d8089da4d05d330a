// The module's directives in snmpd.conf, which follow its "dlmod" line:
//
//   mplsVpnRunDirectory PATH     the daemon's run directory; without it MPLS_VPN_MIB_RUN_DIR or the default
//   mplsVpnRowAge MILLISECONDS   for which a row that was read is served again: 0 to 60000, by default 1000
//
// An invalid line is reported with its file and number, and ignored: an earlier line with the same directive
// counts, or the default. snmpd's one thread.
#pragma once

#include <cstdint>
#include <string>

#include "agent/rows/row_cache.h"
#include "platform/core/base/clock.h"

namespace snmpd {

struct Settings {
  std::string daemon_socket;
  std::uint64_t row_age_ns = tables::kRowAgeMs * kNanosecondsPerMillisecond;
  bool operator==(const Settings&) const = default;
};

// Makes snmpd accept the directives.
void register_directives();
void unregister_directives();
// As of the directives that snmpd has read last.
Settings current_settings();

}  // namespace snmpd

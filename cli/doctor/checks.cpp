#include "cli/doctor/check.h"
#include "cli/doctor/daemon_checks.h"
#include "cli/doctor/kernel_checks.h"
#include "cli/doctor/route_checks.h"
#include "cli/doctor/snmp/snmp_checks.h"
#include "cli/doctor/suite_checks.h"
#include "cli/doctor/suite_saved.h"

namespace cli::doctor {

namespace {

constexpr Check kChecks[] = {
    {"daemon-running", "daemon", "the daemon answers", check_daemon},
    {"daemon-version", "daemon", "daemon and command line are of one version", check_version},
    {"settings", "daemon", "the settings are valid and in effect", check_settings},
    {"sources", "daemon", "the kernel, the router file and the suite's programs answer", check_sources},
    {"route-modules", "daemon", "the route modules are loaded", check_route_modules},
    {"metrics", "daemon", "metrics are served if they are configured", check_metrics},
    {"databases", "daemon", "the databases are sound and can be written", check_databases},
    {"disk", "daemon", "the state directory has free disk space", check_disk},
    {"clock", "daemon", "the clock is right", check_clock},
    {"snmpd-running", "snmp", "snmpd runs", check_snmpd},
    {"agentx-socket", "snmp", "the sub-agent may connect to snmpd's AgentX socket", check_agentx_socket},
    {"snmp-front-end", "snmp", "the sub-agent, or the module in snmpd, is connected", check_front_end},
    {"snmp-view", "snmp", "snmpd shows the MIB to managers", check_view},
    {"snmp-ifindex", "snmp", "snmpd has the same ifIndex for each interface", check_if_indexes},
    {"vrf-device-down", "kernel", "the devices of VRFs are up", check_vrf_devices},
    {"vrf-members", "kernel", "each VRF has an interface", check_vrf_members},
    {"vrf-default-route", "kernel", "lookups end in the table of the VRF", check_default_routes},
    {"vrf-shared-table", "kernel", "each VRF has a table of its own", check_shared_tables},
    {"mpls-labels", "kernel", "the kernel accepts labelled packets", check_labels},
    {"suite-access", "suite", "the routing suite answers", check_suite_access},
    {"suite-mgmtd", "suite", "mgmtd runs if the suite has it", check_mgmtd},
    {"suite-vrf-device", "suite", "each VRF of the suite is a VRF of the kernel", check_suite_vrfs},
    {"vrf-not-in-suite", "suite", "each VPN of the kernel is one of the suite", check_unused_vrfs},
    {"vpn-label", "suite", "exported VPN routes have labels or segment identifiers", check_vpn_labels},
    {"vpn-rd", "suite", "each VRF that exports has a route distinguisher of its own", check_rds},
    {"suite-saved", "suite", "the suite's saved configuration has the same RDs and route targets",
     check_saved},
    {"suite-routes", "suite", "the kernel has the routes that the suite selected", check_suite_routes},
    {"routes-low", "routes", "each table has as many routes as its low-water mark", check_low_tables},
    {"watched-prefix", "routes", "each watched prefix has a route", check_watched_prefixes},
};

}  // namespace

std::span<const Check> checks() {
  return kChecks;
}

}  // namespace cli::doctor

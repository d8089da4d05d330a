// net-snmp's headers, whose style is not the project's, and whose type `oid` has the name of a namespace
// here.
#pragma once

#pragma GCC system_header

// The headers need those before them.
// clang-format off
#define oid netsnmp_oid
extern "C" {
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/bulk_to_next.h>
#include <net-snmp/library/fd_event_manager.h>
// Exported, but in no header.
int netsnmp_remove_from_delegated(netsnmp_agent_session* session);
}
// clang-format on
#undef oid
// Macros that other headers would meet.
#undef FALSE
#undef TRUE
#undef SNMP_MIN
#undef SNMP_MAX

// snmpd, and the way from it to the daemon.
#pragma once

#include <string>

#include "cli/doctor/check.h"

namespace cli::doctor {

// NotPossible if snmpd neither runs nor is installed, or the sub-agent is not installed.
void require_programs();

inline constexpr char kAskingFix[] = "mplsvpn doctor --snmp '-v2c -c COMMUNITY 127.0.0.1'";
// What snmpget(1) or snmpwalk(1) prints for the object. NotPossible without --snmp, or without that program.
std::string ask_snmpd(Facts& facts, const char* program, const std::string& object);
// Whether such an answer says that the manager may not see the object, or that it does not exist.
bool is_hidden(const std::string& answer);

Findings check_snmpd(Facts& facts);
Findings check_agentx_socket(Facts& facts);
Findings check_front_end(Facts& facts);
Findings check_view(Facts& facts);
Findings check_if_indexes(Facts& facts);

}  // namespace cli::doctor

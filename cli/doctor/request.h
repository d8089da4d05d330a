// What the user asks of "mplsvpn doctor".
#pragma once

#include <string>
#include <vector>

namespace cli {

struct DoctorRequest {
  std::vector<std::string> only;  // ids of checks; none: all
  std::vector<std::string> skip;
  std::string snmp;  // options and host of snmpget(1); empty: snmpd is not asked
  std::string suite_shell = "/usr/bin/vtysh";
  unsigned suite_patience = 10'000;  // ms, for an answer of the shell
  std::string suite_file{};          // its saved configuration; empty: where the suite has it
  std::string agentx_socket{};       // empty: that of snmpd's configuration
  std::string snmpd_configuration = "/etc/snmp/snmpd.conf";
};

}  // namespace cli

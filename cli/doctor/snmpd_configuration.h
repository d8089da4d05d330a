// What snmpd.conf(5) says of sub-agents, and which managers it lets see the MIB: its access control as far as
// it is usual. What only a running snmpd knows, such as users and masks of views, is not considered.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace cli::doctor {

struct SnmpdConfiguration {
  // A line that lets managers read: everything, what is below an OID, or a view.
  struct Grant {
    std::string line{};
    std::string file{};
    std::string oid{};   // empty: everything, or the view
    std::string view{};  // empty: no view
  };
  struct Subtree {
    std::string oid;
    bool is_included;
  };
  std::vector<Grant> grants{};
  std::map<std::string, std::vector<Subtree>> views{};
  std::string agentx_socket{};  // empty: snmpd's default
};

// Reads the file and those that it includes. Failure(kExitFailed) for the file itself if it cannot be read.
SnmpdConfiguration read_snmpd_configuration(const std::string& path);

// Whether the grant shows what is below the OID.
bool shows(const SnmpdConfiguration& configuration, const SnmpdConfiguration::Grant& grant,
           const std::string& oid);

}  // namespace cli::doctor

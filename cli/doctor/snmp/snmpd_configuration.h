// What snmpd.conf(5) says of sub-agents and of who may read: communities and users, their views, and the
// users of SNMPv3 that exist.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "cli/doctor/snmp/oid.h"

namespace cli::doctor {

enum class SecurityLevel : std::uint8_t { kNone, kAuthenticated, kEncrypted };

// A line that lets managers read: everything, what is below an OID, or a view.
struct SnmpdGrant {
  std::string place{};      // "/etc/snmp/snmpd.conf:12"
  std::string directive{};  // "rocommunity"
  std::string user{};       // of SNMPv3; empty: a community, which is not secret enough to be encrypted
  SecurityLevel level = SecurityLevel::kNone;
  Oid oid{};                   // empty: everything, or the view
  std::string view{};          // empty: no view
  std::string unknown{};       // why what it shows cannot be known here; empty: it can
  bool is_for_anyone = false;  // a community that everybody knows, from any source
};

struct SnmpdSubtree {
  std::string place;
  Oid oid;
  std::vector<bool> mask;  // false: any number; what is beyond its end is true
  bool is_included;
};

// agentXPerms: of the AgentX socket and the folder that snmpd makes for it.
struct AgentxPermissions {
  std::string place{};  // empty: there is no such line
  std::string socket{};
  std::string folder{};
  std::string user{};
  std::string group{};
};

struct SnmpdConfiguration {
  std::vector<SnmpdGrant> grants{};
  std::map<std::string, std::vector<SnmpdSubtree>> views{};
  std::set<std::string> unknown_views{};  // that have names instead of numbers
  std::map<std::string, SecurityLevel> users{};
  bool knows_users = true;      // false: the file with users of snmpd could not be read
  std::string agentx_socket{};  // empty: snmpd's default
  AgentxPermissions agentx_permissions{};
  std::set<std::string> folders{};  // whose files it includes
};

// Reads the file, those that it includes, and the users in snmpd's persistent files ($SNMP_PERSISTENT_DIR, as
// snmpd has it). Failure(kExitFailed) for the file itself if it cannot be read.
SnmpdConfiguration read_snmpd_configuration(const std::string& path);

}  // namespace cli::doctor

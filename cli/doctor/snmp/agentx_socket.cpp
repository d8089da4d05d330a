#include <fmt/format.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cli/diagnosis/status_facts.h"
#include "cli/doctor/facts.h"
#include "cli/doctor/snmp/agentx_permission.h"
#include "cli/doctor/snmp/snmp_checks.h"
#include "cli/doctor/snmp/snmpd_configuration.h"

namespace cli::doctor {

namespace {

using process_status::ClientStatus;

constexpr char kDefaultSocket[] = "/var/agentx/master";
constexpr std::string_view kUnixPrefix = "unix:";

// The daemon's state; null while it is unknown, which another check reports.
const process_status::ProcessStatus* find_status(Facts& facts) {
  try {
    return &*facts.status();
  } catch (const Failure&) {
    return nullptr;
  }
}

// The user of the sub-agent: of the connected one, or of its service.
uid_t agent_user(Facts& facts) {
  const process_status::ProcessStatus* const status = find_status(facts);
  const ClientStatus* const client = status == nullptr ? nullptr : front_end_of(*status);
  if (client != nullptr) return client->user;
  const passwd* const entry = getpwnam("mpls_vpn_snmp");
  return entry == nullptr ? geteuid() : entry->pw_uid;
}

bool is_module(Facts& facts) {
  const process_status::ProcessStatus* const status = find_status(facts);
  if (status == nullptr) return false;
  const Json front_end = front_end_json(*status);
  return front_end.is_object() && front_end["kind"] == "module";
}

// A configuration that cannot be read leaves snmpd's defaults; another check reports it.
SnmpdConfiguration configuration_or_defaults(Facts& facts) {
  try {
    return read_snmpd_configuration(facts.request.snmpd_configuration);
  } catch (const Failure&) {
    return {};
  }
}

// Where snmpd has its socket.
std::string socket_address(Facts& facts) {
  if (!facts.request.agentx_socket.empty()) return facts.request.agentx_socket;
  const std::string configured = configuration_or_defaults(facts).agentx_socket;
  return configured.empty() ? kDefaultSocket : configured;
}

std::string socket_path(Facts& facts) {
  const std::string address = socket_address(facts);
  const std::string path = address.starts_with(kUnixPrefix) ? address.substr(kUnixPrefix.size()) : address;
  if (path.starts_with('/') && path.size() < sizeof(sockaddr_un::sun_path)) return path;
  throw NotPossible(fmt::format("the AgentX address {} is not the path of a Unix socket", address));
}

// The errno of a connection to it, which does not wait; 0 if it is accepted.
int try_connect(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) throw NotPossible(std::string("no socket: ") + std::strerror(errno));
  const bool is_connected = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  const int error = is_connected ? 0 : errno;
  close(fd);
  return error;
}

Findings judge_permission(Facts& facts, const std::string& path, int error) {
  const AgentxPermissions permissions = configuration_or_defaults(facts).agentx_permissions;
  Findings findings = judge_agentx_permission(agent_user(facts), path, permissions);
  if (!findings.empty() || error == 0) return findings;
  throw NotPossible(fmt::format("{}: {}; run mplsvpn doctor as root", path, std::strerror(error)));
}

}  // namespace

Findings check_agentx_socket(Facts& facts) {
  if (is_module(facts)) return {};
  require_programs();
  const std::string path = socket_path(facts);
  const int error = try_connect(path);
  if (error == 0 || error == EACCES || error == EPERM) return judge_permission(facts, path, error);
  if (error == ENOENT || error == ENOTDIR) {
    return {{Level::kError, path + " does not exist: snmpd is not an AgentX master",
             "add \"master agentx\" to snmpd.conf, then: systemctl restart snmpd"}};
  }
  return {{Level::kError,
           fmt::format("snmpd does not accept connections on {}: {}", path, std::strerror(error)),
           "systemctl restart snmpd"}};
}

}  // namespace cli::doctor

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "cli/diagnosis/status_facts.h"
#include "cli/doctor/facts.h"
#include "cli/doctor/snmp/snmp_checks.h"
#include "cli/doctor/snmp/snmpd_configuration.h"

namespace cli::doctor {

namespace {

using process_status::ClientStatus;

constexpr char kDefaultSocket[] = "/var/agentx/master";
constexpr std::string_view kUnixPrefix = "unix:";

std::vector<gid_t> groups_of(uid_t user) {
  const passwd* const entry = getpwuid(user);
  if (entry == nullptr) return {};
  std::vector<gid_t> groups(64);
  int count = static_cast<int>(groups.size());
  if (getgrouplist(entry->pw_name, entry->pw_gid, groups.data(), &count) < 0) return groups;
  groups.resize(static_cast<std::size_t>(count));
  return groups;
}

// Whether the mode gives the user these rights (of "others": 1 search, 2 write).
bool may(uid_t user, const struct stat& file, mode_t rights) {
  if (user == 0) return true;
  if (user == file.st_uid) return (file.st_mode >> 6 & rights) == rights;
  const std::vector<gid_t> groups = groups_of(user);
  const bool is_in_group = std::ranges::find(groups, file.st_gid) != groups.end();
  return ((is_in_group ? file.st_mode >> 3 : file.st_mode) & rights) == rights;
}

// The first of the socket and its folders that keeps the user out; empty for none.
std::string obstacle(uid_t user, const std::string& socket) {
  struct stat found {};
  const std::filesystem::path path = socket;
  for (std::filesystem::path folder = path.parent_path(); folder.has_relative_path();
       folder = folder.parent_path()) {
    if (stat(folder.c_str(), &found) == 0 && !may(user, found, 1)) return folder;
  }
  return stat(socket.c_str(), &found) == 0 && !may(user, found, 2) ? socket : "";
}

std::string user_name(uid_t user) {
  const passwd* const entry = getpwuid(user);
  return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

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

// Where snmpd has its socket. A configuration that cannot be read leaves snmpd's default; another check
// reports it.
std::string socket_address(Facts& facts) {
  if (!facts.request.agentx_socket.empty()) return facts.request.agentx_socket;
  std::string configured;
  try {
    configured = read_snmpd_configuration(facts.request.snmpd_configuration).agentx_socket;
  } catch (const Failure&) {
    return kDefaultSocket;
  }
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
  const uid_t user = agent_user(facts);
  const std::string place = obstacle(user, path);
  if (!place.empty()) {
    return {{Level::kError,
             fmt::format("the user {} of the sub-agent has no permission for {}", user_name(user), place),
             "add \"agentXPerms 0660 0711 Debian-snmp mpls_vpn_snmp\" to snmpd.conf, then: systemctl restart "
             "snmpd"}};
  }
  if (error == 0) return {};
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

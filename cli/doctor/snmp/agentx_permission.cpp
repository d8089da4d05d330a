#include "cli/doctor/snmp/agentx_permission.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "cli/system/program.h"

namespace cli::doctor {

namespace {

constexpr char kAgentGroup[] = "mpls_vpn_snmp";
// As the packaged example: snmpd reports that it does not know "root" or "0".
constexpr char kSocketUser[] = "Debian-snmp";
constexpr char kRestartSnmpd[] = ", then: systemctl restart snmpd";

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

std::string user_name(uid_t user) {
  const passwd* const entry = getpwuid(user);
  return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

// snmpd's permissions change no folder that exists.
Finding closed_folder(uid_t user, const std::string& folder) {
  return {Level::kError,
          fmt::format("the user {} of the sub-agent has no permission for {}", user_name(user), folder),
          fmt::format("chmod a+x {}", shell_word(folder))};
}

std::string or_default(const std::string& word, const char* value) {
  return word.empty() ? value : word;
}

bool lets_group_write(const std::string& mode) {
  return (std::strtoul(mode.c_str(), nullptr, 8) & 020) != 0;
}

// A group that has the socket keeps it: the sub-agent's user becomes a member.
std::string permission_fix(uid_t user, const AgentxPermissions& has) {
  const std::string folder = or_default(has.folder, "0711");
  const std::string owner = or_default(has.user, kSocketUser);
  const bool is_shared = !has.group.empty() && has.group != kAgentGroup;
  const std::string group = is_shared ? has.group : kAgentGroup;
  const std::string line = fmt::format("\"agentXPerms 0660 {} {} {}\"", folder, owner, group);
  const std::string member = is_shared
                                 ? fmt::format("usermod -aG {} {}, then: systemctl restart {}",
                                               shell_word(group), shell_word(user_name(user)), kAgentGroup)
                                 : "";
  if (is_shared && lets_group_write(has.socket)) return member;
  const std::string where =
      has.place.empty() ? "add " + line + " to snmpd.conf" : "replace the line " + has.place + " by " + line;
  return where + kRestartSnmpd + (is_shared ? "; " + member : "");
}

}  // namespace

Findings judge_agentx_permission(uid_t user, const std::string& socket,
                                 const AgentxPermissions& permissions) {
  Findings findings;
  struct stat found {};
  for (std::filesystem::path folder = std::filesystem::path(socket).parent_path(); folder.has_relative_path();
       folder = folder.parent_path()) {
    if (stat(folder.c_str(), &found) == 0 && !may(user, found, 1))
      findings.insert(findings.begin(), closed_folder(user, folder));
  }
  if (stat(socket.c_str(), &found) == 0 && !may(user, found, 2)) {
    findings.push_back(
        {Level::kError,
         fmt::format("the user {} of the sub-agent has no permission for {}", user_name(user), socket),
         permission_fix(user, permissions)});
  }
  return findings;
}

}  // namespace cli::doctor

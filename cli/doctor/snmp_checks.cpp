#include "cli/doctor/snmp_checks.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "cli/diagnosis/status_facts.h"
#include "cli/doctor/facts.h"
#include "cli/doctor/snmpd_configuration.h"
#include "cli/show/tables.h"
#include "cli/system/program.h"

namespace cli::doctor {

namespace {

using process_status::ClientStatus;

constexpr char kSubtree[] = "1.3.6.1.2.1.10.166.11";
constexpr char kFirstObject[] = ".1.1.1.0";  // below it: mplsL3VpnConfiguredVrfs.0
constexpr char kIfName[] = ".1.3.6.1.2.1.31.1.1.1.1";
constexpr std::chrono::seconds kPatience{20};
constexpr char kAskingFix[] = "mplsvpn doctor --snmp '-v2c -c COMMUNITY localhost'";

bool runs(const std::string& program) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
    std::ifstream name(entry.path() / "comm");
    std::string text;
    if (std::getline(name, text) && text == program) return true;
  }
  return false;
}

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

// What snmpget(1) or snmpwalk(1) prints for the object.
std::string ask_snmpd(Facts& facts, const char* program, const std::string& object) {
  if (facts.request.snmp.empty())
    throw NotPossible(std::string("the community is unknown; try ") + kAskingFix);
  std::vector<std::string> words = {program, "-On", "-Oq", "-m", ""};
  for (const std::string& word : command_words(facts.request.snmp)) words.push_back(word);
  words.push_back(object);
  const Ran ran = run_program(words, kPatience);
  if (ran.status < 0) throw NotPossible(fmt::format("{}: {}", program, ran.problem));
  return ran.output;
}

Findings judge_answer(const std::string& answer) {
  if (answer.find("No Such Object") != std::string::npos ||
      answer.find("No more variables") != std::string::npos) {
    return {{Level::kError,
             "snmpd answers \"No Such Object\": its view hides the MIB, or no sub-agent is registered",
             fmt::format("add \"view VIEW included .{}\" to snmpd.conf, then: systemctl restart snmpd",
                         kSubtree)}};
  }
  if (("\n" + answer).find("\n." + std::string(kSubtree)) != std::string::npos) return {};
  return {{Level::kError, "snmpd does not answer: " + last_line(answer), kAskingFix}};
}

Findings judge_configuration(const std::string& path) {
  const SnmpdConfiguration configuration = read_snmpd_configuration(path);
  const auto is_shown = [&configuration](const auto& grant) { return shows(configuration, grant, kSubtree); };
  if (std::ranges::any_of(configuration.grants, is_shown)) return {};
  if (configuration.grants.empty()) {
    return {{Level::kError, path + " lets no manager read anything",
             "add \"rocommunity COMMUNITY MANAGER\" to it, then: systemctl restart snmpd"}};
  }
  const SnmpdConfiguration::Grant& first = configuration.grants.front();
  return {{Level::kError, fmt::format("no line of {} shows the MIB: \"{}\" hides it", path, first.line),
           fmt::format("add \"view {} included .{}\" to {}, then: systemctl restart snmpd",
                       first.view.empty() ? "VIEW" : first.view, kSubtree, first.file)}};
}

// ifIndex by ifName.
std::map<std::string, std::string> indexes_of_snmpd(Facts& facts) {
  std::istringstream lines(ask_snmpd(facts, "snmpwalk", kIfName));
  std::map<std::string, std::string> indexes;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t blank = line.find(' ');
    if (!line.starts_with(kIfName) || blank == std::string::npos) continue;
    std::string name = line.substr(blank + 1);
    std::erase(name, '"');
    indexes[name] = line.substr(line.rfind('.', blank) + 1, blank - line.rfind('.', blank) - 1);
  }
  if (indexes.empty()) throw NotPossible("snmpd shows no interface to this manager");
  return indexes;
}

}  // namespace

Findings check_snmpd(Facts& /*facts*/) {
  if (runs("snmpd")) return {};
  return {{Level::kError, "no snmpd runs: no manager can read the MIB", "systemctl start snmpd"}};
}

Findings check_agentx_socket(Facts& facts) {
  if (is_module(facts)) return {};
  const std::string& socket = facts.request.agentx_socket;
  struct stat found {};
  if (stat(socket.c_str(), &found) != 0 && errno == ENOENT) {
    return {{Level::kError, socket + " does not exist: snmpd is not an AgentX master",
             "add \"master agentx\" to snmpd.conf, then: systemctl restart snmpd"}};
  }
  const uid_t user = agent_user(facts);
  const std::string place = obstacle(user, socket);
  if (place.empty()) return {};
  return {{Level::kError,
           fmt::format("the user {} of the sub-agent has no permission for {}", user_name(user), place),
           "add \"agentXPerms 0660 0711 root mpls_vpn_snmp\" to snmpd.conf, then: systemctl restart snmpd"}};
}

Findings check_front_end(Facts& facts) {
  if (facts.status()->traps_subscriber != 0) return {};
  return {{Level::kError,
           fmt::format("neither the sub-agent nor the module is connected to the daemon; {} traps wait",
                       facts.status()->traps_waiting),
           "systemctl start mpls_vpn_snmp"}};
}

Findings check_view(Facts& facts) {
  if (facts.request.snmp.empty()) return judge_configuration(facts.request.snmpd_configuration);
  return judge_answer(ask_snmpd(facts, "snmpget", "." + std::string(kSubtree) + kFirstObject));
}

Findings check_if_indexes(Facts& facts) {
  const std::map<std::string, std::string> indexes = indexes_of_snmpd(facts);
  Findings findings;
  const auto compare = [&](const mpls_vpn_mib_interface& row) {
    const std::string name = text_or_empty(row.name);
    const auto known = indexes.find(name);
    if (known == indexes.end() || known->second == std::to_string(row.ifConfIndex)) return;
    findings.push_back(
        {Level::kError,
         fmt::format("interface {} has ifIndex {} here and {} in snmpd: managers join the wrong rows", name,
                     row.ifConfIndex, known->second),
         "run snmpd and the daemon in one network namespace"});
  };
  const auto client = connect_to_daemon(facts.session);
  walk_rows_of<mpls_vpn_mib_interface>(facts.session, *client, kInterfaceTable, "", {compare});
  return findings;
}

}  // namespace cli::doctor

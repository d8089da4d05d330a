#include "cli/doctor/snmp_checks.h"

#include <fmt/format.h>

#include <algorithm>
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

void require_snmpd() {
  if (!runs("snmpd") && !is_installed("snmpd")) throw NotPossible("snmpd is not installed");
}

Findings check_snmpd(Facts& /*facts*/) {
  require_snmpd();
  if (runs("snmpd")) return {};
  return {{Level::kError, "no snmpd runs: no manager can read the MIB", "systemctl start snmpd"}};
}

Findings check_front_end(Facts& facts) {
  if (facts.status()->traps_subscriber != 0) return {};
  require_snmpd();
  return {{Level::kError,
           fmt::format("neither the sub-agent nor the module is connected to the daemon; {} traps wait",
                       facts.status()->traps_waiting),
           "systemctl start mpls_vpn_snmp"}};
}

Findings check_view(Facts& facts) {
  if (facts.request.snmp.empty()) {
    require_snmpd();
    return judge_configuration(facts.request.snmpd_configuration);
  }
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

#include "cli/doctor/snmp/snmp_checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "cli/diagnosis/status_facts.h"
#include "cli/doctor/facts.h"
#include "cli/doctor/names.h"
#include "cli/show/tables.h"
#include "cli/system/program.h"

namespace cli::doctor {

namespace {

using process_status::ClientStatus;

constexpr char kIfName[] = ".1.3.6.1.2.1.31.1.1.1.1";
constexpr std::chrono::seconds kPatience{20};
constexpr char kSubAgent[] = "mpls_vpn_snmp";
constexpr std::uint32_t kReconnection = 10;  // seconds, after a restart of snmpd or of the daemon
constexpr char kOneNamespace[] = "run snmpd and the daemon in one network namespace";

// Its number; empty if none runs.
std::string process_of(const std::string& program) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
    std::ifstream name(entry.path() / "comm");
    std::string text;
    if (std::getline(name, text) && text == program) return entry.path().filename();
  }
  return "";
}

bool runs(const std::string& program) {
  return !process_of(program).empty();
}

// ifIndex by ifName.
std::map<std::string, std::string> indexes_of_snmpd(Facts& facts) {
  const std::string answer = ask_snmpd(facts, "snmpwalk", kIfName);
  std::istringstream lines(answer);
  std::map<std::string, std::string> indexes;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t blank = line.find(' ');
    if (!line.starts_with(std::string(kIfName) + ".") || blank == std::string::npos) continue;
    std::string name = line.substr(blank + 1);
    std::erase(name, '"');
    indexes[name] = line.substr(line.rfind('.', blank) + 1, blank - line.rfind('.', blank) - 1);
  }
  if (!indexes.empty()) return indexes;
  if (!is_hidden(answer)) throw NotPossible("snmpd does not answer: " + last_line(answer), kAskingFix);
  throw NotPossible("this manager may not read the IF-MIB; ask as one whose view includes .1.3.6.1.2.1.31.1");
}

// Interfaces of a router file need not exist here.
Findings judge_absent(Facts& facts, const std::vector<std::string>& absent) {
  std::set<std::string> links;
  for (const kernel::LinkSeen& each : facts.links()) links.insert(each.link.name);
  std::vector<std::string> unknown, hidden;
  for (const std::string& name : absent) (links.contains(name) ? hidden : unknown).push_back(name);
  Findings findings;
  const auto add = [&findings](const std::vector<std::string>& names, const std::string& reason) {
    if (names.empty()) return;
    findings.push_back({Level::kWarning,
                        fmt::format("snmpd does not show {} of our interfaces, {}: {}", names.size(),
                                    some_of(names), reason),
                        kOneNamespace});
  };
  add(hidden, "it runs in another network namespace, or has not read them since they were added");
  add(unknown, "this network namespace does not have them");
  return findings;
}

// It connects to snmpd first, and tries that every few seconds.
Finding judge_running(Facts& facts, const std::string& process) {
  const auto& status = facts.status();
  const std::string text = fmt::format(
      "the sub-agent runs (process {}), but it is not connected to the daemon for {} s; {} traps wait",
      process, status->traps_alone_for, status->traps_waiting);
  if (!runs("snmpd")) return {Level::kError, text + "; it waits for snmpd", "systemctl start snmpd"};
  if (const Findings socket = check_agentx_socket(facts); !socket.empty())
    return {Level::kError, text + "; it cannot connect to snmpd, see agentx-socket", socket.front().fix};
  if (status->traps_alone_for < kReconnection)
    return {Level::kWarning, text, fmt::format("wait {} s and run mplsvpn doctor again", kReconnection)};
  return {Level::kError, text, "journalctl -u mpls_vpn_snmp; systemctl restart mpls_vpn_snmp"};
}

}  // namespace

bool is_hidden(const std::string& answer) {
  // "noSuchName" and "End of MIB": version 1; "authorizationError": a view that does not exist
  constexpr std::string_view kSigns[] = {"No Such Object", "No Such Instance", "No more variables",
                                         "noSuchName",     "End of MIB",       "authorizationError"};
  return std::ranges::any_of(
      kSigns, [&answer](std::string_view sign) { return answer.find(sign) != std::string::npos; });
}

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

void require_programs() {
  if (!runs("snmpd") && !is_installed("snmpd"))
    throw NotPossible("snmpd is not installed", "apt-get install snmpd");
  if (!is_installed(kSubAgent))
    throw NotPossible("the sub-agent is not installed: managers cannot read the MIB",
                      "apt install ./mplsvpn-snmp_*.deb, in the folder with the packages");
}

Findings check_snmpd(Facts& /*facts*/) {
  require_programs();
  if (runs("snmpd")) return {};
  return {{Level::kError, "no snmpd runs: no manager can read the MIB", "systemctl start snmpd"}};
}

Findings check_front_end(Facts& facts) {
  if (facts.status()->traps_subscriber != 0) return {};
  require_programs();
  const std::string sub_agent = process_of(kSubAgent);
  if (!sub_agent.empty()) return {judge_running(facts, sub_agent)};
  return {
      {Level::kError,
       fmt::format("neither the sub-agent, which does not run, nor the module is connected to the daemon; {} "
                   "traps wait",
                   facts.status()->traps_waiting),
       "systemctl start mpls_vpn_snmp"}};
}

Findings check_if_indexes(Facts& facts) {
  const std::map<std::string, std::string> indexes = indexes_of_snmpd(facts);
  Findings findings;
  std::vector<std::string> absent;
  const auto compare = [&](const mpls_vpn_mib_interface& row) {
    const std::string name = text_or_empty(row.name);
    const auto known = indexes.find(name);
    if (known == indexes.end()) return absent.push_back(name);
    if (known->second == std::to_string(row.ifConfIndex)) return;
    findings.push_back(
        {Level::kError,
         fmt::format("interface {} has ifIndex {} here and {} in snmpd: managers join the wrong rows", name,
                     row.ifConfIndex, known->second),
         kOneNamespace});
  };
  const auto client = connect_to_daemon(facts.session);
  walk_rows_of<mpls_vpn_mib_interface>(facts.session, *client, kInterfaceTable, "", {compare});
  std::ranges::move(judge_absent(facts, absent), std::back_inserter(findings));
  return findings;
}

}  // namespace cli::doctor

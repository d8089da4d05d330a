#include "cli/doctor/suite_checks.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <map>
#include <set>

#include "cli/doctor/facts.h"
#include "cli/doctor/suite_saved.h"
#include "cli/system/program.h"
#include "platform/core/text/words.h"

namespace cli::doctor {

namespace {

constexpr unsigned kFirstWithMgmtd = 10;

bool is_expected(Facts& facts) {
  try {
    return has_suite(facts.status());
  } catch (const Failure&) {
    return false;
  }
}

// The words after these in a line of the text; empty without such a line.
std::string after(std::string_view text, std::string_view beginning) {
  while (!text.empty()) {
    const std::string_view line = text::take_until(&text, '\n');
    const std::size_t at = line.find(beginning);
    if (at != std::string_view::npos) return std::string(line.substr(at + beginning.size()));
  }
  return "";
}

unsigned major_version(const Suite& suite) {
  const std::string version = after(suite.ask("show version"), "FRRouting ");
  unsigned major = 0;
  std::from_chars(version.data(), version.data() + version.size(), major);
  if (major == 0) throw NotPossible("the suite does not state its version");
  return major;
}

std::string configure(Facts& facts, const SuiteFamily& family, const std::string& line) {
  return fmt::format("{} -c 'configure terminal' -c {} -c 'address-family {}' -c '{}'", facts.suite.words(),
                     shell_word(family.instance), family.family, line);
}

std::string user_name() {
  const passwd* const user = getpwuid(geteuid());
  return user == nullptr ? std::to_string(geteuid()) : user->pw_name;
}

std::string group_of(const std::string& path) {
  struct stat found {};
  const group* const owner = stat(path.c_str(), &found) == 0 ? getgrgid(found.st_gid) : nullptr;
  return owner == nullptr ? "frrvty" : owner->gr_name;
}

bool is_closed(const std::string& path, int mode) {
  return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) != 0 && errno == EACCES;
}

// What this user may not use: the folder of the sockets, or the first of them; empty if neither. The shell
// prints the same as for programs that do not run.
std::string closed_path(const std::string& folder) {
  if (is_closed(folder, R_OK | X_OK)) return folder;
  std::error_code missing;  // then nothing runs
  for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
    if (entry.path().extension() == ".vty" && is_closed(entry.path(), W_OK)) return entry.path();
  }
  return "";
}

// A user who may not ask the daemon does not know whether it needs the suite.
Finding judge_permission(Facts& facts, const std::string& closed, const std::string& failure) {
  return {is_expected(facts) ? Level::kError : Level::kNotPossible,
          fmt::format("the user {} has no permission for {}: {}", user_name(), closed, failure),
          fmt::format("usermod -aG {} {}; then log in again", group_of(closed), user_name())};
}

// A start does nothing for programs that run.
std::string fix_of_failure(std::string_view failure) {
  return failure.find("failed to connect") == std::string_view::npos
             ? "systemctl status frr; journalctl -u frr"
             : "systemctl start frr";
}

// What runs without the program may lack its part of the configuration, and must not be saved then.
std::string restart_fix(Facts& facts, const std::string& before) {
  const std::string file = find_saved_file(facts);
  const std::string saved = file.empty() ? facts.suite.configuration_folder() + "/frr.conf" : file;
  return fmt::format(
      "{}; {}when that file has all that is needed: systemctl restart frr, which interrupts the routing and "
      "loads it",
      comparison(facts, saved), before);
}

// bgpd may be left out on purpose, unless the saved configuration is for it.
Findings judge_programs(Facts& facts) {
  if (facts.suite.runs("bgpd")) return {};
  const std::string file = find_saved_file(facts);
  if (file.empty() || !parse_suite_configuration(read_saved_file(file)).has_bgp) return {};
  return {{Level::kError,
           fmt::format("bgpd does not run although {} has \"router bgp\": no VPN routes are exchanged", file),
           restart_fix(facts, "set bgpd=yes in /etc/frr/daemons; ")}};
}

}  // namespace

// A suite that the daemon does not follow may be absent.
Findings check_suite_access(Facts& facts) {
  facts.require_kernel_source();
  try {
    return judge_programs(facts);
  } catch (const Failure& failure) {
    const std::string closed = closed_path(facts.suite.socket_folder());
    if (!closed.empty()) return {judge_permission(facts, closed, failure.what())};
    if (!is_expected(facts)) throw;
    return {{Level::kError, failure.what(), fix_of_failure(failure.what())}};
  }
}

Findings check_mgmtd(Facts& facts) {
  facts.require_kernel_source();
  const unsigned major = major_version(facts.suite);
  if (major < kFirstWithMgmtd) return {};
  if (facts.suite.runs("mgmtd")) return {};
  return {{Level::kError,
           fmt::format(
               "version {} of the suite runs without mgmtd: static routes and VRFs of its configuration are "
               "not effective",
               major),
           restart_fix(facts, "")}};
}

Findings check_vpn_labels(Facts& facts) {
  facts.require_kernel_source();
  Findings findings;
  for (const SuiteFamily& family : facts.suite_configuration().families) {
    if (!family.exports || family.has_label || family.has_segment) continue;
    findings.push_back(
        {Level::kError,
         fmt::format("VRF {} exports its {} routes without a label or segment identifier: they are announced "
                     "with label 3 (implicit null), and packets for them arrive without the label of the VRF",
                     family.vrf, family.family),
         configure(facts, family, "label vpn export auto")});
  }
  return findings;
}

Findings check_rds(Facts& facts) {
  facts.require_kernel_source();
  Findings findings;
  std::map<std::string, std::string> owners;  // by RD
  for (const SuiteFamily& family : facts.suite_configuration().families) {
    if (family.exports && family.rd.empty()) {
      findings.push_back(
          {Level::kError,
           fmt::format("VRF {} exports its {} routes without a route distinguisher: they are not "
                       "announced",
                       family.vrf, family.family),
           configure(facts, family, "rd vpn export AS:NUMBER")});
    }
    if (family.rd.empty()) continue;
    const auto [known, is_new] = owners.emplace(family.rd, family.vrf);
    if (is_new || known->second == family.vrf) continue;
    findings.push_back(
        {Level::kError,
         fmt::format("VRFs {} and {} have the route distinguisher {}: of equal prefixes other routers "
                     "have one",
                     known->second, family.vrf, family.rd),
         configure(facts, family, "rd vpn export AS:NUMBER")});
  }
  return findings;
}

}  // namespace cli::doctor

#include "cli/doctor/suite_checks.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
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
  const auto is_of_suite = [](const auto& source) {
    const std::string name = text_or_empty(source.name);
    return name != "kernel" && name != "file";
  };
  try {
    return std::ranges::any_of(sources_of(facts.status()), is_of_suite);
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

// bgpd may be left out on purpose, unless the saved configuration is for it.
Findings judge_programs(Facts& facts, const std::set<std::string>& programs) {
  if (programs.contains("bgpd")) return {};
  const std::string file = find_saved_file(facts);
  if (file.empty() || !parse_suite_configuration(read_saved_file(file)).has_bgp) return {};
  return {{Level::kError,
           fmt::format("bgpd does not run although {} has \"router bgp\": no VPN routes are exchanged", file),
           "set bgpd=yes in /etc/frr/daemons, then: systemctl restart frr"}};
}

}  // namespace

// A suite that the daemon does not follow may be absent.
Findings check_suite_access(Facts& facts) {
  facts.require_kernel_source();
  try {
    return judge_programs(facts, facts.suite.programs());
  } catch (const Failure& failure) {
    if (!is_expected(facts)) throw;
    const std::string folder = facts.suite.socket_folder();
    const bool is_closed = access(folder.c_str(), R_OK | X_OK) != 0 && errno == EACCES;
    return {
        {Level::kError,
         is_closed ? fmt::format("this user may not read {}: {}", folder, failure.what()) : failure.what(),
         is_closed ? "usermod -aG frrvty USER" : "systemctl start frr"}};
  }
}

Findings check_mgmtd(Facts& facts) {
  facts.require_kernel_source();
  const unsigned major = major_version(facts.suite);
  if (major < kFirstWithMgmtd) return {};
  if (facts.suite.programs().contains("mgmtd")) return {};
  return {{Level::kError,
           fmt::format(
               "version {} of the suite runs without mgmtd: static routes and VRFs of its configuration are "
               "not effective",
               major),
           "systemctl restart frr"}};
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

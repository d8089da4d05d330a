#include "cli/doctor/suite_checks.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "cli/doctor/facts.h"
#include "platform/core/address/address.h"
#include "platform/core/text/words.h"

namespace cli::doctor {

namespace {

constexpr unsigned kFirstWithMgmtd = 10;
constexpr std::size_t kShownRoutes = 5;

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
  return fmt::format("{} -c 'configure terminal' -c '{}' -c 'address-family {}' -c '{}'", facts.suite.words(),
                     family.instance, family.family, line);
}

bool is_saved_file(const std::string& path) {
  return access(path.c_str(), R_OK) == 0;
}

// The user's file, frr.conf, or that of bgpd alone.
std::string saved_file(Facts& facts) {
  if (!facts.request.suite_file.empty()) return facts.request.suite_file;
  const std::string folder = facts.suite.configuration_folder();
  for (const char* name : {"/frr.conf", "/bgpd.conf"}) {
    if (is_saved_file(folder + name)) return folder + name;
    if (errno == EACCES) throw NotPossible(folder + name + ": Permission denied; run mplsvpn doctor as root");
  }
  throw NotPossible("there is no saved configuration in " + folder);
}

using Exchanged = std::pair<std::string, std::set<std::string>>;  // RD and route targets

std::map<std::string, Exchanged> exchanged_of(const SuiteConfiguration& configuration) {
  std::map<std::string, Exchanged> all;
  for (const SuiteFamily& family : configuration.families) {
    if (!family.rd.empty() || !family.targets.empty())
      all[family.vrf + " " + family.family] = {family.rd, family.targets};
  }
  return all;
}

std::string read_text(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw NotPossible(fmt::format("{}: {}", path, std::strerror(errno)));
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

struct Prefix {
  inet::Family family;
  inet::Octets octets;
  unsigned length;
  auto operator<=>(const Prefix&) const = default;
};

std::set<Prefix> prefixes_of(std::uint32_t table) {
  std::set<Prefix> prefixes;
  for (const kernel::KernelRoute& route : read_routes(table))
    prefixes.insert({route.family, route.destination, route.prefix_length});
  return prefixes;
}

std::optional<Prefix> read_prefix(const std::string& text) {
  const std::optional<inet::Prefix> prefix = inet::parse_prefix(text);
  if (!prefix) return std::nullopt;
  return Prefix{prefix->address.family, prefix->address.octets, prefix->length};
}

bool is_selected(const Json& paths) {
  return std::ranges::any_of(paths, [](const Json& path) {
    return path.is_object() && path.value("selected", false) && path.value("protocol", "") != "kernel";
  });
}

// The prefixes that the suite has selected for the VRF and that are not in the kernel's table.
std::vector<std::string> missing_routes(Facts& facts, const Vrf& vrf) {
  const std::set<Prefix> present = prefixes_of(vrf.table);
  std::vector<std::string> missing;
  for (const char* command : {"show ip route vrf {} json", "show ipv6 route vrf {} json"}) {
    const Json routes = facts.suite.ask_json(fmt::format(fmt::runtime(command), vrf.name));
    if (!routes.is_object()) continue;
    for (const auto& [text, paths] : routes.items()) {
      const std::optional<Prefix> prefix = read_prefix(text);
      if (prefix && paths.is_array() && is_selected(paths) && !present.contains(*prefix))
        missing.push_back(text);
    }
  }
  return missing;
}

std::string shown(const std::vector<std::string>& prefixes) {
  std::string text;
  for (std::size_t i = 0; i < std::min(prefixes.size(), kShownRoutes); ++i)
    text += (i == 0 ? "" : ", ") + prefixes[i];
  if (prefixes.size() > kShownRoutes) text += fmt::format(" and {} more", prefixes.size() - kShownRoutes);
  return text;
}

}  // namespace

// A suite that the daemon does not follow may be absent.
Findings check_suite_access(Facts& facts) {
  facts.require_kernel_source();
  try {
    facts.suite.ask("show version");
  } catch (const Failure& failure) {
    if (!is_expected(facts)) throw;
    const std::string folder = facts.suite.socket_folder();
    const bool is_closed = access(folder.c_str(), R_OK | X_OK) != 0 && errno == EACCES;
    return {
        {Level::kError,
         is_closed ? fmt::format("this user may not read {}: {}", folder, failure.what()) : failure.what(),
         is_closed ? "usermod -aG frrvty USER" : "systemctl start frr"}};
  }
  return {};
}

Findings check_mgmtd(Facts& facts) {
  facts.require_kernel_source();
  const unsigned major = major_version(facts.suite);
  if (major < kFirstWithMgmtd) return {};
  const std::string programs = facts.suite.ask("show daemons");
  if (programs.find("mgmtd") != std::string::npos) return {};
  return {{Level::kError,
           fmt::format(
               "version {} of the suite runs without mgmtd: static routes and VRFs of its configuration are "
               "not effective",
               major),
           "systemctl restart frr"}};
}

Findings check_suite_vrfs(Facts& facts) {
  Findings findings;
  const std::vector<Vrf>& vrfs = facts.vrfs();
  for (const std::string& name : facts.suite_configuration().vrfs) {
    if (std::ranges::find(vrfs, name, &Vrf::name) != vrfs.end()) continue;
    findings.push_back(
        {Level::kError,
         fmt::format("the suite has VRF {} in its configuration, and the kernel has no such device", name),
         fmt::format("ip link add {0} type vrf table NUMBER; ip link set dev {0} up", name)});
  }
  return findings;
}

Findings check_unused_vrfs(Facts& facts) {
  Findings findings;
  const std::vector<Vrf>& vrfs = facts.vrfs();
  const auto& known = facts.suite_configuration().vrfs;
  for (const Vrf& vrf : vrfs) {
    if (known.contains(vrf.name)) continue;
    findings.push_back(
        {Level::kWarning,
         fmt::format("the suite's configuration does not name VRF {}: it is not a VPN", vrf.name),
         fmt::format("configure \"router bgp AS vrf {}\", or mplsvpn doctor --skip vrf-not-in-suite",
                     vrf.name)});
  }
  return findings;
}

Findings check_vpn_labels(Facts& facts) {
  facts.require_kernel_source();
  Findings findings;
  for (const SuiteFamily& family : facts.suite_configuration().families) {
    if (!family.exports || family.has_label) continue;
    findings.push_back(
        {Level::kError,
         fmt::format("VRF {} exports its {} routes without a label or segment identifier: they are "
                     "not announced",
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

Findings check_saved(Facts& facts) {
  facts.require_kernel_source();
  const std::map<std::string, Exchanged> running = exchanged_of(facts.suite_configuration());
  const std::string file = saved_file(facts);
  const std::map<std::string, Exchanged> saved = exchanged_of(parse_suite_configuration(read_text(file)));
  std::set<std::string> places;
  for (const auto& [place, exchanged] : running) {
    const auto found = saved.find(place);
    if (found == saved.end() || found->second != exchanged) places.insert(place);
  }
  for (const auto& [place, exchanged] : saved) {
    if (!running.contains(place)) places.insert(place);
  }
  Findings findings;
  for (const std::string& place : places) {
    findings.push_back(
        {Level::kWarning,
         fmt::format("the route distinguisher or route targets of VRF {} are others than in {}: a "
                     "restart of the suite changes them",
                     place, file),
         facts.suite.words() + " -c 'write memory'"});
  }
  return findings;
}

Findings check_suite_routes(Facts& facts) {
  Findings findings;
  for (const Vrf& vrf : facts.vrfs()) {
    const std::vector<std::string> missing = missing_routes(facts, vrf);
    if (missing.empty()) continue;
    findings.push_back({Level::kError,
                        fmt::format("VRF {}: the suite has selected routes that the kernel does not have: {}",
                                    vrf.name, shown(missing)),
                        fmt::format("{} -c 'show ip route vrf {}'", facts.suite.words(), vrf.name)});
  }
  return findings;
}

}  // namespace cli::doctor

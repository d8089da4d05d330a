#include "cli/doctor/daemon_checks.h"

#include <fmt/format.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>

#include "cli/doctor/facts.h"
#include "cli/output/times.h"
#include "cli/system/program.h"
#include "platform/core/files/directories.h"
#include "platform/core/text/words.h"
#include "platform/store/queue/queue_file.h"

namespace cli::doctor {

namespace {

using process_status::DatabaseStatus;
using process_status::RouteModuleFailure;
using process_status::SourceStatus;

constexpr char kDaemon[] = "mpls_vpn_mib";
constexpr int kExitInvalidFiles = 78;  // of --check
constexpr std::chrono::seconds kCheckPatience{20};
constexpr char kStart[] = "systemctl start mpls_vpn_mib";
constexpr char kRestartDaemon[] = "journalctl -u mpls_vpn_mib; systemctl restart mpls_vpn_mib";
constexpr char kLog[] = "journalctl -u mpls_vpn_mib";
constexpr std::uint64_t kLeastOctets = 16U << 20;
constexpr double kLeastShare = 0.05;

template <typename T>
std::span<const T> elements_of(const ParcelArray& array) {
  return {static_cast<const T*>(array.elements), static_cast<std::size_t>(array.count)};
}

// The command in a problem with permissions, which names the user and the group.
std::string fix_of_permission(std::string_view problem) {
  constexpr std::string_view kUser = "the user ";
  constexpr std::string_view kGroup = "add it to the group ";
  const std::size_t group = problem.find(kGroup);
  if (!problem.starts_with(kUser) || group == std::string_view::npos) return "";
  std::string_view name = problem.substr(kUser.size());
  std::string_view members = problem.substr(group + kGroup.size());
  return fmt::format("usermod -aG {} {} && systemctl restart mpls_vpn_mib", text::take_until(&members, ' '),
                     text::take_until(&name, ' '));
}

std::string fix_of(const std::string& source, const std::string& problem, bool is_up) {
  if (source == "file") return "correct the router file; it is loaded when it is saved";
  if (is_up || source == "kernel" || source == "frr configuration") return kLog;
  const std::string permission = fix_of_permission(problem);
  return permission.empty() ? "systemctl status frr" : permission;
}

// One that answers may state what it cannot use.
Finding finding_of(const SourceStatus& source) {
  const bool is_up = source.is_up != 0;
  const std::string name = text_or_empty(source.name);
  const std::string problem = text_or_empty(source.problem);
  const std::string since = is_up || source.last_answer == 0
                                ? ""
                                : fmt::format(" (last answer {} ago)", age_text(source.last_answer));
  return {is_up ? Level::kWarning : Level::kError, fmt::format("{}: {}{}", name, problem, since),
          fix_of(name, problem, is_up)};
}

// As a start would read them.
Ran check_files() {
  const std::string daemon = installed_program(kDaemon);
  if (daemon.empty()) throw NotPossible("the daemon's program is not installed here");
  Ran ran = run_program({daemon, "--check"}, kCheckPatience);
  if (ran.status < 0) throw NotPossible(fmt::format("{} --check: {}", daemon, ran.problem));
  return ran;
}

// With another status it may start, without the routing suite.
Finding finding_of_files(const Ran& ran, const std::string& problem) {
  const bool is_refused = ran.status == kExitInvalidFiles;
  return {Level::kError,
          (is_refused ? "the daemon would not start again: " : "mpls_vpn_mib --check fails: ") + problem,
          "correct it until \"mpls_vpn_mib --check\" accepts it; systemctl reload mpls_vpn_mib"};
}

// Empty without a daemon: a start reads the files.
std::string settings_problem(Facts& facts) {
  try {
    return text_or_empty(facts.status()->settings_problem);
  } catch (const Failure&) {
    return "";
  }
}

Finding finding_of_settings(const std::string& problem) {
  const bool needs_restart = problem.starts_with(process_status::kRestartForSettings);
  return {Level::kWarning, "the settings in effect are not those of the file: " + problem,
          needs_restart ? "systemctl restart mpls_vpn_mib" : "systemctl reload mpls_vpn_mib"};
}

// What a file that cannot be read has may still be wanted.
Finding finding_of_problem(const std::string& path, const std::string& problem) {
  if (!problem.starts_with(kvtree::kNotUsed))
    return {Level::kError, fmt::format("{} cannot be written: {}", path, problem), "df " + path};
  return {Level::kError, fmt::format("{} is not used: {}", path, problem),
          fmt::format("{} -g 'is not used'; mv {} to another folder; systemctl restart mpls_vpn_mib", kLog,
                      path)};
}

// The daemon has its databases locked while it runs.
Finding finding_of_quarantine(const std::string& path, const DatabaseStatus& database) {
  const std::string tables = text_or_empty(database.quarantine);
  std::string_view rest = tables;
  std::string shows;
  std::string drops;
  while (!rest.empty()) {
    const std::string_view table = text::take_until(&rest, ',');
    shows += fmt::format("{}SELECT * FROM {}", shows.empty() ? "" : ";", table);
    drops += fmt::format("{}DROP TABLE {}", drops.empty() ? "" : ";", table);
  }
  return {Level::kWarning,
          fmt::format("{}: {} rows could not be used and have no effect; they are stored in its tables {}",
                      path, database.quarantined, tables),
          fmt::format(
              "systemctl stop mpls_vpn_mib; sqlite3 {0} '{1}'; systemctl start mpls_vpn_mib; set again what "
              "is missing; then the same with '{2}'",
              path, shows, drops)};
}

}  // namespace

std::string state_folder(Facts& facts) {
  try {
    for (const auto& database : elements_of<DatabaseStatus>(facts.status()->databases))
      return std::filesystem::path(text_or_empty(database.path)).parent_path();
  } catch (const Failure&) {
    return state_directory();
  }
  return state_directory();
}

Findings check_daemon(Facts& facts) {
  try {
    facts.status();
  } catch (const Failure& failure) {
    if (failure.exit_status() == kExitNoRight)
      throw NotPossible(fmt::format("not permitted: {}", failure.what()), "run mplsvpn doctor as root");
    return {
        {Level::kError, failure.what(), failure.exit_status() == kExitNoAnswer ? kRestartDaemon : kStart}};
  }
  return {};
}

Findings check_version(Facts& facts) {
  const std::string version = text_or_empty(facts.status()->version);
  if (version == MPLS_VERSION) return {};
  return {{Level::kWarning,
           fmt::format("the daemon is of version {}, this command line of {}", version, MPLS_VERSION),
           "systemctl restart mpls_vpn_mib"}};
}

// The files first: with an invalid one a restart would end the service.
Findings check_settings(Facts& facts) {
  const Ran ran = check_files();
  const std::string problem = last_line(ran.output);
  const bool is_readable = geteuid() == 0 || !problem.ends_with(std::strerror(EACCES));
  if (ran.status != 0 && is_readable) return {finding_of_files(ran, problem)};
  const std::string known = settings_problem(facts);
  if (!known.empty()) return {finding_of_settings(known)};
  if (ran.status != 0) throw NotPossible(problem, "run mplsvpn doctor as root");
  return {};
}

Findings check_sources(Facts& facts) {
  Findings findings;
  for (const SourceStatus& source : sources_of(facts.status())) {
    if (source.is_up == 0 || !text_or_empty(source.problem).empty()) findings.push_back(finding_of(source));
  }
  return findings;
}

Findings check_route_modules(Facts& facts) {
  Findings findings;
  for (const auto& failure : elements_of<RouteModuleFailure>(facts.status()->route_module_failures)) {
    findings.push_back({Level::kError, "requests for routes fail: " + text_or_empty(failure.text),
                        "install the package mplsvpn again, or correct MPLS_VPN_MIB_LIB_DIR"});
  }
  return findings;
}

Findings check_metrics(Facts& facts) {
  const std::string problem = text_or_empty(facts.status()->metrics_problem);
  if (problem.empty()) return {};
  return {
      {Level::kWarning,
       fmt::format("metrics are not served at {}: {}", text_or_empty(facts.status()->metrics_place), problem),
       "correct metrics in platform.yaml; systemctl reload mpls_vpn_mib"}};
}

Findings check_databases(Facts& facts) {
  Findings findings;
  for (const auto& database : elements_of<DatabaseStatus>(facts.status()->databases)) {
    const std::string path = text_or_empty(database.path);
    if (database.quarantined != 0) findings.push_back(finding_of_quarantine(path, database));
    if (const std::string problem = text_or_empty(database.problem); !problem.empty())
      findings.push_back(finding_of_problem(path, problem));
    if (database.set_aside == 0) continue;
    findings.push_back(
        {Level::kWarning,
         fmt::format("{} could not be used {} times and was begun anew; the former files are {}"
                     ".unusable.N",
                     path, database.set_aside, path),
         fmt::format("{} -g unusable; set again what is missing; then rm -r {}.unusable.*", kLog, path)});
  }
  return findings;
}

Findings check_disk(Facts& facts) {
  const std::string folder = state_folder(facts);
  struct statvfs disk {};
  if (statvfs(folder.c_str(), &disk) != 0)
    throw NotPossible(fmt::format("{}: {}", folder, std::strerror(errno)));
  const std::uint64_t available = std::uint64_t{disk.f_bavail} * disk.f_frsize;
  const auto share =
      static_cast<double>(disk.f_bavail) / static_cast<double>(std::max<fsblkcnt_t>(disk.f_blocks, 1));
  const std::string text = fmt::format("{} has {} MiB of free disk space", folder, available >> 20);
  if (available < kLeastOctets) return {{Level::kError, text, "df " + folder}};
  if (disk.f_files != 0 && disk.f_favail == 0)
    return {{Level::kError, folder + " has no free inode", "df -i " + folder}};
  if (share < kLeastShare) return {{Level::kWarning, text, "df " + folder}};
  return {};
}

}  // namespace cli::doctor

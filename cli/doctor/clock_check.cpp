#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/timex.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "cli/doctor/daemon_checks.h"
#include "cli/doctor/facts.h"

namespace cli::doctor {

namespace {

constexpr std::time_t kFutureTolerance = 60;  // s
constexpr char kUnits[] = "/usr/lib/systemd/system/";

// Their packages exclude each other.
struct TimeService {
  const char* unit;
  const char* query;  // what it synchronizes with
};
constexpr std::array<TimeService, 4> kTimeServices = {{{"chrony", "chronyc sources"},
                                                       {"ntpsec", "ntpq -p"},
                                                       {"openntpd", "ntpctl -s all"},
                                                       {"systemd-timesyncd", "timedatectl timesync-status"}}};

std::string fix_of_clock() {
  const auto is_installed = [](const TimeService& service) {
    std::error_code ignored;  // what cannot be looked at is not offered
    return std::filesystem::exists(fmt::format("{}{}.service", kUnits, service.unit), ignored);
  };
  const auto* const found = std::ranges::find_if(kTimeServices, is_installed);
  if (found == kTimeServices.end()) return "apt-get install chrony";
  return fmt::format("systemctl enable --now {}; {}", found->unit, found->query);
}

Finding unreadable(const std::string& path, int error) {
  return {Level::kNotPossible, fmt::format("{}: {}", path, std::strerror(error)),
          error == EACCES ? "run mplsvpn doctor as root" : ""};
}

// Copies of files that could not be used have the times that they had.
bool is_set_aside(const std::filesystem::path& path) {
  return path.filename().string().find(".unusable.") != std::string::npos;
}

// A file that was changed in the future, or what may not be read. A daemon that never ran has no files.
Findings judge_files(const std::string& folder) {
  std::error_code error;
  const std::time_t latest = std::time(nullptr) + kFutureTolerance;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    struct stat found {};
    if (stat(entry.path().c_str(), &found) != 0) {
      if (errno != ENOENT) return {unreadable(entry.path(), errno)};
    } else if (found.st_mtim.tv_sec > latest && !is_set_aside(entry.path())) {
      return {
          {Level::kError,
           fmt::format("{} was changed in the future: the clock was set back, and times of VRFs are wrong",
                       entry.path().string()),
           "timedatectl"}};
    }
  }
  if (error && error != std::errc::no_such_file_or_directory) return {unreadable(folder, error.value())};
  return {};
}

}  // namespace

Findings check_clock(Facts& facts) {
  Findings findings = judge_files(state_folder(facts));
  timex state{};
  if (adjtimex(&state) == TIME_ERROR)
    findings.push_back({Level::kWarning, "the clock is not synchronized", fix_of_clock()});
  return findings;
}

}  // namespace cli::doctor

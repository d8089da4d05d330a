#include "cli/doctor/suite_saved.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "cli/doctor/facts.h"
#include "cli/system/program.h"
#include "platform/core/files/read_file.h"

namespace cli::doctor {

namespace {

constexpr std::size_t kLongestFile = 256U << 20;

using Exchanged = std::set<std::string>;           // "rd 65000:10", "import 65000:1"
using ByPlace = std::map<std::string, Exchanged>;  // by "red ipv4 unicast"

bool is_saved_file(const std::string& path) {
  if (access(path.c_str(), R_OK) == 0) return true;
  if (errno == ENOENT) return false;
  throw NotPossible(fmt::format("{}: {}; run mplsvpn doctor as root", path, std::strerror(errno)));
}

ByPlace exchanged_of(const SuiteConfiguration& configuration) {
  ByPlace all;
  for (const SuiteFamily& family : configuration.families) {
    Exchanged exchanged = family.targets;
    if (!family.rd.empty()) exchanged.insert("rd " + family.rd);
    if (!exchanged.empty()) all[family.vrf + " " + family.family] = exchanged;
  }
  return all;
}

// What `one` has and `other` lacks.
std::string rest(const Exchanged& one, const Exchanged& other) {
  Exchanged found;
  std::ranges::set_difference(one, other, std::inserter(found, found.end()));
  return fmt::format("{}", fmt::join(found, ", "));
}

// A file beside it that a user may have saved; the suite reads frr.conf alone if it exists.
std::string ignored_file(const std::string& file) {
  const std::filesystem::path path = file;
  const std::string other = path.parent_path() / "bgpd.conf";
  return path.filename() == "frr.conf" && access(other.c_str(), F_OK) == 0 ? other : "";
}

// Which of the two is right, only the operator knows: a saved running configuration replaces the other one.
Finding difference(Facts& facts, const std::string& place, const std::string& file,
                   const std::string& only_running, const std::string& only_saved) {
  std::string text = "VRF " + place + ":";
  if (!only_running.empty()) text += " only the running configuration has " + only_running;
  if (!only_running.empty() && !only_saved.empty()) text += ";";
  if (!only_saved.empty()) text += fmt::format(" only {} has {}", file, only_saved);
  text += ": a restart of the suite loads the file";
  if (const std::string ignored = ignored_file(file); !ignored.empty()) text += " and ignores " + ignored;
  return {Level::kWarning, text, comparison(facts, file)};
}

Findings compare(Facts& facts, const std::string& file, ByPlace running, ByPlace saved) {
  std::set<std::string> places;
  for (const auto* all : {&running, &saved}) {
    for (const auto& entry : *all) places.insert(entry.first);
  }
  Findings findings;
  for (const std::string& place : places) {
    const std::string only_running = rest(running[place], saved[place]);
    const std::string only_saved = rest(saved[place], running[place]);
    if (!only_running.empty() || !only_saved.empty())
      findings.push_back(difference(facts, place, file, only_running, only_saved));
  }
  return findings;
}

}  // namespace

std::string find_saved_file(Facts& facts) {
  const std::string& chosen = facts.request.suite_file;
  if (!chosen.empty()) return is_saved_file(chosen) ? chosen : "";
  const std::string folder = facts.suite.configuration_folder();
  for (const char* name : {"/frr.conf", "/bgpd.conf"}) {
    if (is_saved_file(folder + name)) return folder + name;
  }
  return "";
}

std::string read_saved_file(const std::string& path) {
  std::string text;
  std::string error;
  if (read_file(path, kLongestFile, &text, &error) != kStatusOk)
    throw NotPossible(fmt::format("{}: {}", path, error));
  return text;
}

std::string comparison(const Facts& facts, const std::string& file) {
  return fmt::format("{} -c 'show running-config' | diff {} -", facts.suite.words(), shell_word(file));
}

Findings check_saved(Facts& facts) {
  facts.require_kernel_source();
  const ByPlace running = exchanged_of(facts.suite_configuration());
  const std::string file = find_saved_file(facts);
  if (!file.empty())
    return compare(facts, file, running, exchanged_of(parse_suite_configuration(read_saved_file(file))));
  const std::string& chosen = facts.request.suite_file;
  const std::string missing = chosen.empty() ? facts.suite.configuration_folder() + "/frr.conf" : chosen;
  if (running.empty()) throw NotPossible(missing + " does not exist, and no VRF has anything to save");
  return {{Level::kWarning,
           fmt::format("{} does not exist: a restart of the suite loses the route distinguishers and route "
                       "targets of {} address families",
                       missing, running.size()),
           facts.suite.words() + " -c 'show running-config'; if it is complete, save it"}};
}

}  // namespace cli::doctor

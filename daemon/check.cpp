#include "daemon/check.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "daemon/settings.h"
#include "platform/core/files/directories.h"

namespace daemon_host {

namespace {

bool fail(const std::string& error) {
  std::fprintf(stderr, "%s\n", error.c_str());
  return false;
}

void print_settings(const Settings& settings) {
  const std::string file = config_directory() + "/platform.yaml";
  const std::string source = "source: " + std::string(settings.source->word);
  const bool exists = std::filesystem::exists(file);
  std::printf("%s: %s (%s)\n", file.c_str(), exists ? "valid" : "does not exist; the defaults apply",
              source.c_str());
}

bool check_source(const Settings& settings) {
  if (settings.source->check == nullptr) return true;
  std::string error;
  if (settings.source->check(settings, &error) != kStatusOk) return fail(error);
  for (const SourceOption& option : settings.source->options) {
    const auto set = settings.options.find(option.key);
    if (option.is_path && set != settings.options.end()) std::printf("%s: valid\n", set->second.c_str());
  }
  return true;
}

// Without "frr:", a router without the routing suite is as usual.
bool check_shell(const Settings& settings) {
  if (!settings.frr_wanted || access(settings.frr_shell.front().c_str(), X_OK) == 0) return true;
  return fail(settings.frr_shell.front() +
              ": the shell of the routing suite, which 'frr' names: " + std::strerror(errno));
}

}  // namespace

int check_settings() {
  Settings settings;
  std::string error;
  if (!read_settings(config_directory(), &settings, &error)) {
    fail(error);
    return 1;
  }
  print_settings(settings);
  const bool is_valid = check_source(settings) && check_shell(settings);
  return std::fflush(stdout) == 0 && is_valid ? 0 : 1;
}

}  // namespace daemon_host

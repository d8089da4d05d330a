#include "daemon/check.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "daemon/host.h"
#include "daemon/settings.h"
#include "platform/core/files/directories.h"

namespace daemon_host {

namespace {

// The error is the last line also for a reader of both streams.
int fail(const std::string& error, int status) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s\n", error.c_str());
  return status;
}

void print_settings(const Settings& settings) {
  const std::string file = config_directory() + "/platform.yaml";
  const std::string source = "source: " + std::string(settings.source->word);
  const bool exists = std::filesystem::exists(file);
  std::printf("%s: %s (%s)\n", file.c_str(), exists ? "valid" : "does not exist; the defaults apply",
              source.c_str());
}

int check_source(const Settings& settings) {
  if (settings.source->check == nullptr) return 0;
  std::string error;
  if (const Status status = settings.source->check(settings, &error))
    return fail(error, status == kStatusInvalid ? kNeedsOperator : 1);
  for (const SourceOption& option : settings.source->options) {
    const auto set = settings.options.find(option.key);
    if (option.is_path && set != settings.options.end()) std::printf("%s: valid\n", set->second.c_str());
  }
  return 0;
}

// Without "frr:", a router without the routing suite is as usual. A start does not fail without the shell,
// which may be installed later.
int check_shell(const Settings& settings) {
  if (!settings.frr_wanted || access(settings.frr_shell.front().c_str(), X_OK) == 0) return 0;
  return fail(settings.frr_shell.front() +
                  ": the shell of the routing suite, which 'frr' names: " + std::strerror(errno),
              1);
}

}  // namespace

int check_settings() {
  Settings settings;
  std::string error;
  if (!read_settings(config_directory(), &settings, &error)) return fail(error, kNeedsOperator);
  print_settings(settings);
  if (const int status = check_source(settings)) return status;
  if (const int status = check_shell(settings)) return status;
  return std::fflush(stdout) == 0 ? 0 : 1;
}

}  // namespace daemon_host

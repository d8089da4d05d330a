// The words and options of "mplsvpn watch".
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "cli/commands.h"

namespace cli {

struct WatchOptions {
  std::string watched;
  WatchRequest request;
};

// What may be watched.
std::vector<std::string> watched_words();

// Adds the command, which sets *command if it is the one on the command line. Both must remain live while
// `app` is.
void add_watch(CLI::App& app, WatchOptions* options, ChosenCommand* command);

}  // namespace cli

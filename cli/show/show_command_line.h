// The words and options of "mplsvpn show".
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "cli/chosen_command.h"
#include "cli/commands.h"

namespace cli {

struct ShowOptions {
  std::string vrf;
  std::vector<std::string> vrf_words;
  VrfRequest selection;  // its state, protocol and order
  bool structured = false;
  RoutesRequest routes;
  TrapsRequest traps;
};

// Adds the command, which sets *chosen if it is the one on the command line. Both must remain live while
// `app` is.
void add_show(CLI::App& app, ShowOptions* options, ChosenCommand* chosen);

}  // namespace cli

// The words and options of "mplsvpn config".
#pragma once

#include <CLI/CLI.hpp>
#include <memory>

#include "cli/commands.h"

namespace cli {

struct ConfigOptions {
  ConfigShowRequest show;
  ConfigEditRequest edit;
  std::string file;
  std::string commit;
  std::uint32_t most = 20;
};

// Adds the command, which sets *command if it is the one on the command line. Both must remain live while
// `app` is.
void add_config(CLI::App& app, ConfigOptions* options, ChosenCommand* command);

}  // namespace cli

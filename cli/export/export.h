// "mplsvpn export": VRFs for other systems.
#pragma once

#include <string>

#include "cli/session.h"

namespace CLI {
class App;
}  // namespace CLI

namespace cli {

struct ExportRequest {
  std::string format{};  // one of export_formats()
};

// Adds the command; choosing it sets *chosen. The request must live until that is called.
void add_export(CLI::App& app, ExportRequest* request, ChosenCommand* chosen);

}  // namespace cli

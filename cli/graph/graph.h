// "mplsvpn graph": which VRFs exchange routes, as a drawing.
#pragma once

#include <string>
#include <vector>

#include "cli/session.h"

namespace CLI {
class App;
}  // namespace CLI

namespace cli {

struct GraphRequest {
  std::string format{};      // one of graph_formats(); empty: the first of them
  std::string time_limit{};  // for the drawing; empty: half a minute
};

std::vector<std::string> graph_formats();

// Adds the command; choosing it sets *chosen. The request must live until that is called.
void add_graph(CLI::App& app, GraphRequest* request, ChosenCommand* chosen);

}  // namespace cli

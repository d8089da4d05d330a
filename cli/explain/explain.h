// "mplsvpn explain": why a route is in a VRF, or why it is not.
#pragma once

#include <functional>

#include "cli/explain/request.h"
#include "cli/session.h"

namespace CLI {
class App;
}  // namespace CLI

namespace cli {

// Adds the command; choosing it sets *chosen. The request must live until that is called.
void add_explain(CLI::App& app, ExplainRequest* request, std::function<void(const Session&)>* chosen);

}  // namespace cli

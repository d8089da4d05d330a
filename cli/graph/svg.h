// Draws a graph by the program dot of Graphviz.
#pragma once

#include <chrono>
#include <string>

namespace cli {

// `graph`: in the language of Graphviz. Failure(kExitFailed) if dot is not installed, reports an error or
// needs longer.
std::string draw_svg(const std::string& graph, std::chrono::milliseconds limit);

}  // namespace cli

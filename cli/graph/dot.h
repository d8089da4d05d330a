// The topology in the language of Graphviz.
#pragma once

#include <ostream>
#include <string>

#include "cli/graph/topology.h"

namespace cli {

// An edge from a VRF to a route target is an export, one to a VRF an import. With a legend.
void write_dot(const Topology& topology, std::ostream& out);

// The label that shows this text, whatever it contains, in quotes.
std::string dot_label(const std::string& text);

}  // namespace cli

#include "cli/graph/graph.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <sstream>

#include "cli/chosen_command.h"
#include "cli/graph/dot.h"
#include "cli/graph/svg.h"
#include "cli/graph/topology.h"
#include "cli/option_values.h"
#include "cli/output/json_list.h"
#include "cli/output/table.h"
#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

constexpr char kGraphFooter[] =
    "VRFs are boxes, route targets ellipses. An arrow from a VRF to a route target is an export, one to a "
    "VRF "
    "an import. A route target that connects VRFs has a thick line; one that no VRF of this router exports, "
    "or none imports, is dashed: another router may have the other side. The graph has a legend. SVG is "
    "drawn "
    "by dot of the package graphviz.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn graph --format svg > vpn.svg\n"
    "  mplsvpn graph | sfdp -Goverlap=prism -Tpng -o vpn.png\n"
    "  mplsvpn --json graph | jq -r '.routeTargets[] | select(.sides == \"onlyImported\").routeTarget'";

constexpr char kSvg[] = "svg";
constexpr double kDefaultLimit = 30;      // s
constexpr double kShortestLimit = 0.001;  // s
constexpr double kLongestLimit = 86400;   // s

std::chrono::milliseconds time_limit(const GraphRequest& request) {
  const std::optional<double> seconds =
      request.time_limit.empty() ? kDefaultLimit : text::parse_duration(request.time_limit, 1);
  if (!seconds || !(*seconds >= kShortestLimit && *seconds <= kLongestLimit))
    throw Failure(kExitUsage, "--time-limit: " + printable(request.time_limit) +
                                  " is not a time from 1ms to 24h, such as 30s or 2m");
  return std::chrono::milliseconds(static_cast<std::int64_t>(*seconds * 1000));
}

const char* text_of(Sides sides) {
  switch (sides) {
    case Sides::kOnlyImported:
      return "onlyImported";
    case Sides::kOnlyExported:
      return "onlyExported";
    case Sides::kBoth:
      break;
  }
  return "both";
}

Json names_of(const std::vector<std::size_t>& places, const Topology& topology) {
  Json names = Json::array();
  for (const std::size_t at : places) names.push_back(topology.vrfs[at].name);
  return names;
}

Json json_of(const Topology& topology) {
  Json vrfs = Json::array();
  for (const VpnInstance& vrf : topology.vrfs)
    vrfs.push_back({{"name", vrf.name}, {"rd", text_or_null(vrf.rd)}});
  Json targets = Json::array();
  for (const TargetNode& node : topology.targets)
    targets.push_back({{"routeTarget", node.target},
                       {"sides", text_of(node.sides())},
                       {"connectsVrfs", node.connects_vrfs()},
                       {"exportedBy", names_of(node.exporters, topology)},
                       {"importedBy", names_of(node.importers, topology)}});
  return {{"vrfs", vrfs}, {"routeTargets", targets}};
}

void print_svg(const Session& session, const Topology& topology, const GraphRequest& request) {
  std::ostringstream graph;
  write_dot(topology, graph);
  session.out << draw_svg(graph.str(), time_limit(request));
}

void draw(const Session& session, const GraphRequest& request) {
  if (session.json && !request.format.empty())
    throw Failure(kExitUsage, "--json prints the graph in place of --format");
  time_limit(request);  // wrong words are reported first
  const auto client = connect_to_daemon(session);
  const Topology topology = topology_of(read_vpn_instances(session, *client));
  if (session.json) {
    session.out << json_line(json_of(topology)) << '\n';
  } else if (request.format == kSvg) {
    print_svg(session, topology, request);
  } else {
    write_dot(topology, session.out);
  }
}

}  // namespace

std::vector<std::string> graph_formats() {
  return {"dot", kSvg};
}

void add_graph(CLI::App& app, GraphRequest* request, ChosenCommand* chosen) {
  CLI::App* command = app.add_subcommand("graph", "Draws which VRFs exchange routes, by their route targets");
  command
      ->add_option(
          "--format", request->format,
          "The form: " + text::alternatives(graph_formats()) + " (default " + graph_formats()[0] + ")")
      ->type_name("FORMAT")
      ->transform(one_of(graph_formats()));
  command->add_option("--time-limit", request->time_limit, "Time to draw an SVG (default 30s)")
      ->type_name("TIME");
  command->footer(kGraphFooter);
  on_choice(command, chosen, draw, request);
}

}  // namespace cli

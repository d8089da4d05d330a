#include "cli/graph/dot.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "cli/output/table.h"

namespace cli {

namespace {

constexpr char kHead[] =
    "digraph vpn {\n"
    "  rankdir=LR\n"
    "  charset=\"UTF-8\"\n"
    "  node [fontname=\"sans-serif\", fontsize=11, style=filled, fillcolor=white]\n"
    "  edge [color=gray40]\n";

constexpr char kVrfStyle[] = "shape=box, fillcolor=\"#e8eef7\"";
constexpr char kTargetStyle[] = "shape=ellipse";
constexpr char kConnectingStyle[] = "shape=ellipse, penwidth=2.5";
constexpr char kOnlyImportedStyle[] = "shape=ellipse, style=\"filled,dashed\", fillcolor=\"#ffd9a0\"";
constexpr char kOnlyExportedStyle[] = "shape=ellipse, style=\"filled,dashed\", fillcolor=\"#bfe3ff\"";

struct LegendEntry {
  const char* text;
  const char* style;
};
constexpr LegendEntry kLegend[] = {
    {"VRF, with its route distinguisher", kVrfStyle},
    {"route target of one VRF", kTargetStyle},
    {"route target that connects VRFs", kConnectingStyle},
    {"imported, exported by no VRF of this router", kOnlyImportedStyle},
    {"exported, imported by no VRF of this router", kOnlyExportedStyle},
};

const char* style_of(const TargetNode& node) {
  switch (node.sides()) {
    case Sides::kOnlyImported:
      return kOnlyImportedStyle;
    case Sides::kOnlyExported:
      return kOnlyExportedStyle;
    case Sides::kBoth:
      break;
  }
  return node.connects_vrfs() ? kConnectingStyle : kTargetStyle;
}

void write_target(std::size_t number, const TargetNode& node, std::ostream& out) {
  fmt::print(out, "  t{} [label={}, {}]\n", number, dot_label(node.target), style_of(node));
  for (const std::size_t vrf : node.exporters) fmt::print(out, "  v{} -> t{}\n", vrf, number);
  for (const std::size_t vrf : node.importers) fmt::print(out, "  t{} -> v{}\n", number, vrf);
}

void write_legend(std::ostream& out) {
  fmt::print(out, "  subgraph cluster_legend {{\n    label={}\n    fontname=\"sans-serif\"\n",
             dot_label("VRF -> route target: export; route target -> VRF: import"));
  std::size_t number = 0;
  for (const LegendEntry& entry : kLegend)
    fmt::print(out, "    l{} [label={}, {}]\n", number++, dot_label(entry.text), entry.style);
  out << "  }\n";
}

}  // namespace

// Graphviz reads \N, \n and the like in labels, and entities such as &lt;.
std::string dot_label(const std::string& text) {
  std::string label = "\"";
  for (const char octet : printable(text, Backslashes::kUnchanged)) {
    if (octet == '"' || octet == '\\') label += '\\';
    label += octet;
    if (octet == '&') label += "amp;";
  }
  return label + '"';
}

void write_dot(const Topology& topology, std::ostream& out) {
  out << kHead;
  for (std::size_t at = 0; at < topology.vrfs.size(); ++at) {
    const VpnInstance& vrf = topology.vrfs[at];
    std::string label = dot_label(vrf.name);
    if (!vrf.rd.empty()) label.insert(label.size() - 1, "\\n" + vrf.rd);
    fmt::print(out, "  v{} [label={}, {}]\n", at, label, kVrfStyle);
  }
  for (std::size_t at = 0; at < topology.targets.size(); ++at) write_target(at, topology.targets[at], out);
  write_legend(out);
  out << "}\n";
}

}  // namespace cli

#include "daemon/metrics/settings.h"

#include <net/if.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>

#include "platform/core/text/numbers.h"

namespace daemon_metrics {

namespace {

using router_file::Node;
using router_file::refuse;

void take_address(const Node& node, MetricsSettings* settings) {
  if (!http::is_address(node.scalar()))
    refuse(node.mark(), "'address' is an IP address, not '" + node.scalar() + "'");
  settings->place.address = node.scalar();
}

void take_port(const Node& node, MetricsSettings* settings) {
  const auto port = text::parse_number<std::uint16_t>(node.scalar());
  if (!port || *port == 0)
    refuse(node.mark(), "'port' is a number from 1 to 65535, not '" + node.scalar() + "'");
  settings->place.port = *port;
}

void take_vrf(const Node& node, MetricsSettings* settings) {
  const std::string& name = node.scalar();
  if (name.empty() || name.size() >= IF_NAMESIZE)
    refuse(node.mark(), "'vrf' is the name of a VRF device, 1 to 15 characters, not '" + name + "'");
  settings->place.vrf = name;
}

bool read_switch(const Node& node, std::string_view key) {
  if (node.is_scalar() && (node.scalar() == "true" || node.scalar() == "false"))
    return node.scalar() == "true";
  refuse(node.mark(), "'" + std::string(key) + "' is 'true' or 'false'");
}

void take_interfaces(const Node& node, MetricsSettings* settings) {
  settings->with_interfaces = read_switch(node, "interfaces");
}

struct MetricsKey {
  std::string_view name;
  void (*take)(const Node& node, MetricsSettings* settings);  // of a scalar
};
constexpr MetricsKey kMetricsKeys[] = {
    {"address", take_address},
    {"port", take_port},
    {"vrf", take_vrf},
    {"interfaces", take_interfaces},
};

void take_key(const Node& key, const Node& value, MetricsSettings* settings) {
  const auto* const known = key.is_scalar() ? std::ranges::find(kMetricsKeys, key.scalar(), &MetricsKey::name)
                                            : std::end(kMetricsKeys);
  if (known == std::end(kMetricsKeys))
    refuse(key.mark(), "'metrics' has no key '" + (key.is_scalar() ? key.scalar() : std::string()) + "'");
  if (!value.is_scalar()) refuse(value.mark(), "'" + key.scalar() + "' takes one word");
  known->take(value, settings);
}

}  // namespace

MetricsSettings read_metrics_settings(const Node& node) {
  MetricsSettings settings;
  settings.is_on = true;
  if (node.is_scalar()) {
    settings.is_on = read_switch(node, "metrics");
    return settings;
  }
  if (!node.is_map())
    refuse(node.mark(),
           "'metrics' is 'true', 'false', or a map of 'address', 'port', 'vrf' and 'interfaces'");
  std::set<std::string_view> seen;
  for (std::size_t at = 0; at + 1 < node.items().size(); at += 2) {
    const Node& key = *node.items()[at];
    take_key(key, *node.items()[at + 1], &settings);
    if (!seen.insert(key.scalar()).second) refuse(key.mark(), "key '" + key.scalar() + "' is set twice");
  }
  return settings;
}

}  // namespace daemon_metrics

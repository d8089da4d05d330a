#include "daemon/metrics/settings.h"

#include <net/if.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/core/text/numbers.h"
#include "sources/file/reader/yaml_reader.h"

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

void take_interfaces(const Node& node, MetricsSettings* settings) {
  settings->with_interfaces = router_file::read_switch(node, "'interfaces'");
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

void take_value(const MetricsKey& key, const Node& value, MetricsSettings* settings) {
  if (!value.is_scalar()) refuse(value.mark(), "'" + std::string(key.name) + "' takes one word");
  key.take(value, settings);
}

}  // namespace

MetricsSettings read_metrics_settings(const Node& node) {
  MetricsSettings settings;
  settings.is_on = true;
  if (node.is_scalar()) {
    settings.is_on = router_file::read_switch(node, "'metrics'");
    return settings;
  }
  if (!node.is_map())
    refuse(node.mark(),
           "'metrics' is 'true', 'false', or a map of 'address', 'port', 'vrf' and 'interfaces'");
  std::vector<std::string_view> names;
  for (const MetricsKey& key : kMetricsKeys) names.push_back(key.name);
  router_file::read_keys(node, "metrics", names, [&](std::size_t position, const Node& value) {
    take_value(kMetricsKeys[position], value, &settings);
  });
  return settings;
}

}  // namespace daemon_metrics

// `metrics:` of platform.yaml.
#pragma once

#include "platform/core/http/listening_socket.h"
#include "sources/file/reader/yaml_document.h"

namespace daemon_metrics {

inline constexpr std::uint16_t kDefaultPort = 10166;  // the MIB is mib-2 10 166

struct MetricsSettings {
  bool is_on = false;
  http::Place place{.address = "127.0.0.1", .port = kDefaultPort, .vrf = {}};
  bool with_interfaces = true;  // a series for each interface
  bool operator==(const MetricsSettings&) const = default;
};

// The settings of the key's value: 'true', 'false', or a map. Throws Misreading.
MetricsSettings read_metrics_settings(const router_file::Node& node);

}  // namespace daemon_metrics

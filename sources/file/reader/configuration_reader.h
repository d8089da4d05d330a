// Reads the configuration in a router file (a VRF's route targets, policies, thresholds and protocols, and
// `traps`) into nodes of the configuration tree. Throws Misreading for what is invalid.
//
// A VRF's keys may precede its name, so an item is read into the fields of its node, and the name is added
// later.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/config/items.h"
#include "platform/router/model/router.h"
#include "sources/file/reader/yaml_reader.h"

namespace router_file {

inline constexpr std::size_t kPolicyNameMax = 255;  // octets
inline constexpr std::size_t kProcessNameMax = 63;

struct ConfiguredItem {
  Mark mark;
  vrf_config::Kind kind;
  vrf_config::Fields fields;  // without the VRF
  // The item counts only where the VRF can have routes of this family.
  std::optional<vrf_config::Family> with_table_of{};
};
using ConfiguredItems = std::vector<ConfiguredItem>;

// The values of a VRF's keys.
void read_route_targets(const Node& value, ConfiguredItems* items);
void read_policies(const Node& value, ConfiguredItems* items);
void read_thresholds(const Node& value, ConfiguredItems* items);
void read_bgp(const Node& value, ConfiguredItems* items);
void read_ospf(const Node& value, ConfiguredItems* items);
void read_rip(const Node& value, ConfiguredItems* items);
void read_eigrp(const Node& value, ConfiguredItems* items);
void read_static_routes(const Node& value, ConfiguredItems* items);
// The value of `as_format`: how AS numbers of four octets are shown.
void read_as_format(const Node& value, std::vector<KvConfigNode>* nodes);
// The value of `traps`: switches that are on, and the reissue time.
void read_traps(const Node& value, std::vector<KvConfigNode>* nodes);

// Collects the nodes of all VRFs. An item that is written twice is an error.
class ConfigurationCollector {
 public:
  // A VRF that is only named can have routes of either family.
  void add(const router::Vrf& vrf, bool only_named, const ConfiguredItems& items);
  std::vector<KvConfigNode> take() { return std::move(nodes_); }

 private:
  void add_node(ConfiguredItem item, const std::string& vrf);

  std::vector<KvConfigNode> nodes_;
  std::map<std::string, int, std::less<>> lines_;  // by path
};

}  // namespace router_file

// The `routes` of a VRF in a router file: reads each entry, checks the entries against each other and makes
// groups of them. Throws Misreading for what is invalid.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sources/file/reader/router_file.h"
#include "sources/file/reader/yaml_reader.h"

namespace router_file {

inline constexpr std::uint32_t kGeneratedRoutesMax = 2'000'000;  // of a file
inline constexpr std::size_t kGeneratedGroupsPerTableMax = 16;
inline constexpr std::size_t kNextHopsMax = 128;  // of one route

struct RouteEntry {
  router::Address prefix;
  std::vector<std::pair<router::Address, Mark>> next_hops;
  std::string interface;
  std::optional<router::RouteType> type;
  std::optional<router::RouteProtocol> protocol;
  std::array<std::int32_t, 5> metrics{};
  std::uint32_t next_hop_as = 0;
  std::vector<std::uint32_t> labels;
  std::uint32_t count = 1;
  bool has_prefix = false;
  bool has_metrics = false;
  bool generated = false;
  Mark mark;
  Mark prefix_mark;
  Mark interface_mark;
};

// The words for types and protocols; false for any other.
[[nodiscard]] bool route_type_of(std::string_view word, router::RouteType* type);
[[nodiscard]] bool route_protocol_of(std::string_view word, router::RouteProtocol* protocol);
std::string_view route_type_word(router::RouteType type);
// "bgp"; the number for a protocol without a word.
std::string route_protocol_word(router::RouteProtocol protocol);

// The value of `routes`: a list of routes, or one generator.
void read_routes(const Node& value, std::vector<RouteEntry>* routes);
// The routes of {generate: count}.
RouteEntry generated_routes(std::uint32_t count, const Mark& mark);

// Collects the groups of all VRFs. The interfaces must outlive it.
class RouteCollector {
 public:
  explicit RouteCollector(const std::vector<router::Interface>& interfaces);
  void add(const router::Vrf& vrf, const RouteEntry& entry);
  // Checks the generated groups and returns all groups, written ones first.
  std::vector<RouteGroup> finish();

 private:
  using RowKey = std::pair<router::RouteTableId, router::RouteKey>;
  struct Generated {
    RouteGroup group;
    router::RouteAddress last;
    Mark mark;
  };

  router::Route route_of(const RouteEntry& entry) const;
  std::uint32_t index_of(const RouteEntry& entry) const;
  void add_group(const RouteGroup& group, const RouteEntry& entry, const Mark& mark);
  void add_written(const RouteGroup& group, const Mark& mark);
  void add_generated(const RouteGroup& group, const Mark& mark);
  void check_against_written(const Generated& generated) const;

  std::unordered_map<std::string_view, std::uint32_t> indexes_;
  std::vector<RouteGroup> written_;
  std::map<RowKey, int> lines_;  // of written rows
  std::map<router::RouteTableId, std::vector<Generated>> generated_;
  std::uint64_t generated_rows_ = 0;
};

}  // namespace router_file

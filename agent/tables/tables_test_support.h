// For tests of the sub-agent: a simulated daemon with lists of rows, which answers reads as the data store
// does and can fail, and names for OIDs.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/oid/oid.h"
#include "agent/rows/row_source.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/core/base/status.h"

namespace agent_test {

// (length, name, interface index): the order of the daemon's rows.
struct InterfaceKey {
  std::string vrf;
  std::uint32_t index = 0;
  friend bool operator<(const InterfaceKey& left, const InterfaceKey& right) {
    if (left.vrf.size() != right.vrf.size()) return left.vrf.size() < right.vrf.size();
    return std::tie(left.vrf, left.index) < std::tie(right.vrf, right.index);
  }
};

struct ShorterFirst {
  bool operator()(const std::string& left, const std::string& right) const {
    return left.size() != right.size() ? left.size() < right.size() : left < right;
  }
};

struct FakeVrf {
  std::string description;
  std::string rd;
  mpls_vpn_mib_vrf numbers{};  // its texts are ignored
};

// The daemon's order of routes; addresses as their octets, no next hop as zeros.
struct RouteKey {
  std::size_t name_length = 0;
  std::string vrf;
  std::uint32_t type = 1;
  std::vector<std::uint8_t> destination;
  std::uint32_t prefix_length = 0;
  std::vector<std::uint8_t> next_hop;
  auto operator<=>(const RouteKey&) const = default;
};

// "10.1.0.0/16", "::/0"; an empty next hop is none.
RouteKey route_key(const std::string& vrf, const std::string& prefix, const std::string& next_hop);

class FakeDaemon : public tables::RowSource {
 public:
  void AddInterface(const std::string& vrf, std::uint32_t index, std::uint8_t protocols = 0x40);
  void RemoveInterface(const std::string& vrf, std::uint32_t index) { interfaces_.erase({vrf, index}); }
  void AddVrf(const std::string& name, const FakeVrf& vrf = {}) { vrfs_[name] = vrf; }
  void RemoveVrf(const std::string& name);  // and its routes
  // Numbers of route targets count from 1 in each VRF.
  void AddRouteTarget(const std::string& vrf, std::int32_t type, const std::string& text,
                      const std::string& description = "");
  // Routes of this type; 3 (local) has no next hop in its row; others have one, possibly zeros.
  void AddRoute(const std::string& vrf, const std::string& prefix, const std::string& next_hop,
                std::int32_t type = 4, std::vector<std::uint8_t> cross_connect = {0});
  void RemoveRoute(const std::string& vrf, const std::string& prefix, const std::string& next_hop);
  // Records in the place of what walks would find.
  void AnswerWalksWith(std::vector<kvtree::Octets> rows, bool end);

  kvtree::GetResult get(std::string_view path) override;
  kvtree::WalkResult walk(std::string_view path, std::uint32_t max_rows) override;

  static kvtree::Octets InterfaceRecord(const std::string& vrf, std::uint32_t index, std::uint8_t protocols);
  static kvtree::Octets VrfRecord(const std::string& name, const FakeVrf& vrf);
  static kvtree::Octets RouteRecord(const RouteKey& key, std::int32_t type,
                                    std::vector<std::uint8_t> cross_connect);

  Status status = kStatusOk;               // of every read
  Status route_status = kStatusNoSuchRow;  // of exact reads of routes
  int fail_after = -1;  // reads that still succeed before `status` is kStatusIo; -1: no end
  mpls_vpn_mib_scalars scalars{4, 2, 5, 0, 30, 0};
  int reads = 0;
  std::vector<std::string> paths;

 private:
  struct FakeRouteTarget {
    std::int32_t type;
    std::string text;
    std::string description;
  };
  struct FakeRoute {
    std::int32_t type;
    std::vector<std::uint8_t> cross_connect;
  };

  bool fails();
  void WalkInterfaces(const std::vector<std::string>& key, std::uint32_t max_rows,
                      kvtree::WalkResult* result) const;
  void WalkVrfs(const std::vector<std::string>& key, std::uint32_t max_rows,
                kvtree::WalkResult* result) const;
  void WalkRouteTargets(const std::vector<std::string>& key, std::uint32_t max_rows,
                        kvtree::WalkResult* result) const;
  void WalkRoutes(const std::vector<std::string>& key, std::uint32_t max_rows,
                  kvtree::WalkResult* result) const;

  std::map<std::string, FakeVrf, ShorterFirst> vrfs_;
  std::map<std::string, std::vector<FakeRouteTarget>, ShorterFirst> route_targets_;
  std::map<RouteKey, FakeRoute> routes_;
  std::map<InterfaceKey, std::uint8_t> interfaces_;
  bool canned_ = false;
  kvtree::WalkResult canned_walk_;
};

// "1.3.6" and the like.
oid::Oid parse_oid(const std::string& text);
// A column of mplsL3VpnIfConfTable, with the instance if one is given.
oid::Oid if_conf(std::uint32_t column, const std::string& instance = "");
oid::Oid if_conf(std::uint32_t column, const std::string& vrf, std::uint32_t index);
// A column of the entry below mplsL3VpnObjects ("2.2.1" for the VRFs), with the name and what follows it.
oid::Oid cell(const std::string& entry, std::uint32_t column, const std::string& vrf,
              const std::string& rest = "");
// Scalar object `number`, with the instance if one is given.
oid::Oid scalar(std::uint32_t number, const std::string& instance = "0");

}  // namespace agent_test

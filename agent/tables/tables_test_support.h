// For tests of the sub-agent: a simulated daemon with lists of rows, which answers reads as the data store
// does and can fail, and names for OIDs.
#pragma once

#include <compare>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "agent/oid/oid.h"
#include "agent/rows/row_source.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/core/base/status.h"

namespace agent_test {

struct FakeVrf {
  std::string description;
  std::string rd;
  mpls_vpn_mib_vrf numbers{};  // its texts are ignored
};

// Addresses as their octets, no next hop as zeros.
struct RouteKey {
  std::string vrf;
  std::uint32_t type = 1;
  std::vector<std::uint8_t> destination;
  std::uint32_t prefix_length = 0;
  std::vector<std::uint8_t> next_hop;
};

// The record as the daemon sends it.
kvtree::Octets encode(const ParcelDescription& description, const void* record);

// "10.1.0.0/16", "::/0"; an empty next hop is none.
RouteKey route_key(const std::string& vrf, const std::string& prefix, const std::string& next_hop);

class FakeDaemon : public tables::RowSource {
 public:
  void AddInterface(const std::string& vrf, std::uint32_t index, std::uint8_t protocols = 0x40);
  void RemoveInterface(const std::string& vrf, std::uint32_t index);
  void AddVrf(const std::string& name, const FakeVrf& vrf = {});
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
  // Octets after the packed rows, or, if `cut` is not 0, so many octets less.
  void Spoil(std::vector<std::uint8_t> more, std::size_t cut);

  void read(const tables::BatchRequest& request, Done done) override;
  // From now on batches are answered by Deliver() only.
  void Delay() { delayed_ = true; }
  std::size_t UnderWay() const { return under_way_.size(); }
  void Deliver(std::size_t count = 1);

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
  std::vector<std::vector<std::uint8_t>> columns;  // of the reads
  std::vector<std::uint32_t> rows_asked;           // by the reads

 private:
  // The order of the rows of one kind: by the length of the name, the name, then these octets.
  struct Key {
    std::size_t name_length = 0;
    std::string name;
    std::vector<std::uint8_t> rest;
    auto operator<=>(const Key&) const = default;
  };
  using Rows = std::map<Key, kvtree::Octets>;

  static Key MakeKey(const std::string& name, std::vector<std::uint8_t> rest = {});
  static Key MakeKey(const std::string& name, std::initializer_list<std::uint32_t> numbers);
  static Key MakeKey(const RouteKey& route);
  bool fails();
  kvtree::WalkResult Find(const tables::BatchRequest& request);
  kvtree::WalkResult Walk(std::string_view path, std::uint32_t max_rows);
  void Answer(const tables::BatchRequest& request, const Done& done);
  Rows::const_iterator First(const std::string& kind, const std::vector<std::string>& key);

  std::map<std::string, Rows> rows_;                    // by the first component of the walk's path
  std::map<std::string, std::uint32_t> route_targets_;  // of each VRF
  struct DelayedRead {
    std::string path;
    std::uint32_t max_rows;
    std::vector<std::uint8_t> columns;
    Done done;
  };
  bool delayed_ = false;
  std::deque<DelayedRead> under_way_;
  std::vector<std::uint8_t> spoiled_more_;
  std::size_t spoiled_cut_ = 0;
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

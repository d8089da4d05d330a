// What tests of the sub-agent share: a daemon made of a list of interfaces, which answers reads as the data
// store does and can be made to fail, and names for OIDs.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/oid/oid.h"
#include "agent/tables/row_source.h"
#include "mpls/vpn/mib/src/mpls_vpn_parcel.h"
#include "platform/base/status.h"

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

class FakeDaemon : public tables::RowSource {
 public:
  void AddInterface(const std::string& vrf, std::uint32_t index, std::uint8_t protocols = 0x40);
  void RemoveInterface(const std::string& vrf, std::uint32_t index) { interfaces_.erase({vrf, index}); }
  // Records in the place of what walks would find.
  void AnswerWalksWith(std::vector<kvtree::Octets> rows, bool end);

  kvtree::GetResult get(std::string_view path) override;
  kvtree::WalkResult walk(std::string_view path, std::uint32_t max_rows) override;

  static kvtree::Octets InterfaceRecord(const std::string& vrf, std::uint32_t index, std::uint8_t protocols);

  Status status = kStatusOk;  // of every read
  int fail_after = -1;        // reads that still succeed before `status` is kStatusIo; -1: no end
  mpls_vpn_mib_scalars scalars{4, 2, 5, 0, 30, 0};
  int reads = 0;
  std::vector<std::string> paths;

 private:
  bool fails();

  std::map<InterfaceKey, std::uint8_t> interfaces_;
  bool canned_ = false;
  kvtree::WalkResult canned_walk_;
};

// "1.3.6" and the like.
oid::Oid parse_oid(const std::string& text);
// A column of mplsL3VpnIfConfTable, with the instance if one is given.
oid::Oid if_conf(std::uint32_t column, const std::string& instance = "");
oid::Oid if_conf(std::uint32_t column, const std::string& vrf, std::uint32_t index);
// Scalar object `number`, with the instance if one is given.
oid::Oid scalar(std::uint32_t number, const std::string& instance = "0");

}  // namespace agent_test

// Which VRFs "show vrf" lists, and in which order.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace cli {

std::vector<std::string> vrf_states();
std::vector<std::string> vrf_protocols();
std::vector<std::string> vrf_orders();

// By state, and by the protocols of the interfaces, which are read once. Throws Failure.
class VrfSelection {
 public:
  VrfSelection(const Session& session, kvtree::Client& client, const VrfRequest& request);
  bool has(const mpls_vpn_mib_vrf& row) const;

 private:
  const VrfRequest& request_;
  std::set<std::string, std::less<>> with_protocol_;
};

// Rows that wait until all are known.
class SortedVrfs {
 public:
  explicit SortedVrfs(const std::string& order);  // one of vrf_orders()
  void add(const mpls_vpn_mib_vrf& row);
  // Down before up, the most routes and interfaces and the latest change first; equal ones as they were
  // added.
  void visit(const Session& session, const std::function<void(const mpls_vpn_mib_vrf&)>& take);

 private:
  struct Row {
    std::string text;
    std::int64_t number;
    std::string octets;  // the encoded record
  };
  const std::size_t order_;
  std::vector<Row> rows_;
};

}  // namespace cli

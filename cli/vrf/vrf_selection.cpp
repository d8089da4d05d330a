#include "cli/vrf/vrf_selection.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <tuple>

#include "cli/output/names.h"
#include "cli/show/tables.h"
#include "platform/core/parcel/parcel.h"

namespace cli {

namespace {

using mib::Vrf;

struct Order {
  const char* name;
  std::string (*text)(const Vrf&);
  std::int64_t (*number)(const Vrf&);  // the least first
};

std::string no_text(const Vrf&) {
  return {};
}
std::int64_t no_number(const Vrf&) {
  return 0;
}

constexpr std::array kOrders = {
    Order{"name", [](const Vrf& row) { return text_or_empty(row.name); }, no_number},
    Order{"rd", [](const Vrf& row) { return text_or_empty(row.rd); }, no_number},
    Order{"state", no_text, [](const Vrf& row) { return -std::int64_t{row.operStatus}; }},
    Order{"interfaces", no_text, [](const Vrf& row) { return -std::int64_t{row.associatedInterfaces}; }},
    Order{"routes", no_text, [](const Vrf& row) { return -std::int64_t{row.currNumRoutes}; }},
    Order{"changed", no_text, [](const Vrf& row) { return -std::int64_t{row.confLastChanged}; }},
};

std::size_t order_of(const std::string& name) {
  const auto* found =
      std::find_if(kOrders.begin(), kOrders.end(), [&](const Order& order) { return name == order.name; });
  return static_cast<std::size_t>(found - kOrders.begin());
}

}  // namespace

std::vector<std::string> vrf_states() {
  return {"up", "down"};
}

std::vector<std::string> vrf_protocols() {
  return {"none", "bgp", "ospf", "rip", "isis", "static", "other"};
}

std::vector<std::string> vrf_orders() {
  std::vector<std::string> names;
  for (const Order& order : kOrders) names.emplace_back(order.name);
  return names;
}

VrfSelection::VrfSelection(const Session& session, kvtree::Client& client, const VrfRequest& request)
    : request_(request) {
  if (request.protocol.empty()) return;
  walk_rows_of<mib::Interface>(session, client, kInterfaceTable, request.name,
                               {[&](const mib::Interface& row) {
                                 const auto names = bit_names(mib::kProtocols, row.protocol);
                                 if (std::find(names.begin(), names.end(), request_.protocol) != names.end())
                                   with_protocol_.insert(text_or_empty(row.vrfName));
                               }});
}

bool VrfSelection::has(const mpls_vpn_mib_vrf& row) const {
  if (!request_.state.empty() && name_of(mib::kVrfStatus, row.operStatus) != request_.state) return false;
  return request_.protocol.empty() || with_protocol_.contains(text_or_empty(row.name));
}

SortedVrfs::SortedVrfs(const std::string& order) : order_(order_of(order)) {}

void SortedVrfs::add(const mpls_vpn_mib_vrf& row) {
  std::uint8_t* octets = nullptr;
  std::size_t length = 0;
  if (const Status status = parcel_encode(&kMibVrfParcel, &row, &octets, &length))
    throw Failure(kExitFailed, std::string("a VRF cannot be sorted: ") + err_text(status));
  const std::unique_ptr<std::uint8_t, decltype(&std::free)> owner(octets, &std::free);
  const Order& order = kOrders.at(order_);
  rows_.push_back({order.text(row), order.number(row), std::string(octets, octets + length)});
}

void SortedVrfs::visit(const Session& session, const std::function<void(const mpls_vpn_mib_vrf&)>& take) {
  std::stable_sort(rows_.begin(), rows_.end(), [](const Row& left, const Row& right) {
    return std::tie(left.text, left.number) < std::tie(right.text, right.number);
  });
  for (const Row& row : rows_) {
    const Record<mpls_vpn_mib_vrf> record(session, "show vrf", kMibVrfParcel,
                                          {row.octets.begin(), row.octets.end()});
    take(*record);
  }
}

}  // namespace cli

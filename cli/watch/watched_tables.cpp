#include "cli/watch/watched_table.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <optional>

#include "cli/output/address.h"
#include "cli/output/names.h"
#include "cli/output/table.h"
#include "cli/show/router_states.h"
#include "cli/show/tables.h"
#include "cli/vrf/vrf_lookup.h"
#include "cli/watch/sort_key.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"

namespace cli {

namespace {

using mib::Interface;
using mib::Route;
using mib::Vrf;

// --- VRFs -----------------------------------------------------------------------------------------

constexpr WatchedField kVrfFields[] = {
    {"vrfName", "", FieldForm::kText, FieldRole::kName},
    {"operStatusName", "state", FieldForm::kText, FieldRole::kValue},
    {"rd", "rd", FieldForm::kText, FieldRole::kValue},
    {"description", "description", FieldForm::kText, FieldRole::kValue},
    {"associatedInterfaces", "interfaces", FieldForm::kNumber, FieldRole::kValue},
    {"activeInterfaces", "active", FieldForm::kNumber, FieldRole::kValue},
    {"midThresh", "mid threshold", FieldForm::kNumber, FieldRole::kValue},
    {"highThresh", "high threshold", FieldForm::kNumber, FieldRole::kValue},
};

std::string vrf_title(const Texts& fields) {
  return printable(fields[0]);
}

bool take_vrf(const Vrf& row, const TakeRow& take) {
  const std::string name = text_or_empty(row.name);
  return take(
      SortKey().name(name).take(),
      {name, name_of(mib::kVrfStatus, row.operStatus), text_or_empty(row.rd), text_or_empty(row.description),
       std::to_string(row.associatedInterfaces), std::to_string(row.activeInterfaces),
       std::to_string(row.midThresh), std::to_string(row.highThresh)});
}

void read_vrfs(const Session& session, kvtree::Client& client, const WatchRequest& request,
               const TakeRow& take) {
  const auto take_row = [&](const Vrf& row) { return take_vrf(row, take); };
  if (request.vrf.empty())
    return RowWalk<Vrf>(session, client, kVrfTable, take_row).run(kVrfTable.first_path(""));
  const auto octets = find_vrf_row(session, client, request.vrf);
  if (!octets) return;
  const Record<Vrf> row(session, provider_path("vrf", request.vrf), kMibVrfParcel, *octets);
  take_row(*row);
}

// --- Interfaces -----------------------------------------------------------------------------------

constexpr WatchedField kInterfaceFields[] = {
    {"vrfName", "", FieldForm::kText, FieldRole::kName},
    {"name", "name", FieldForm::kText, FieldRole::kTitle},
    {"ifConfIndex", "", FieldForm::kNumber, FieldRole::kName},
    {"state", "state", FieldForm::kText, FieldRole::kValue},
    {"addresses", "addresses", FieldForm::kWords, FieldRole::kValue},
    {"protocolNames", "protocols", FieldForm::kWords, FieldRole::kValue},
    {"description", "description", FieldForm::kText, FieldRole::kValue},
};

std::string interface_title(const Texts& fields) {
  return fmt::format("{} {}", printable(fields[0]), printable(fields[1]));
}

std::string protocol_words(const Interface& row) {
  return fmt::format("{}", fmt::join(bit_names(mib::kProtocols, row.protocol), " "));
}

bool take_interface(const Interface& row, RouterStates* states, const TakeRow& take) {
  const std::string vrf = text_or_empty(row.vrfName);
  const RouterState* state = states->find(row.ifConfIndex);
  const RouterState shown = state == nullptr ? RouterState() : *state;
  return take(
      SortKey().name(vrf).number(static_cast<std::uint32_t>(row.ifConfIndex)).take(),
      {vrf, text_or_empty(row.name), std::to_string(row.ifConfIndex), state == nullptr ? "" : state->text(),
       shown.addresses, protocol_words(row), shown.description});
}

void read_interfaces(const Session& session, kvtree::Client& client, const WatchRequest& request,
                     const TakeRow& take) {
  RouterStates states(session, client, request.vrf.empty());
  const auto take_row = [&](const Interface& row) {
    const bool is_wanted = request.vrf.empty() || request.vrf == text_or_empty(row.vrfName);
    return is_wanted && take_interface(row, &states, take);
  };
  RowWalk<Interface>(session, client, kInterfaceTable, take_row).run(kInterfaceTable.first_path(request.vrf));
}

// --- Routes ---------------------------------------------------------------------------------------

constexpr WatchedField kRouteFields[] = {
    {"vrfName", "", FieldForm::kText, FieldRole::kName},
    {"prefix", "", FieldForm::kText, FieldRole::kName},
    {"nextHop", "", FieldForm::kText, FieldRole::kName},
    {"interfaceName", "interface", FieldForm::kText, FieldRole::kValue},
    {"ifIndex", "index", FieldForm::kNumber, FieldRole::kValue},
    {"protoName", "protocol", FieldForm::kText, FieldRole::kValue},
    {"typeName", "type", FieldForm::kText, FieldRole::kValue},
    {"metric1", "metric", FieldForm::kNumber, FieldRole::kValue},
    {"xcPointer", "cross-connect", FieldForm::kText, FieldRole::kValue},
};

std::string route_title(const Texts& fields) {
  const std::string prefix = fmt::format("{} {}", printable(fields[0]), fields[1]);
  return fields[2].empty() ? prefix : prefix + " via " + fields[2];
}

bool is_no_address(std::span<const std::uint8_t> address) {
  return std::all_of(address.begin(), address.end(), [](std::uint8_t octet) { return octet == 0; });
}

// A route without next hop has the smallest key of its prefix.
std::string route_key(const Route& row) {
  const auto destination = octets_of(row.dest);
  const auto hop = octets_of(row.nextHop);
  const std::vector<std::uint8_t> none(destination.size());
  return SortKey()
      .number(static_cast<std::uint32_t>(row.destType))
      .address(destination)
      .number(row.mask)
      .address(hop.empty() ? none : hop)
      .take();
}

using IndexNames = std::map<std::int32_t, std::string>;

Texts route_texts(const Route& row, const IndexNames& names) {
  const auto name = names.find(row.ifIndex);
  const auto hop = octets_of(row.nextHop);
  return {text_or_empty(row.vrfName),
          fmt::format("{}/{}", address_text(octets_of(row.dest)), row.mask),
          is_no_address(hop) ? std::string() : address_text(hop),
          name == names.end() ? std::string() : name->second,
          row.ifIndex == 0 ? std::string() : std::to_string(row.ifIndex),
          name_of(mib::kRouteProtocol, row.proto),
          name_of(mib::kRouteType, row.type),
          row.metric1 == -1 ? std::string() : std::to_string(row.metric1),
          mpls_index_text(mib::cross_connect(row).octets)};
}

IndexNames names_of_interfaces(const Session& session, kvtree::Client& client, const std::string& vrf) {
  IndexNames names;
  const auto add = [&](const Interface& row) { names[row.ifConfIndex] = text_or_empty(row.name); };
  walk_rows_of<Interface>(session, client, kInterfaceTable, vrf, {add});
  return names;
}

// Where a walk begins that finds every route inside the prefix: after all routes of the next shorter prefix
// with the same address, or with the first route of the family (a default route without next hop is only
// found by this form of its key).
std::string path_before(const std::string& vrf, const Prefix& prefix) {
  const std::uint32_t length = prefix.prefix.length;
  if (length == 0) return route_path("route-next", vrf, prefix.type(), 0, kNoAddress, kNoAddress);
  const std::string destination = hexadecimal(prefix.octets());
  return route_path("route-next", vrf, prefix.type(), length - 1, destination,
                    std::string(destination.size(), 'f'));
}

bool is_inside(const Route& row, const Prefix& prefix) {
  if (row.destType != prefix.type()) return false;
  const auto destination = octets_of(row.dest);
  inet::Octets octets{};
  if (destination.size() > octets.size()) return false;
  std::copy(destination.begin(), destination.end(), octets.begin());
  return inet::share_prefix(octets, prefix.prefix.address.octets, prefix.prefix.length);
}

void read_routes(const Session& session, kvtree::Client& client, const WatchRequest& request,
                 const TakeRow& take) {
  std::optional<Prefix> prefix;
  if (!request.prefix.empty()) prefix = parse_prefix(request.prefix);
  const IndexNames names = names_of_interfaces(session, client, request.vrf);
  const auto take_row = [&](const Route& row) {
    const bool is_wanted = request.vrf == text_or_empty(row.vrfName) && (!prefix || is_inside(row, *prefix));
    return is_wanted && take(route_key(row), route_texts(row, names));
  };
  RowWalk<Route>(session, client, kRouteTable, take_row)
      .run(prefix ? path_before(request.vrf, *prefix) : kRouteTable.first_path(request.vrf));
}

constexpr WatchedTable kWatchedTables[] = {
    {"vrf", "vrf", kVrfFields, vrf_title, read_vrfs},
    {"interfaces", "interface", kInterfaceFields, interface_title, read_interfaces},
    {"routes", "route", kRouteFields, route_title, read_routes},
};

}  // namespace

const WatchedTable* find_watched_table(std::string_view name) {
  for (const WatchedTable& table : kWatchedTables) {
    if (name == table.name) return &table;
  }
  return nullptr;
}

std::vector<std::string> watched_table_names() {
  std::vector<std::string> names;
  for (const WatchedTable& table : kWatchedTables) names.emplace_back(table.name);
  return names;
}

}  // namespace cli

#include "cli/show/tables.h"

#include <fmt/format.h>

#include "cli/commands.h"
#include "cli/output/address.h"
#include "cli/output/table.h"
#include "cli/show/interface_states.h"
#include "cli/system/program.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/core/text/words.h"
#include "platform/store/tree/kvtree.h"

namespace cli {

namespace {

std::string interface_path(const std::string& vrf, std::int32_t index) {
  return provider_path("interface-next", vrf) + "/" + std::to_string(index);
}

std::string route_target_path(const std::string& vrf, std::uint32_t index, std::int32_t type) {
  return fmt::format("{}/{}/{}", provider_path("rt-next", vrf), index, type);
}

std::string first_interface_path(const std::string& vrf) {
  return interface_path(vrf, 0);
}
std::string path_at_interface(const mpls_vpn_mib_interface& row) {
  return interface_path(text_or_empty(row.vrfName), row.ifConfIndex);
}

std::string first_vrf_path(const std::string& vrf) {
  return provider_path("vrf-next", vrf);
}
std::string path_at_vrf(const mpls_vpn_mib_vrf& row) {
  return first_vrf_path(text_or_empty(row.name));
}

std::string first_route_target_path(const std::string& vrf) {
  return route_target_path(vrf, 0, 0);
}
std::string path_at_route_target(const mpls_vpn_mib_rt& row) {
  return route_target_path(text_or_empty(row.vrfName), row.index, row.type);
}

std::string first_route_path(const std::string& vrf) {
  return route_path("route-next", vrf, kInetAddressIpv4, 0, kNoAddress, kNoAddress);
}
std::string path_at_route(const mpls_vpn_mib_route& row) {
  const std::string destination = hexadecimal(octets_of(row.dest));
  const std::string next_hop =
      row.nextHop.length == 0 ? std::string(destination.size(), '0') : hexadecimal(octets_of(row.nextHop));
  return route_path("route-next", text_or_empty(row.vrfName), row.destType, row.mask, destination, next_hop);
}

}  // namespace

const RowTable<mpls_vpn_mib_interface> kInterfaceTable = {"interface table", kMibInterfaceParcel,
                                                          first_interface_path, path_at_interface};
const RowTable<mpls_vpn_mib_vrf> kVrfTable = {"VRF table", kMibVrfParcel, first_vrf_path, path_at_vrf};
const RowTable<mpls_vpn_mib_rt> kRouteTargetTable = {"route target table", kMibRtParcel,
                                                     first_route_target_path, path_at_route_target};
const RowTable<mpls_vpn_mib_route> kRouteTable = {"route table", kMibRouteParcel, first_route_path,
                                                  path_at_route};

std::string provider_path(const std::string& first) {
  return kMplsVpnPath + first;
}
std::string provider_path(const std::string& first, const std::string& vrf) {
  return provider_path(first) + "/" + kvtree_encode_text(vrf);
}

std::string route_path(const std::string& read, const std::string& vrf, std::int32_t type,
                       std::uint32_t length, const std::string& destination, const std::string& next_hop) {
  return fmt::format("{}/{}/{}/{}/{}/{}", provider_path(read, vrf), type, length, type, destination,
                     next_hop);
}

// Rows have counts in any case. Without a module every read of a route fails, whether or not the route
// exists.
bool are_routes_counted(const Session& session, kvtree::Client& client) {
  const std::string path = route_path("route", "", kInetAddressIpv4, 0, kNoAddress, kNoAddress);
  const Status status = client.get(path).status;
  if (status == kStatusTimedOut || status == kStatusNotConnected) throw request_failure(session, status);
  return status != kStatusNoRouteModule;
}

// Of the first VRFs; the whole list may be long. The failure to be reported is that of the name.
std::string hint_of_vrf(kvtree::Client& client, const std::string& vrf) {
  const kvtree::ListResult page = client.list(provider_path("vrf-detail"), kKvMaxListItems);
  std::vector<std::string> names;
  for (const kvtree::ListItem& item : page.items) names.push_back(item.key);
  const std::string similar = text::closest(vrf, names);
  return similar.empty() ? "" : "did you mean " + printable(similar) + "?";
}

namespace {

constexpr char kOutsideOfVrfs[] = "default";

std::string hint_of_interface(const Session& session, kvtree::Client& client, const std::string& name) {
  std::string hint;
  const auto add = [&](const interface_states::InterfaceState& state) {
    const std::string vrf = text_or_empty(state.vrf);
    if (vrf == kOutsideOfVrfs) {
      hint = "it is an interface in no VRF";
      return;
    }
    hint = fmt::format("it is an interface of VRF {} (mplsvpn show interfaces {})", printable(vrf),
                       printable(shell_word(vrf), Backslashes::kUnchanged));
  };
  try {
    read_interface_state(session, client, name, add);
  } catch (const Failure&) {  // the one to be reported is that of the name
  }
  return hint;
}

std::string hint_of_words(const std::string& word, const std::vector<std::string>& words) {
  std::vector<std::string> meant = text::candidates(word, words);
  for (std::string& each : meant) each = text::quoted(each);
  return meant.empty() ? "" : fmt::format("did you mean the word {}?", text::alternatives(meant));
}

std::string hint_of_name(const Session& session, kvtree::Client& client, const std::string& name,
                         const std::vector<std::string>& words) {
  std::string hint = hint_of_interface(session, client, name);
  if (hint.empty()) hint = hint_of_words(name, words);
  if (hint.empty()) hint = hint_of_vrf(client, name);
  return hint.empty() ? hint_of_words(text::closest(name, words), words) : hint;
}

}  // namespace

void require_vrf(const Session& session, kvtree::Client& client, const std::string& vrf,
                 const std::vector<std::string>& words) {
  const std::string path = provider_path("vrf", vrf);
  const Status status = client.get(path).status;
  if (status == kStatusOk) return;
  if (status != kStatusNoSuchRow) throw request_failure(session, status);
  const std::string shown = printable(vrf);
  if (client.get(provider_path("vrf-invalid-detail", vrf)).status == kStatusOk) {
    throw Failure(kExitFailed, "VRF " + shown +
                                   " is invalid: interfaces are bound to it, but it does not exist (mplsvpn "
                                   "show vrf invalid)");
  }
  throw Failure(kExitFailed, text::continued("VRF " + shown + " does not exist",
                                             hint_of_name(session, client, vrf, words)));
}

}  // namespace cli

// Rows are in the order of destination, prefix length and next hop, so the routes of a prefix are adjacent.
// The route without next hop has the smallest key of its prefix: an exact read finds it, next reads from this
// key find the others. The daemon has no read for the longest match, so it takes one lookup for each length,
// from the longest: at most 33 for an IPv4 address and 129 for an IPv6 address.
#include "cli/show/route_lookup.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace cli {

namespace {

constexpr std::uint32_t kPathsBatch = 64;  // most prefixes have a next hop or a few
constexpr std::size_t kTypedRows = 1024;   // are read quickly enough for a user who types

bool is_of_prefix(const mpls_vpn_mib_route& row, const std::string& vrf, const Prefix& prefix) {
  const auto destination = octets_of(row.dest);
  return vrf == text_or_empty(row.vrfName) && row.destType == prefix.type() &&
         row.mask == prefix.prefix.length && std::ranges::equal(destination, prefix.octets());
}

// The smallest key of the prefix, as the path of a read.
std::string prefix_path(const std::string& read, const std::string& vrf, const Prefix& prefix) {
  const std::string destination = hexadecimal(prefix.octets());
  return route_path(read, vrf, prefix.type(), prefix.prefix.length, destination,
                    std::string(destination.size(), '0'));
}

// The route without next hop. The answer for one that does not exist may be another route.
bool find_route_without_next_hop(const Session& session, kvtree::Client& client, const std::string& vrf,
                                 const Prefix& prefix, const RouteSink& sink) {
  const std::string path = prefix_path("route", vrf, prefix);
  const kvtree::GetResult result = client.get(path);
  if (result.status == kStatusNoSuchRow) return false;
  if (result.status) throw request_failure(session, result.status);
  const Record<mpls_vpn_mib_route> row(session, path, kMibRouteParcel, result.record);
  if (!is_of_prefix(*row, vrf, prefix)) return false;
  sink.row(*row);
  return true;
}

bool find_routes_of_prefix(const Session& session, kvtree::Client& client, const std::string& vrf,
                           const Prefix& prefix, const RouteSink& sink) {
  const std::string path = prefix_path("route-next", vrf, prefix);
  const bool has_first = find_route_without_next_hop(session, client, vrf, prefix, sink);
  bool found = has_first;
  const auto wanted = [&](const mpls_vpn_mib_route& row) {
    if (!is_of_prefix(row, vrf, prefix)) return false;
    if (has_first && kRouteTable.path_at(row) == path) return true;  // the first read answers it again
    found = true;
    sink.row(row);
    return true;
  };
  RowWalk<mpls_vpn_mib_route>(session, client, kRouteTable, wanted).run(path, kPathsBatch);
  return found;
}

// The smallest IPv4 address whose text may begin so: "10.2" is 10.2.0.0. None for other texts.
std::optional<inet::Address> first_ipv4_address(std::string text) {
  if (text.empty() || text.ends_with('.')) text += '0';
  for (auto dots = std::ranges::count(text, '.'); dots < 3; ++dots) text += ".0";
  return inet::parse_address(text);
}

// The same of an IPv6 address by its complete groups: "2001:d" is 2001::.
std::optional<inet::Address> first_ipv6_address(const std::string& text) {
  if (text.find("::") != std::string::npos) return inet::parse_address(text.substr(0, text.find("::") + 2));
  const std::size_t end = text.rfind(':');
  return inet::parse_address(end == std::string::npos ? "::" : text.substr(0, end) + "::");
}

struct WantedDestinations {
  const std::string& vrf;
  const std::string& beginning;
  std::size_t most;
};

void add_destinations(const Session& session, kvtree::Client& client, const WantedDestinations& wanted,
                      const inet::Address& first, std::vector<std::string>* found) {
  const Prefix start{{first, 0}};
  std::size_t left = kTypedRows;
  const auto take = [&](const mpls_vpn_mib_route& row) {
    if (wanted.vrf != text_or_empty(row.vrfName) || row.destType != start.type()) return false;
    const std::string text = fmt::format("{}/{}", address_text(octets_of(row.dest)), row.mask);
    const bool is_known = !found->empty() && found->back() == text;
    if (text.starts_with(wanted.beginning) && !is_known) found->push_back(text);
    return --left > 0 && found->size() < wanted.most;
  };
  // The walk begins after its start, which is the key of a default route without next hop.
  find_route_without_next_hop(session, client, wanted.vrf, start, {take});
  RowWalk<mpls_vpn_mib_route>(session, client, kRouteTable, take)
      .run(prefix_path("route-next", wanted.vrf, start));
}

}  // namespace

std::vector<std::string> destinations_that_begin(const Session& session, kvtree::Client& client,
                                                 const std::string& vrf, const std::string& beginning,
                                                 std::size_t most) {
  const std::string address = beginning.substr(0, beginning.find('/'));
  std::vector<std::string> found;
  for (const auto& first : {first_ipv4_address(address), first_ipv6_address(address)}) {
    if (first) add_destinations(session, client, {vrf, beginning, most}, *first, &found);
  }
  return found;
}

bool find_routes(const Session& session, kvtree::Client& client, const std::string& vrf, const Prefix& prefix,
                 const RouteSink& sink) {
  bool found = find_routes_of_prefix(session, client, vrf, prefix, sink);
  for (std::uint32_t length = prefix.prefix.length; prefix.is_address && !found && length-- > 0;) {
    found = find_routes_of_prefix(session, client, vrf, prefix.shortened(length), sink);
  }
  if (found) sink.batch_end();
  return found;
}

}  // namespace cli

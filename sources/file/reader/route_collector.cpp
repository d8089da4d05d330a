// Checks routes against each other: a row of a table is written once, generated groups overlap neither
// written rows nor each other, and the number of generated routes is bounded.
//
// Two groups overlap when they have the same prefix length and next hop and their ranges of prefixes overlap;
// prefixes of one length are in the order of their octets.
#include <algorithm>
#include <iterator>

#include "sources/file/reader/route_reader.h"

namespace router_file {

namespace {

const char* family_name(router::Family family) {
  return family == router::Family::kIpv4 ? "IPv4" : "IPv6";
}

router::RouteTableId table_of(const router::Vrf& vrf, const RouteEntry& entry) {
  const router::Family family = entry.prefix.family;
  const std::uint32_t table = family == router::Family::kIpv4 ? vrf.ipv4_table : vrf.ipv6_table;
  if (table == 0) {
    refuse(entry.prefix_mark, "the VRF \"" + vrf.name + "\" has no " + family_name(family) + " table");
  }
  return {family, table};
}

bool same_ground(const router::RouteKey& left, const router::RouteKey& right) {
  return left.prefix_length == right.prefix_length && left.next_hop == right.next_hop;
}

std::string text_of(router::Family family, const router::RouteKey& key) {
  return router::format_address(router::Address{family, key.prefix_length, key.destination});
}

}  // namespace

bool nth_prefix(const router::RouteAddress& first, std::uint8_t prefix_length, std::uint32_t n,
                router::RouteAddress* prefix) {
  *prefix = first;
  std::uint64_t carry = n;
  const unsigned beyond = (8U - prefix_length % 8U) % 8U;  // bits of the last octet that are not the prefix's
  for (std::size_t at = (prefix_length + 7U) / 8U; at-- > 0;) {
    const bool is_last = at + 1 == (prefix_length + 7U) / 8U;
    carry = (carry << (is_last ? beyond : 0)) + (*prefix)[at];
    (*prefix)[at] = static_cast<std::uint8_t>(carry);
    carry >>= 8;
  }
  const std::size_t whole = (prefix_length + 7U) / 8U;
  const bool is_clean = (beyond == 0 || (first[whole - 1] & ((1U << beyond) - 1)) == 0) &&
                        std::all_of(first.begin() + static_cast<std::ptrdiff_t>(whole), first.end(),
                                    [](auto o) { return o == 0; });
  return carry == 0 && is_clean;
}

RouteCollector::RouteCollector(const std::vector<router::Interface>& interfaces) {
  for (const router::Interface& interface : interfaces) indexes_.emplace(interface.name, interface.index);
}

std::uint32_t RouteCollector::index_of(const RouteEntry& entry) const {
  if (entry.interface.empty()) return 0;
  const auto found = indexes_.find(entry.interface);
  if (found == indexes_.end()) {
    refuse(entry.interface_mark, "there is no interface \"" + entry.interface + "\" in this file");
  }
  return found->second;
}

router::Route RouteCollector::route_of(const RouteEntry& entry) const {
  router::Route route;
  route.key.destination = entry.prefix.octets;
  route.key.prefix_length = entry.prefix.prefix_length;
  route.interface_index = index_of(entry);
  route.type = *entry.type;
  route.protocol = *entry.protocol;
  route.metrics = entry.metrics;
  route.next_hop_as = entry.next_hop_as;
  route.labels = entry.labels;
  return route;
}

void RouteCollector::add(const router::Vrf& vrf, const RouteEntry& entry) {
  RouteGroup group{table_of(vrf, entry), route_of(entry), entry.count};
  if (entry.next_hops.empty()) add_group(group, entry, entry.prefix_mark);
  for (const auto& [next_hop, mark] : entry.next_hops) {
    group.first.key.next_hop = next_hop.octets;
    add_group(group, entry, entry.prefix_mark);
  }
}

void RouteCollector::add_group(const RouteGroup& group, const RouteEntry& entry, const Mark& mark) {
  if (!entry.generated) {
    add_written(group, mark);
  } else if (group.count > 0) {
    add_generated(group, mark);
  }
}

void RouteCollector::add_written(const RouteGroup& group, const Mark& mark) {
  const auto [row, is_new] = lines_.try_emplace({group.table, group.first.key}, mark.line);
  if (!is_new) {
    refuse(mark, "the route " + text_of(group.table.family, group.first.key) + " is written in line " +
                     std::to_string(row->second) + " already, with the same next hop");
  }
  written_.push_back(group);
}

void RouteCollector::add_generated(const RouteGroup& group, const Mark& mark) {
  Generated generated{group, {}, mark};
  const router::RouteKey& first = group.first.key;
  if (!nth_prefix(first.destination, first.prefix_length, group.count - 1, &generated.last)) {
    refuse(mark, "there are not " + std::to_string(group.count) + " prefixes from " +
                     text_of(group.table.family, first) + " on");
  }
  generated_rows_ += group.count;
  if (generated_rows_ > kGeneratedRoutesMax) {
    refuse(mark, "the file generates more than " + std::to_string(kGeneratedRoutesMax) + " routes");
  }
  std::vector<Generated>& others = generated_[group.table];
  for (const Generated& other : others) {
    if (same_ground(other.group.first.key, first) && first.destination <= other.last &&
        other.group.first.key.destination <= generated.last) {
      refuse(mark, "the routes from " + text_of(group.table.family, first) + " on are generated twice");
    }
  }
  if (others.size() == kGeneratedGroupsPerTableMax) {
    refuse(mark, "a table has at most " + std::to_string(kGeneratedGroupsPerTableMax) + " generated groups");
  }
  others.push_back(generated);
}

void RouteCollector::check_against_written(const Generated& generated) const {
  const router::RouteTableId table = generated.group.table;
  const router::RouteKey& first = generated.group.first.key;
  for (auto row = lines_.lower_bound({table, first}); row != lines_.end(); ++row) {
    const router::RouteKey& key = row->first.second;
    if (row->first.first != table || key.destination > generated.last) return;
    if (same_ground(key, first)) {
      refuse(generated.mark, "the generated route " + text_of(table.family, key) + " is written in line " +
                                 std::to_string(row->second));
    }
  }
}

std::vector<RouteGroup> RouteCollector::finish() {
  std::vector<RouteGroup> groups = std::move(written_);
  for (const auto& [table, several] : generated_) {
    for (const Generated& generated : several) {
      check_against_written(generated);
      groups.push_back(generated.group);
    }
  }
  return groups;
}

}  // namespace router_file

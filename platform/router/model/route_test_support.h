// Routes for tests, written as texts.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/router/model/router.h"

namespace router {

inline Address MakeAddress(const std::string& text) {
  Address address;
  EXPECT_TRUE(parse_address(text, &address)) << text;
  return address;
}

// "10.1.0.0/16" and "192.0.2.1"; an empty next hop is none.
inline RouteKey MakeKey(const std::string& prefix, const std::string& next_hop = "") {
  const Address destination = MakeAddress(prefix);
  RouteKey key;
  key.destination = destination.octets;
  key.prefix_length = destination.prefix_length;
  if (!next_hop.empty()) key.next_hop = MakeAddress(next_hop).octets;
  return key;
}

inline Route MakeRoute(const std::string& prefix, const std::string& next_hop = "") {
  Route route;
  route.key = MakeKey(prefix, next_hop);
  route.type = next_hop.empty() ? RouteType::kLocal : RouteType::kRemote;
  return route;
}

// "10.1.0.0/16 via 192.0.2.1", or without " via" when the next hop is all zero.
inline std::string Text(Family family, const RouteKey& key) {
  Address address{family, key.prefix_length, key.destination};
  std::string text = format_address(address);
  if (key.next_hop == RouteAddress{}) return text;
  address.octets = key.next_hop;
  const std::string hop = format_address(address);
  return text + " via " + hop.substr(0, hop.find('/'));
}

// The whole table, walked by keys.
inline std::vector<std::string> Walk(const RouteStore& store, RouteTableId table) {
  std::vector<std::string> rows;
  Route route;
  for (bool more = store.find_first(table, &route); more; more = store.find_next(table, route.key, &route)) {
    rows.push_back(Text(table.family, route.key));
  }
  return rows;
}

}  // namespace router

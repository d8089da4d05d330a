// The states of links and their IPv4 addresses as far as the kernel's routes depend on them.
//
// Main thread only.
#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstdint>

#include "sources/kernel/links/link_message.h"

namespace kernel {

class LinkStates {
 public:
  // What a message means for routes and next-hop objects over the link.
  struct Change {
    bool ipv4_down = false;
    bool ipv6_down = false;
    bool ipv4_up = false;
    bool ipv6_up = false;
    bool objects_lost = false;  // the kernel has removed the objects over it
    bool carrier = false;       // with ignore_routes_with_linkdown, paths over it may be dead or used again
    bool any() const { return ipv4_down || ipv6_down || ipv4_up || ipv6_up || objects_lost || carrier; }
  };

  Change seen(const LinkSeen& link);
  void removed(std::uint32_t index);  // with its addresses
  Change address_seen(const LinkAddress& address);
  Change address_removed(const LinkAddress& address);
  bool is_up(std::uint32_t index) const;
  // Whether a path over the link that the kernel does not use is not dead, but ignored.
  bool ignores_paths(std::uint32_t index) const;

 private:
  struct State {
    std::uint32_t flags = 0;
    std::uint32_t vrf = 0;
    bool operator==(const State&) const = default;
  };
  // An IPv4 address of a link is unique with its peer and length.
  struct OwnAddress {
    std::uint32_t index;
    std::uint32_t local, peer;
    std::uint8_t length;
    auto operator<=>(const OwnAddress&) const = default;
  };
  static OwnAddress own(const LinkAddress& address);
  bool has_any_address(std::uint32_t index) const;

  absl::btree_map<std::uint32_t, State> links_;  // a router may have a hundred thousand
  absl::btree_set<OwnAddress> addresses_;
};

}  // namespace kernel

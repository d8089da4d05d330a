// Decodes rtnetlink messages about links and addresses.
//
// Pure functions over octets: no socket, no state, every length checked. Recordings and a fuzzer run the same
// code as the live socket. Formats: linux/netlink.h, linux/rtnetlink.h, linux/if_link.h, linux/if_addr.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/netlink/message.h"

namespace kernel {

inline constexpr std::size_t kLinkNameMax = 15;  // IFNAMSIZ without the terminating NUL

struct Link {
  std::uint32_t index = 0;       // ifIndex, 1 to 2147483647
  std::string name{};            // 1 to 15 octets; empty in a mirror while it is ambiguous
  std::string alias{};           // up to 255 octets, any
  bool is_vrf = false;           // a VRF device
  std::uint32_t vrf_table = 0;   // its routing table, never 0 for a VRF device
  std::uint32_t vrf_master = 0;  // index of the VRF device that this link is a port of; 0: none
  bool up = false;               // operationally up
  bool operator==(const Link&) const = default;
};

struct LinkAddress {
  std::uint32_t index = 0;    // the link's
  router::Address address{};  // the local address
  // IFA_ADDRESS: the far end of a point-to-point address, otherwise the address itself.
  std::array<std::uint8_t, 16> peer{};
  std::uint8_t scope = 0;  // RT_SCOPE_UNIVERSE 0 ... RT_SCOPE_HOST 254
  bool secondary = false;  // IPv4 only: not the first of its subnet
  bool usable = true;      // false: duplicate, or not yet known to be unique
  bool operator==(const LinkAddress&) const = default;
  bool same_address(const LinkAddress& other) const {
    return index == other.index && address == other.address && peer == other.peer;
  }
};

// The attributes of a link that affect routes: the kernel deletes routes without an event when they change.
struct LinkFacts {
  std::uint32_t flags = 0;   // IFF_UP, IFF_RUNNING, IFF_LOWER_UP; the others are 0
  std::uint32_t master = 0;  // any kind of master
  bool operator==(const LinkFacts&) const = default;
};

struct LinkSeen {
  Link link;
  LinkFacts facts{};
};
struct LinkRemoved {
  std::uint32_t index = 0;
};
struct AddressSeen {
  LinkAddress address;
};
struct AddressRemoved {
  LinkAddress address;
};

using Event = std::variant<LinkSeen, LinkRemoved, AddressSeen, AddressRemoved>;

// Appends the message's event to *events. Adds none for messages about other objects: other types, the
// bridge's view of its ports, wireless reports. False when it is malformed.
bool parse_link_message(const nlmsghdr* message, std::vector<Event>* events);
// The same for each message of a datagram. REQUIRES: as for_each_message().
ParseReport parse_link_datagram(std::span<const std::uint8_t> datagram, std::vector<Event>* events);

}  // namespace kernel

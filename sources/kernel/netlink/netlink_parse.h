// rtnetlink datagrams as plain facts: "this link is so", "that address is gone".
//
// Pure functions over octets: no socket, no state, every length checked, so that recordings and a fuzzer go
// through the very code that the live socket uses. Formats: linux/netlink.h, linux/rtnetlink.h,
// linux/if_link.h, linux/if_addr.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/netlink/netlink_message.h"

namespace kernel {

inline constexpr std::size_t kLinkNameMax = 15;  // IFNAMSIZ without the terminating NUL

struct Link {
  std::uint32_t index = 0;       // ifIndex, 1 to 2147483647
  std::string name;              // 1 to 15 octets; empty in a mirror while it is in doubt
  std::string alias;             // up to 255 octets, any
  bool is_vrf = false;           // a VRF device
  std::uint32_t vrf_table = 0;   // its routing table, never 0 for a VRF device
  std::uint32_t vrf_master = 0;  // index of the VRF device that this link is a port of; 0: none
  bool up = false;               // operationally up
  bool operator==(const Link&) const = default;
};

struct LinkAddress {
  std::uint32_t index = 0;  // the link's
  router::Address address;  // the local address
  std::array<std::uint8_t, 16>
      peer{};              // IFA_ADDRESS: the far end of a point-to-point address, else the address itself
  std::uint8_t scope = 0;  // RT_SCOPE_UNIVERSE 0 ... RT_SCOPE_HOST 254
  bool secondary = false;  // IPv4 only: not the first of its subnet
  bool usable = true;      // false: duplicate, or not yet known to be unique
  bool operator==(const LinkAddress&) const = default;
  bool same_address(const LinkAddress& other) const {
    return index == other.index && address == other.address && peer == other.peer;
  }
};

struct LinkSeen {
  Link link;
};
struct LinkGone {
  std::uint32_t index = 0;
};
struct AddressSeen {
  LinkAddress address;
};
struct AddressGone {
  LinkAddress address;
};
struct DumpDone {};     // the last message of a dump
struct RequestFailed {  // the kernel refused a request, or ended a dump early
  int error = 0;        // errno
};

using Event = std::variant<LinkSeen, LinkGone, AddressSeen, AddressGone, DumpDone, RequestFailed>;

// Appends what the datagram says to *events, in order. Messages that are of no interest (other types, the
// bridge's view of its ports, wireless reports) are left out silently; malformed ones are counted and left
// out, and the rest of the datagram behind a broken message header is given up. REQUIRES: the octets begin at
// an address aligned to 4, as every receive buffer does.
ParseReport parse_datagram(std::span<const std::uint8_t> datagram, std::vector<Event>* events);

}  // namespace kernel

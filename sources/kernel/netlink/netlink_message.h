// What every decoder of rtnetlink messages needs: the walk over a datagram's messages, attributes of checked
// length, and the messages that end a dump.
//
// Pure functions over octets. Formats: linux/netlink.h; RFC 3549 section 2.
#pragma once

#include <libmnl/libmnl.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "platform/router/model/router.h"

namespace kernel {

// IFF_LOWER_UP; linux/if.h, which has it, cannot be included beside net/if.h.
inline constexpr std::uint32_t kFlagLowerUp = 0x10000;

struct ParseReport {
  unsigned malformed = 0;    // messages left out because they contradict their own format
  bool interrupted = false;  // NLM_F_DUMP_INTR: things changed during the dump, it may lack some
};

// Calls `read` for every message whose length is within the datagram; false from it counts as malformed. What
// lies behind a broken message header is given up. REQUIRES: the octets begin at an address aligned to 4, as
// every receive buffer does.
ParseReport for_each_message(std::span<const std::uint8_t> datagram,
                             const std::function<bool(const nlmsghdr*)>& read);

// The errno that NLMSG_DONE or NLMSG_ERROR carries, 0 for none. False when the message is too short.
bool read_dump_end(const nlmsghdr* message, int* error);
bool read_error(const nlmsghdr* message, int* error);

// False when the attribute is too short.
bool read_u32(const nlattr* attribute, std::uint32_t* value);
bool read_u8(const nlattr* attribute, std::uint8_t* value);
bool read_u16(const nlattr* attribute, std::uint16_t* value);
// False when the attribute is not exactly one address of the family. The rest of *octets stays as it is.
bool read_octets(const nlattr* attribute, router::Family family, std::array<std::uint8_t, 16>* octets);

inline std::size_t octets_of(router::Family family) {
  return family == router::Family::kIpv4 ? 4 : 16;
}

// For the callbacks of libmnl.
inline int verdict(bool good) {
  return good ? MNL_CB_OK : MNL_CB_ERROR;
}

}  // namespace kernel

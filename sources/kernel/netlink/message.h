// Reads netlink messages: the walk over a datagram's messages, the messages that control a dump, and
// attributes with their lengths checked.
//
// Pure functions over octets. Formats: linux/netlink.h; RFC 3549 section 2.
#pragma once

#include <libmnl/libmnl.h>

#include <array>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>

#include "platform/router/model/router.h"

namespace kernel {

// IFF_LOWER_UP; linux/if.h, which has it, cannot be included beside net/if.h.
inline constexpr std::uint32_t kFlagLowerUp = 0x10000;

struct ParseReport {
  unsigned malformed = 0;    // messages that were skipped because they contradict their own format
  bool interrupted = false;  // NLM_F_DUMP_INTR: objects changed during the dump, which may lack some
};

// False: the message is malformed.
using MessageReader = std::function<bool(const nlmsghdr* message)>;

// Calls `read` for every message whose length is within the datagram. Octets after a broken message header
// are skipped. REQUIRES: the octets begin at an address aligned to 4, as every receive buffer does.
ParseReport for_each_message(std::span<const std::uint8_t> datagram, const MessageReader& read);

// What a message means for the dump that it answers.
struct DumpControl {
  enum class Kind {
    kNone,       // it is part of the content, or acknowledges a request
    kDone,       // the dump is complete
    kFailed,     // the kernel refused the request or ended the dump early
    kMalformed,  // it is too short
  };
  Kind kind = Kind::kNone;
  int error = 0;  // errno, if it failed
};
// Reads NLMSG_DONE, NLMSG_ERROR and NLMSG_OVERRUN.
DumpControl read_dump_control(const nlmsghdr* message);

// In host order. False when the attribute is too short.
template <std::unsigned_integral Number>
bool read_number(const nlattr* attribute, Number* value) {
  if (mnl_attr_get_payload_len(attribute) < sizeof *value) return false;
  std::memcpy(value, mnl_attr_get_payload(attribute), sizeof *value);
  return true;
}
// False when the attribute is not exactly one address of the family. The rest of *octets is left unchanged.
bool read_octets(const nlattr* attribute, router::Family family, std::array<std::uint8_t, 16>* octets);

// For the callbacks of libmnl.
inline int verdict(bool good) {
  return good ? MNL_CB_OK : MNL_CB_ERROR;
}

}  // namespace kernel

// The walk over messages and attributes (see netlink_message.h).
//
// libmnl reads attributes up to the aligned end of a message and believes the lengths in their headers as far
// as the message goes; the lengths of messages are checked here, those of an attribute's content by the
// readers below. Any thread.
#include "sources/kernel/netlink/netlink_message.h"

#include <linux/netlink.h>

#include <cstring>

namespace kernel {
namespace {

constexpr int kErrnoEnd = 4096;  // the kernel's error numbers are below

int errno_of(std::int32_t code) {
  return code < 0 && code > -kErrnoEnd ? -code : 0;
}

}  // namespace

ParseReport for_each_message(std::span<const std::uint8_t> datagram,
                             const std::function<bool(const nlmsghdr*)>& read) {
  ParseReport report;
  std::size_t offset = 0;
  while (datagram.size() - offset >= sizeof(nlmsghdr)) {
    const void* here = datagram.data() + offset;
    const auto* message = static_cast<const nlmsghdr*>(here);
    const std::size_t rest = datagram.size() - offset;
    if (message->nlmsg_len < sizeof(nlmsghdr) || message->nlmsg_len > rest) {
      ++report.malformed;
      return report;
    }
    // libmnl reads attributes up to the aligned end of a message, so the padding has to be there too.
    // (Aligning comes after the bound: in 32 bits a length close to the largest number aligns to 0.)
    const std::size_t length = NLMSG_ALIGN(static_cast<std::size_t>(message->nlmsg_len));
    if (length > rest) {
      ++report.malformed;
      return report;
    }
    report.interrupted = report.interrupted || (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
    if (!read(message)) {
      ++report.malformed;
    }
    offset += length;
  }
  if (offset != datagram.size()) {
    ++report.malformed;
  }
  return report;
}

// The end of a dump carries an errno too when the kernel had to give it up.
bool read_dump_end(const nlmsghdr* message, int* error) {
  std::int32_t code = 0;
  if (mnl_nlmsg_get_payload_len(message) >= sizeof code) {
    std::memcpy(&code, mnl_nlmsg_get_payload(message), sizeof code);
  }
  *error = errno_of(code);
  return true;
}

bool read_error(const nlmsghdr* message, int* error) {
  if (mnl_nlmsg_get_payload_len(message) < sizeof(nlmsgerr)) {
    return false;
  }
  *error = errno_of(static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(message))->error);
  return true;
}

bool read_u32(const nlattr* attribute, std::uint32_t* value) {
  if (mnl_attr_get_payload_len(attribute) < sizeof *value) {
    return false;
  }
  *value = mnl_attr_get_u32(attribute);
  return true;
}

bool read_u16(const nlattr* attribute, std::uint16_t* value) {
  if (mnl_attr_get_payload_len(attribute) < sizeof *value) {
    return false;
  }
  *value = mnl_attr_get_u16(attribute);
  return true;
}

bool read_u8(const nlattr* attribute, std::uint8_t* value) {
  if (mnl_attr_get_payload_len(attribute) < sizeof *value) {
    return false;
  }
  *value = mnl_attr_get_u8(attribute);
  return true;
}

bool read_octets(const nlattr* attribute, router::Family family, std::array<std::uint8_t, 16>* octets) {
  if (mnl_attr_get_payload_len(attribute) != octets_of(family)) {
    return false;
  }
  std::memcpy(octets->data(), mnl_attr_get_payload(attribute), octets_of(family));
  return true;
}

}  // namespace kernel

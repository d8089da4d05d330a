// libmnl reads attributes up to the aligned end of a message and trusts the lengths in their headers within
// the message. The lengths of messages are checked here, those of an attribute's content by the readers
// below. Any thread.
#include "sources/kernel/netlink/message.h"

#include <linux/netlink.h>

#include <cerrno>
#include <cstring>

namespace kernel {
namespace {

constexpr int kErrnoEnd = 4096;  // the kernel's error numbers are below

DumpControl control_of(std::int32_t code, DumpControl::Kind without_error) {
  if (code >= 0 || code <= -kErrnoEnd) return {without_error};
  return {DumpControl::Kind::kFailed, -code};
}

// The end of a dump has an errno, too, if the kernel had to abandon it.
DumpControl read_done(const nlmsghdr* message) {
  std::int32_t code = 0;
  if (mnl_nlmsg_get_payload_len(message) >= sizeof code) {
    std::memcpy(&code, mnl_nlmsg_get_payload(message), sizeof code);
  }
  return control_of(code, DumpControl::Kind::kDone);
}

DumpControl read_error(const nlmsghdr* message) {
  if (mnl_nlmsg_get_payload_len(message) < sizeof(nlmsgerr)) return {DumpControl::Kind::kMalformed};
  const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(message));
  return control_of(error->error, DumpControl::Kind::kNone);
}

}  // namespace

ParseReport for_each_message(std::span<const std::uint8_t> datagram, const MessageReader& read) {
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
    // libmnl reads attributes up to the aligned end of a message, so the padding must be present too.
    // (Align after the bound check: in 32 bits a length close to the maximum aligns to 0.)
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

DumpControl read_dump_control(const nlmsghdr* message) {
  switch (message->nlmsg_type) {
    case NLMSG_DONE:
      return read_done(message);
    case NLMSG_ERROR:
      return read_error(message);
    case NLMSG_OVERRUN:
      return {DumpControl::Kind::kFailed, ENOBUFS};
    default:
      return {};
  }
}

bool read_octets(const nlattr* attribute, router::Family family, std::array<std::uint8_t, 16>* octets) {
  if (mnl_attr_get_payload_len(attribute) != inet::octets_of(family)) return false;
  std::memcpy(octets->data(), mnl_attr_get_payload(attribute), inet::octets_of(family));
  return true;
}

}  // namespace kernel

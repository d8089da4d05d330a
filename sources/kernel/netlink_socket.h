// A non-blocking rtnetlink socket: opens, asks for dumps, joins groups, receives one datagram a call.
//
// Only what the kernel itself sent comes through. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/base/status.h"

struct mnl_socket;

namespace kernel {

enum class Received {
  kDatagram,  // there is one
  kNothing,   // nothing is waiting
  kLost,      // the kernel dropped messages for want of room, or one did not fit (the buffer has grown since)
  kFailed,    // the socket is of no use; errno says why
};

class NetlinkSocket {
 public:
  static constexpr std::size_t kDumpBuffer = 32768;  // octets: the largest datagram of a dump
  explicit NetlinkSocket(std::size_t buffer = kDumpBuffer) : buffer_(buffer) {}
  // Fault point "netlink_open". The errno of the failing step.
  [[nodiscard]] Status open();
  void close() { socket_.reset(); }
  bool is_open() const { return socket_ != nullptr; }
  int fd() const;  // REQUIRES: open

  // RTNLGRP_... Fault point "netlink_join".
  [[nodiscard]] Status join(int group);
  // Asks for `octets` of room for what is not yet read, beyond the system's limit where the process may.
  [[nodiscard]] Status set_receive_buffer(std::size_t octets);
  // Requests all links, all addresses. Fault point "netlink_request".
  [[nodiscard]] Status request_links();
  [[nodiscard]] Status request_addresses();

  // The datagram is valid until the next call. Fault point "netlink_receive": its status becomes the errno of
  // a receive that failed, so ENOBUFS makes a loss.
  Received receive(std::span<const std::uint8_t>* datagram);

 private:
  struct Closer {
    void operator()(mnl_socket* socket) const;
  };
  Status request(std::uint16_t type, std::size_t header_size, bool without_statistics);
  Received receive_failed(int error);

  std::unique_ptr<mnl_socket, Closer> socket_;
  std::vector<std::uint8_t> buffer_;
  std::uint32_t sequence_ = 0;
};

}  // namespace kernel

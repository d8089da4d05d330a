// libmnl with ownership, and without its pitfalls.
//
// The socket is connected to the kernel, so that the kernel refuses what other processes send to our port:
// they get ECONNREFUSED. What they send to a group still arrives (it takes CAP_NET_ADMIN). recvmsg(2), unlike
// mnl_socket_recvfrom(), returns the sender, and a call receives one datagram only, so that the caller's
// bound includes foreign ones.
//
// The receive buffer starts at libmnl's dump size (32 kB, the largest datagram of a dump). A link message can
// be longer on cards with many virtual functions. Then MSG_TRUNC reports the true length, the buffer grows to
// it (at most kBufferMax), and the message counts as lost, which makes the caller read everything again.
#include "sources/kernel/netlink/socket.h"

#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "platform/core/base/fault.h"

namespace kernel {
namespace {

constexpr std::size_t kBufferMax = 1 << 20;

Status last_error() {
  return static_cast<Status>(errno);
}

bool connect_to_kernel(int fd) {
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  const void* place = &kernel;
  return connect(fd, static_cast<const sockaddr*>(place), sizeof kernel) == 0;
}

}  // namespace

void NetlinkSocket::Closer::operator()(mnl_socket* socket) const {
  mnl_socket_close(socket);
}

Status NetlinkSocket::open() {
  if (Status status = fault_check(faults_.open)) return status;
  socket_.reset(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (socket_ == nullptr) return last_error();
  if (mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0 || !connect_to_kernel(fd())) {
    const Status status = last_error();
    socket_.reset();
    return status;
  }
  return kStatusOk;
}

int NetlinkSocket::fd() const {
  return mnl_socket_get_fd(socket_.get());
}

Status NetlinkSocket::join(int group) {
  if (Status status = fault_check(faults_.join)) return status;
  const bool joined = mnl_socket_setsockopt(socket_.get(), NETLINK_ADD_MEMBERSHIP, &group, sizeof group) == 0;
  return joined ? kStatusOk : last_error();
}

Status NetlinkSocket::set_receive_buffer(std::size_t octets) {
  const int size = static_cast<int>(std::min<std::size_t>(octets, 1U << 30));
  if (setsockopt(fd(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) == 0 ||
      setsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size) == 0) {
    return kStatusOk;
  }
  return last_error();
}

// Without NETLINK_GET_STRICT_CHK the kernel ignores filters in requests.
Status NetlinkSocket::send(DumpRequest request) {
  int on = 1;
  if (request.strict && mnl_socket_setsockopt(socket_.get(), NETLINK_GET_STRICT_CHK, &on, sizeof on) != 0) {
    return last_error();
  }
  if (Status status = fault_check(faults_.request)) return status;
  nlmsghdr* message = request.message();
  message->nlmsg_seq = ++sequence_;
  return mnl_socket_sendto(socket_.get(), message, message->nlmsg_len) < 0 ? last_error() : kStatusOk;
}

Received NetlinkSocket::receive_failed(int error) {
  switch (error) {
    case EAGAIN:
    case EINTR:
      return Received::kNothing;
    case ENOBUFS:
    case ENOMEM:
      return Received::kLost;
    default:
      errno = error;
      return Received::kFailed;
  }
}

Received NetlinkSocket::receive(std::span<const std::uint8_t>* datagram) {
  if (Status status = fault_check(faults_.receive)) return receive_failed(static_cast<int>(status));
  sockaddr_nl sender{};
  iovec vector{buffer_.data(), buffer_.size()};
  msghdr header{};
  header.msg_name = &sender;
  header.msg_namelen = sizeof sender;
  header.msg_iov = &vector;
  header.msg_iovlen = 1;
  const ssize_t length = recvmsg(fd(), &header, MSG_TRUNC);
  if (length < 0) return receive_failed(errno);
  const bool from_kernel = header.msg_namelen == sizeof sender && sender.nl_pid == 0;
  if (!from_kernel) return Received::kForeign;
  const auto size = static_cast<std::size_t>(length);
  if (size > buffer_.size()) {
    buffer_.resize(std::min(std::max(size, buffer_.size()), kBufferMax));
    return Received::kLost;
  }
  *datagram = std::span<const std::uint8_t>(buffer_.data(), size);
  return Received::kDatagram;
}

}  // namespace kernel

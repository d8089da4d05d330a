// libmnl with ownership and without its pitfalls (see netlink_socket.h).
//
// Receiving is done with recvmsg(2) and not with mnl_socket_recvfrom(), which does not tell who sent a
// datagram: another process with the right to may send to our port, and a forged deletion would be believed.
//
// The receive buffer starts at libmnl's dump size (32 kB, the largest datagram that a dump makes). A link
// message can be longer still on cards with many virtual functions; MSG_TRUNC then reports the true length,
// the buffer grows to it (at most kBufferMax) and the message counts as lost, which has everything read
// again.
#include "sources/kernel/netlink/netlink_socket.h"

#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/core/base/fault.h"
#include "platform/router/model/router.h"

namespace kernel {
namespace {

constexpr std::size_t kBufferMax = 1 << 20;

// Aligned for the message that is put into it.
struct alignas(nlmsghdr) RequestBuffer : std::array<std::uint8_t, 128> {};

Status last_error() {
  return static_cast<Status>(errno);
}

}  // namespace

void NetlinkSocket::Closer::operator()(mnl_socket* socket) const {
  mnl_socket_close(socket);
}

Status NetlinkSocket::open() {
  if (Status status = fault_check(faults_.open)) return status;
  socket_.reset(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (socket_ == nullptr) {
    return last_error();
  }
  if (mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
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

Status NetlinkSocket::set_strict() {
  int on = 1;
  const bool done = mnl_socket_setsockopt(socket_.get(), NETLINK_GET_STRICT_CHK, &on, sizeof on) == 0;
  return done ? kStatusOk : last_error();
}

// Where nothing else is said the header behind the netlink header stays zero: every family.
Status NetlinkSocket::request_links() {
  RequestBuffer octets{};
  nlmsghdr* message = begin_request(RTM_GETLINK, octets);
  mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg));
  mnl_attr_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  return send(message);
}

Status NetlinkSocket::request_addresses() {
  RequestBuffer octets{};
  nlmsghdr* message = begin_request(RTM_GETADDR, octets);
  mnl_nlmsg_put_extra_header(message, sizeof(ifaddrmsg));
  return send(message);
}

Status NetlinkSocket::request_routes(router::RouteTableId table) {
  RequestBuffer octets{};
  nlmsghdr* message = begin_request(RTM_GETROUTE, octets);
  auto* header = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  header->rtm_family = table.family == router::Family::kIpv4 ? AF_INET : AF_INET6;
  mnl_attr_put_u32(message, RTA_TABLE, table.table);
  return send(message);
}

Status NetlinkSocket::request_next_hops() {
  RequestBuffer octets{};
  nlmsghdr* message = begin_request(RTM_GETNEXTHOP, octets);
  mnl_nlmsg_put_extra_header(message, sizeof(nhmsg));
  return send(message);
}

nlmsghdr* NetlinkSocket::begin_request(std::uint16_t type, std::span<std::uint8_t> octets) {
  nlmsghdr* message = mnl_nlmsg_put_header(octets.data());
  message->nlmsg_type = type;
  message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  message->nlmsg_seq = ++sequence_;
  return message;
}

Status NetlinkSocket::send(const nlmsghdr* message) {
  if (Status status = fault_check(faults_.request)) return status;
  return mnl_socket_sendto(socket_.get(), message, message->nlmsg_len) < 0 ? last_error() : kStatusOk;
}

Received NetlinkSocket::receive_failed(int error) {
  switch (error) {
    case EAGAIN:
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
  for (;;) {
    sockaddr_nl sender{};
    iovec vector{buffer_.data(), buffer_.size()};
    msghdr header{};
    header.msg_name = &sender;
    header.msg_namelen = sizeof sender;
    header.msg_iov = &vector;
    header.msg_iovlen = 1;
    const ssize_t length = recvmsg(fd(), &header, MSG_TRUNC);
    if (length < 0 && errno == EINTR) {
      continue;
    }
    if (length < 0) {
      return receive_failed(errno);
    }
    const bool from_kernel = header.msg_namelen == sizeof sender && sender.nl_pid == 0;
    if (!from_kernel) {
      continue;
    }
    const auto size = static_cast<std::size_t>(length);
    if (size > buffer_.size()) {
      buffer_.resize(std::min(std::max(size, buffer_.size()), kBufferMax));
      return Received::kLost;
    }
    *datagram = std::span<const std::uint8_t>(buffer_.data(), size);
    return Received::kDatagram;
  }
}

}  // namespace kernel

// Messages of other processes at the socket, and messages that are too large.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <span>

#include "sources/kernel/kernel_source.h"
#include "sources/kernel/live_kernel_test_support.h"
#include "sources/kernel/netlink/socket.h"

namespace kernel {
namespace {

// Another process that may send to netlink sockets (CAP_NET_ADMIN), with a forged message.
class OtherProcess {
 public:
  OtherProcess() : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) { EXPECT_GE(fd_, 0); }
  ~OtherProcess() { close(fd_); }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;
  // The errno, or 0.
  int Send(sockaddr_nl to) const {
    void* place = &to;
    const ssize_t sent =
        sendto(fd_, forged_.data(), forged_.size(), 0, static_cast<sockaddr*>(place), sizeof to);
    return sent == static_cast<ssize_t>(forged_.size()) ? 0 : errno;
  }

 private:
  const Octets forged_ = Encode(LinkMessage{.type = RTM_DELLINK, .index = 1});
  int fd_;
};

constexpr sockaddr_nl kToLinkGroup{
    .nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = RTMGRP_LINK};

// What the socket itself filters.
class LiveSocket : public LiveKernel {
 protected:
  static Received ReceiveWaiting(NetlinkSocket* socket, std::span<const std::uint8_t>* datagram) {
    Received received = socket->receive(datagram);
    for (int attempt = 0; attempt < 100000 && received == Received::kNothing; ++attempt) {
      received = socket->receive(datagram);
    }
    return received;
  }
};

TEST_F(LiveSocket, UnicastOfAnotherProcessIsRefusedAtItsSender) {
  NetlinkSocket socket;
  ASSERT_EQ(socket.open(), kStatusOk);
  sockaddr_nl address{};
  socklen_t length = sizeof address;
  void* place = &address;
  ASSERT_EQ(getsockname(socket.fd(), static_cast<sockaddr*>(place), &length), 0);
  const OtherProcess other;
  EXPECT_EQ(other.Send(address), ECONNREFUSED);
  std::span<const std::uint8_t> datagram;
  EXPECT_EQ(socket.receive(&datagram), Received::kNothing);
  ASSERT_EQ(socket.send(request_links()), kStatusOk);
  EXPECT_EQ(ReceiveWaiting(&socket, &datagram), Received::kDatagram);  // the kernel's is accepted
}

TEST_F(LiveSocket, MulticastOfAnotherProcessIsIgnored) {
  NetlinkSocket socket;
  ASSERT_EQ(socket.open(), kStatusOk);
  ASSERT_EQ(socket.join(RTNLGRP_LINK), kStatusOk);
  const OtherProcess other;
  ASSERT_EQ(other.Send(kToLinkGroup), 0);
  std::span<const std::uint8_t> datagram;
  EXPECT_EQ(socket.receive(&datagram), Received::kForeign);
  EXPECT_EQ(socket.receive(&datagram), Received::kNothing);
  Ip("link set lo down");
  EXPECT_EQ(ReceiveWaiting(&socket, &datagram), Received::kDatagram);
}

TEST_F(LiveKernel, FloodOfAnotherProcessIsReadInBoundedSteps) {
  AddVeth("v0", "v1");
  Start({.batch = 4});
  const OtherProcess other;
  for (int each = 0; each < 400; ++each) ASSERT_EQ(other.Send(kToLinkGroup), 0);
  Ip("link set v0 name v9");
  unsigned timers = 0;
  while (Find("v9") == nullptr) {
    ASSERT_LT(timers, 1000U);
    event_timer_start(manager_, 0, [&timers] { ++timers; });
    clock_.advance(kSettle);
    ASSERT_TRUE(RunOnce());
  }
  EXPECT_GE(timers, 50U);  // served between the steps
  EXPECT_EQ(source_->counters().losses, 0U);
}

TEST_F(LiveSocket, DatagramLargerThanTheBufferIsALossAndTheBufferGrows) {
  NetlinkSocket socket({}, 64);
  ASSERT_EQ(socket.open(), kStatusOk);
  ASSERT_EQ(socket.send(request_links()), kStatusOk);
  std::span<const std::uint8_t> datagram;
  EXPECT_EQ(ReceiveWaiting(&socket, &datagram), Received::kLost);
  ASSERT_EQ(ReceiveWaiting(&socket, &datagram), Received::kDatagram);  // the end of the dump
  ASSERT_EQ(socket.send(request_links()), kStatusOk);
  ASSERT_EQ(ReceiveWaiting(&socket, &datagram), Received::kDatagram);
  EXPECT_GT(datagram.size(), 64U);
}

}  // namespace
}  // namespace kernel

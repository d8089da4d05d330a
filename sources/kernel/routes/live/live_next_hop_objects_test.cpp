// Routes whose paths are next hop objects.
#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <array>
#include <nlohmann/json.hpp>

#include "platform/router/model/router_test_support.h"
#include "sources/kernel/routes/live/live_routes_test_support.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;

// With the sysctl off a route has only the object's number.
class LiveNextHopObjects : public LiveRoutes {
 protected:
  void SetUp() override {
    LiveRoutes::SetUp();
    if (IsSkipped()) return;
    ObjectsOnly();
    Batch(
        "nexthop add id 1 via 10.0.0.2 dev v0\nnexthop add id 2 via 10.1.0.2 dev w0\n"
        "nexthop add id 3 group 1/2\nnexthop add id 4 blackhole\n"
        "route add 192.168.1.0/24 nhid 1 table 10\nroute add 192.168.2.0/24 nhid 2 table 10\n"
        "route add 192.168.3.0/24 nhid 3 table 10\nroute add 192.168.4.0/24 nhid 4 table 10\n");
  }
};

TEST_F(LiveNextHopObjects, RoutesAreResolved) {
  StartWithRed();
  EXPECT_THAT(Rows(),
              ElementsAre("192.168.1.0/24 via 10.0.0.2", "192.168.2.0/24 via 10.1.0.2",
                          "192.168.3.0/24 via 10.0.0.2", "192.168.3.0/24 via 10.1.0.2", "192.168.4.0/24"));
  EXPECT_EQ(Row("192.168.4.0/24").type, router::RouteType::kBlackhole);
  EXPECT_EQ(Counters().unresolved, 0U);
}

TEST_F(LiveNextHopObjects, ObjectOfALaterRouteIsKnown) {
  StartWithRed();
  Batch("nexthop add id 9 via 10.0.0.9 dev v0\nroute add 192.168.9.0/24 nhid 9 table 10\n");
  Settle();
  EXPECT_EQ(Row("192.168.9.0/24", "10.0.0.9").interface_index, if_nametoindex("v0"));
  EXPECT_EQ(Counters().unresolved, 0U);
}

TEST_F(LiveNextHopObjects, RoutesOfADeletedObjectAreRemoved) {
  Batch("nexthop add id 5 via 10.0.0.5 dev v0\nroute add 192.168.5.0/24 nhid 5 table 10\n");
  StartWithRed();
  ASSERT_EQ(Rows().size(), 6U);
  Ip("nexthop del id 5");  // in no group, so no other event announces it
  EXPECT_EQ(SettledRows().size(), 5U);
  Ip("nexthop del id 2");
  EXPECT_THAT(SettledRows(),
              ElementsAre("192.168.1.0/24 via 10.0.0.2", "192.168.3.0/24 via 10.0.0.2", "192.168.4.0/24"));
}

TEST_F(LiveNextHopObjects, RoutesWithTheirOwnPathsNeedNoObjects) {
  ASSERT_EQ(Shell("sysctl -qw net.ipv4.nexthop_compat_mode=1"), 0);
  const ScopedFault fault("netlink_route_dump_open", EMFILE, 1, 1);  // the objects are dumped first
  StartWithRed();
  EXPECT_EQ(Rows().size(), 5U);
  EXPECT_EQ(Counters().unresolved, 0U);
}

TEST_F(LiveNextHopObjects, ManyAreComparedInSteps) {
  constexpr int kObjects = 6000;
  constexpr int kLargestStep = 64 * 40;
  std::string lines;
  for (int id = 100; id < 100 + kObjects; ++id)
    lines += "nexthop add id " + std::to_string(id) + " via 10.0.0.2 dev v0\n";
  Batch(lines);
  StartWithRed();
  const ScopedFault counted("netlink_route_dump_receive", EMFILE, 1'000'000, 1);
  clock_.advance(KernelSourceSettings{}.route_reread);
  int steps = 0;
  for (std::uint32_t before = 0; RunOnce();) {
    const std::uint32_t datagrams = fault_reached("netlink_route_dump_receive");
    if (datagrams == std::exchange(before, datagrams)) ++steps;
  }
  EXPECT_GE(steps, 2 * kObjects / kLargestStep);  // compared, then released
  EXPECT_EQ(Counters().corrections, 0U);
  Ip("nexthop replace id 1 via 10.0.0.9 dev v0");
  EXPECT_THAT(SettledRows(), ::testing::Contains("192.168.1.0/24 via 10.0.0.9"));
}

// Sends requests as a program does that gives all of them one number.
class OneNumber {
 public:
  OneNumber() : socket_(mnl_socket_open(NETLINK_ROUTE)) { mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID); }
  ~OneNumber() { mnl_socket_close(socket_); }
  OneNumber(const OneNumber&) = delete;
  OneNumber& operator=(const OneNumber&) = delete;
  void ReplaceObject(const char* gateway) {
    nlmsghdr* message = Begin(RTM_NEWNEXTHOP);
    static_cast<nhmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(nhmsg)))->nh_family = AF_INET;
    mnl_attr_put_u32(message, NHA_ID, 1);
    mnl_attr_put_u32(message, NHA_GATEWAY, inet_addr(gateway));
    mnl_attr_put_u32(message, NHA_OIF, if_nametoindex("v0"));
    Send(message);
  }
  void ReplaceRoute() {
    nlmsghdr* message = Begin(RTM_NEWROUTE);
    auto* header = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
    header->rtm_family = AF_INET;
    header->rtm_dst_len = 24;
    header->rtm_table = 10;
    header->rtm_protocol = RTPROT_STATIC;
    header->rtm_type = RTN_UNICAST;
    mnl_attr_put_u32(message, RTA_DST, inet_addr("192.168.1.0"));
    mnl_attr_put_u32(message, RTA_NH_ID, 1);
    Send(message);
  }

 private:
  nlmsghdr* Begin(std::uint16_t type) {
    nlmsghdr* message = mnl_nlmsg_put_header(buffer_.data());
    message->nlmsg_type = type;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_REPLACE;
    return message;
  }
  void Send(const nlmsghdr* message) {
    ASSERT_GT(mnl_socket_sendto(socket_, message, message->nlmsg_len), 0);
    std::array<char, 8192> answer{};
    const ssize_t length = mnl_socket_recvfrom(socket_, answer.data(), answer.size());
    ASSERT_EQ(mnl_cb_run(answer.data(), static_cast<std::size_t>(length), 0, 0, nullptr, nullptr),
              MNL_CB_STOP);
  }
  mnl_socket* socket_;
  alignas(nlmsghdr) std::array<char, 1024> buffer_{};
};

TEST_F(LiveRoutes, RouteThatBeginsToNameTheObjectOfTheRequestBeforeIsFollowed) {
  AddRoute("192.168.1.0/24 via 10.0.0.9 table 10");
  StartWithRed();
  OneNumber program;
  program.ReplaceObject("10.0.0.2");
  program.ReplaceRoute();
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
  program.ReplaceObject("10.0.0.3");
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.0.0.3"));
}

}  // namespace
}  // namespace kernel

// Decoding of route and next-hop messages: what they mean, which are ignored, which are malformed.
#include <gmock/gmock.h>

#include "sources/kernel/route_state/route_messages_test_support.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::array<std::uint8_t, 4> kDiscarding{RTN_BLACKHOLE, RTN_UNREACHABLE, RTN_PROHIBIT, RTN_THROW};

template <class What, class Message>
What One(const Message& message) {
  return OnlyEvent<What>(ParseRoutes(Encode(message)));
}
KernelRoute OneRoute(const RouteMessage& message) {
  return One<RouteSeen>(message).route;
}
NextHopObject OneObject(const ObjectMessage& message) {
  return One<NextHopSeen>(message).object;
}
RoutePath OnePath(const RouteMessage& message) {
  const KernelRoute route = OneRoute(message);
  EXPECT_EQ(route.paths.size(), 1U);
  return route.paths.empty() ? RoutePath{} : route.paths[0];
}
router::RouteAddress Octets16(const std::string& text) {
  return router::MakeAddress(text).octets;
}

void ExpectMalformed(const Octets& datagram) {
  ExpectNoEvents(ParseRoutes, datagram, 1);
}
void ExpectIgnored(const Octets& datagram) {
  ExpectNoEvents(ParseRoutes, datagram, 0);
}

TEST(KernelRoutes, PrefixTableProtocolAndPriority) {
  const KernelRoute route = OneRoute({.prefix = "10.1.2.0/23",
                                      .table = 1000,
                                      .protocol = RTPROT_BGP,
                                      .priority = 4278198272,
                                      .hop = {.interface_index = 5, .gateway = "10.0.0.2"}});
  EXPECT_EQ(route.family, router::Family::kIpv4);
  EXPECT_EQ(route.table, 1000U);
  EXPECT_EQ(route.destination, Octets16("10.1.2.0"));
  EXPECT_EQ(route.prefix_length, 23);
  EXPECT_EQ(route.protocol, RTPROT_BGP);
  EXPECT_EQ(route.type, RTN_UNICAST);
  EXPECT_EQ(route.priority, 4278198272U);
  EXPECT_FALSE(route.cached);
  ASSERT_EQ(route.paths.size(), 1U);
  EXPECT_EQ(route.paths[0].interface_index, 5U);
  EXPECT_TRUE(route.paths[0].has_gateway);
  EXPECT_EQ(route.paths[0].gateway, Octets16("10.0.0.2"));
}

TEST(KernelRoutes, TableOfTheHeaderIsTheDefault) {
  EXPECT_EQ(OneRoute({.table = {}, .short_table = 77, .hop = {.interface_index = 5}}).table, 77U);
}

TEST(KernelRoutes, GatewayOfTheOtherFamilyIsInVia) {
  const RoutePath path = OnePath({.hop = {.interface_index = 5, .via = "2001:db8::2"}});
  EXPECT_TRUE(path.has_gateway);
  EXPECT_EQ(path.gateway_family, router::Family::kIpv6);
  EXPECT_EQ(path.gateway, Octets16("2001:db8::2"));
}

TEST(KernelRoutes, DiscardingRouteHasNoPathThoughIpv6NamesTheLoopback) {
  for (const std::uint8_t type : kDiscarding) {
    const KernelRoute route =
        OneRoute({.prefix = "2001:db8::/32", .type = type, .hop = {.interface_index = 1}});
    EXPECT_EQ(route.type, type);
    EXPECT_THAT(route.paths, IsEmpty());
  }
}

TEST(KernelRoutes, MultipathRouteHasAPathForEveryHop) {
  const KernelRoute route =
      OneRoute({.hops = {{.interface_index = 5, .gateway = "10.0.0.2"},
                         {.interface_index = 6, .labels = {201}, .flags = RTNH_F_DEAD | RTNH_F_LINKDOWN}}});
  ASSERT_EQ(route.paths.size(), 2U);
  EXPECT_EQ(route.paths[0].interface_index, 5U);
  EXPECT_EQ(route.paths[0].gateway, Octets16("10.0.0.2"));
  EXPECT_FALSE(route.paths[0].dead);
  EXPECT_EQ(route.paths[1].interface_index, 6U);
  EXPECT_FALSE(route.paths[1].has_gateway);
  EXPECT_THAT(route.paths[1].labels, ElementsAre(201U));
  EXPECT_TRUE(route.paths[1].dead);
}

TEST(KernelRoutes, HopWhoseCarrierIsLostIsNotDead) {
  EXPECT_FALSE(OnePath({.hops = {{.interface_index = 5, .flags = RTNH_F_LINKDOWN}}}).dead);
}

TEST(KernelRoutes, SinglePathIsDeadByTheRoutesFlags) {
  EXPECT_TRUE(OnePath({.hop = {.interface_index = 5, .flags = RTNH_F_DEAD}}).dead);
}

TEST(KernelRoutes, LabelsOutermostFirst) {
  const HopMessage hop{.interface_index = 9, .gateway = "10.99.0.2", .labels = {1002, 16, 0xfffff}};
  EXPECT_THAT(OnePath({.hop = hop}).labels, ElementsAre(1002U, 16U, 0xfffffU));
}

TEST(KernelRoutes, LabelsAreReadInAnyOrderOfTheAttributes) {
  EXPECT_THAT(OnePath({.hop = {.interface_index = 9, .labels = {300}, .type_after = true}}).labels,
              ElementsAre(300U));
}

TEST(KernelRoutes, OtherEncapsulationsHaveNoLabels) {
  const HopMessage hop{.interface_index = 9, .labels = {300}, .encap_type = LWTUNNEL_ENCAP_SEG6};
  EXPECT_THAT(OnePath({.hop = hop}).labels, IsEmpty());
}

TEST(KernelRoutes, EncapsulationThatLeadsToAnotherRouterIsATunnel) {
  const auto is_tunnel = [](std::uint16_t type) {
    return OnePath({.hop = {.interface_index = 9, .labels = {300}, .encap_type = type}}).tunnel;
  };
  for (const std::uint16_t type :
       {LWTUNNEL_ENCAP_MPLS, LWTUNNEL_ENCAP_IP, LWTUNNEL_ENCAP_IP6, LWTUNNEL_ENCAP_SEG6})
    EXPECT_TRUE(is_tunnel(type)) << type;
  for (const std::uint16_t type : {LWTUNNEL_ENCAP_NONE, LWTUNNEL_ENCAP_BPF, LWTUNNEL_ENCAP_SEG6_LOCAL})
    EXPECT_FALSE(is_tunnel(type)) << type;
}

TEST(KernelRoutes, MplsWithoutALabelStackIsMalformed) {
  ExpectMalformed(Encode(RouteMessage{.hop = {.interface_index = 9, .encap_type = LWTUNNEL_ENCAP_MPLS}}));
}

TEST(KernelRoutes, RouteByObjectAloneHasNoPath) {
  const KernelRoute route = OneRoute({.object = 42});
  EXPECT_EQ(route.next_hop_object, 42U);
  EXPECT_THAT(route.paths, IsEmpty());
}

TEST(KernelRoutes, RouteByObjectMayHaveThePathsToo) {
  const KernelRoute route = OneRoute({.object = 42, .hop = {.interface_index = 5}});
  EXPECT_EQ(route.next_hop_object, 42U);
  EXPECT_EQ(route.paths.size(), 1U);
}

TEST(KernelRoutes, CachedExceptionIsMarked) {
  EXPECT_TRUE(OneRoute({.flags = RTM_F_CLONED, .hop = {.interface_index = 5}}).cached);
}

TEST(KernelRoutes, DeletionHasTheWholeRoute) {
  const RouteMessage message{
      .message_type = RTM_DELROUTE, .priority = 20, .hop = {.interface_index = 5, .gateway = "10.0.0.2"}};
  RouteMessage added = message;
  added.message_type = RTM_NEWROUTE;
  EXPECT_EQ(One<RouteRemoved>(message).route, OneRoute(added));
}

TEST(KernelRoutes, AnnouncementSaysWhetherItReplaces) {
  EXPECT_EQ(One<RouteSeen>(RouteMessage{.announcement = NLM_F_REPLACE}).flags & NLM_F_REPLACE, NLM_F_REPLACE);
  EXPECT_EQ(One<RouteSeen>(RouteMessage{}).flags & NLM_F_REPLACE, 0);
}

TEST(KernelRoutes, Ipv4RoutesDifferByWhatIsNotDecoded) {
  EXPECT_NE(OneRoute({.scope = RT_SCOPE_LINK}), OneRoute({.scope = RT_SCOPE_UNIVERSE}));
  EXPECT_EQ(OneRoute({.prefix = "2001:db8::/32", .scope = RT_SCOPE_LINK}),
            OneRoute({.prefix = "2001:db8::/32", .scope = RT_SCOPE_UNIVERSE}));
}

TEST(KernelRoutes, LabelRoutesAreIgnored) {
  Octets datagram = Encode(RouteMessage{.hop = {.interface_index = 5}});
  datagram[sizeof(nlmsghdr)] = AF_MPLS;
  ExpectIgnored(datagram);
}

TEST(KernelRoutes, ContradictionsAreMalformed) {
  ExpectMalformed(Encode(RouteMessage{.table = 0, .hop = {.interface_index = 5}}));
  ExpectMalformed(Encode(RouteMessage{.hop = {.interface_index = 5}, .without_destination = true}));
  ExpectMalformed(Encode(RouteMessage{.prefix = "10.0.0.1/24", .hop = {.interface_index = 5}}));
  ExpectMalformed(Encode(RouteMessage{.prefix = "10.0.0.255/31", .hop = {.interface_index = 5}}));
  ExpectMalformed(Encode(RouteMessage{.hop = {.interface_index = 0x80000000}}));
  ExpectMalformed(Encode(RouteMessage{.hop = {.gateway = "2001:db8::1"}}));  // an address too long
  Octets datagram = Encode(RouteMessage{.prefix = "10.0.0.0/32", .hop = {.interface_index = 5}});
  datagram[sizeof(nlmsghdr) + 1] = 33;
  ExpectMalformed(datagram);
}

// The length of a hop, in the middle of RTA_MULTIPATH.
TEST(KernelRoutes, HopsOfImpossibleLengthAreMalformed) {
  const Octets whole = Encode(RouteMessage{.hops = {{.interface_index = 5}, {.interface_index = 6}}});
  const std::size_t second = whole.size() - sizeof(rtnexthop);
  for (const int length : {0, 7, 9, 255}) {
    Octets datagram = whole;
    datagram[second] = static_cast<std::uint8_t>(length);
    ExpectMalformed(datagram);
  }
}

TEST(KernelRoutes, HeaderOnlyMessagesAreMalformed) {
  for (const std::uint16_t type : {RTM_NEWROUTE, RTM_DELROUTE, RTM_NEWNEXTHOP, RTM_DELNEXTHOP}) {
    MessageBuffer buffer;
    const nlmsghdr* message = buffer.Begin(type, 0);
    ExpectMalformed(buffer.Take(message));
  }
}

TEST(KernelNextHops, ObjectWithGatewayAndLabels) {
  const NextHopObject object =
      OneObject({.id = 5, .hop = {.interface_index = 9, .gateway = "10.0.0.2", .labels = {100, 200}}});
  EXPECT_EQ(object.id, 5U);
  EXPECT_EQ(object.path.interface_index, 9U);
  EXPECT_EQ(object.path.gateway, Octets16("10.0.0.2"));
  EXPECT_THAT(object.path.labels, ElementsAre(100U, 200U));
  EXPECT_FALSE(object.discards);
  EXPECT_THAT(object.members, IsEmpty());
}

TEST(KernelNextHops, Ipv6ObjectHasAnIpv6Gateway) {
  const NextHopObject object =
      OneObject({.family = AF_INET6, .id = 5, .hop = {.interface_index = 9, .gateway = "fe80::2"}});
  EXPECT_EQ(object.path.gateway_family, router::Family::kIpv6);
  EXPECT_EQ(object.path.gateway, Octets16("fe80::2"));
}

TEST(KernelNextHops, GroupBlackholeAndDead) {
  EXPECT_THAT(OneObject({.id = 7, .members = {5, 6}}).members, ElementsAre(5U, 6U));
  EXPECT_TRUE(OneObject({.id = 8, .blackhole = true}).discards);
  EXPECT_TRUE(OneObject({.id = 9, .hop = {.interface_index = 5, .flags = RTNH_F_DEAD}}).path.dead);
}

TEST(KernelNextHops, DeletionNamesTheObject) {
  EXPECT_EQ(One<NextHopRemoved>(ObjectMessage{.message_type = RTM_DELNEXTHOP, .id = 5}).id, 5U);
}

TEST(KernelNextHops, ObjectWithoutIdIsMalformed) {
  ExpectMalformed(Encode(ObjectMessage{.hop = {.interface_index = 5}}));
}

TEST(KernelNextHops, GroupOfOddLengthIsMalformed) {
  Octets datagram = Encode(ObjectMessage{.id = 7, .members = {5}});
  nlattr group{};
  std::memcpy(&group, datagram.data() + datagram.size() - 12, sizeof group);
  ASSERT_EQ(group.nla_type, NHA_GROUP);
  group.nla_len = 11;
  std::memcpy(datagram.data() + datagram.size() - 12, &group, sizeof group);
  ExpectMalformed(datagram);
}

TEST(KernelRouteDatagrams, InterruptedDumpIsReported) {
  MessageBuffer buffer;
  ParseReport report;
  EXPECT_THAT(ParseRoutes(buffer.Take(buffer.Begin(NLMSG_DONE, NLM_F_DUMP_INTR)), &report), IsEmpty());
  EXPECT_TRUE(report.interrupted);
}

TEST(KernelRouteDatagrams, LinksAndAddressesAreIgnored) {
  ExpectIgnored(Encode(LinkMessage{.index = 5, .name = "d0"}));
  ExpectIgnored(Encode(AddressMessage{.index = 5, .address = "10.0.0.1"}));
}

// Each part has a buffer of its own size, so that a sanitizer detects any read beyond it.
TEST(KernelRouteDatagrams, EveryTruncationOfARecordingIsHandled) {
  for (const char* name : {"dump-route.raw", "dump-route6.raw"}) {
    const Octets whole = ReadRecording(name).at(0);
    const std::size_t complete = ParseRoutes(whole).size();
    ASSERT_GT(complete, 1U);
    for (std::size_t length = 0; length < whole.size(); ++length) {
      const Octets cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_LT(ParseRoutes(cut).size(), complete);
    }
  }
}

// Every field of a message is checked: each octet in succession takes values at the ends of its range.
TEST(KernelRouteDatagrams, EveryOctetMayBeWrong) {
  const std::vector<Octets> messages{
      Encode(RouteMessage{.hop = {.interface_index = 5, .via = "2001:db8::2", .labels = {100, 200}}}),
      Encode(RouteMessage{
          .hops = {{.interface_index = 5, .gateway = "10.0.0.2"}, {.interface_index = 6, .labels = {7}}}}),
      Encode(ObjectMessage{.id = 7, .members = {5, 6}}),
      Encode(ObjectMessage{.id = 5, .hop = {.interface_index = 9, .labels = {7}}})};
  for (const Octets& message : messages) {
    for (std::size_t at = 0; at < message.size(); ++at) {
      for (const int value : {0x00, 0x01, 0x03, 0x7f, 0x80, 0xff}) {
        Octets wrong(message);
        wrong[at] = static_cast<std::uint8_t>(value);
        EXPECT_LE(ParseRoutes(wrong).size(), 1U) << at;
      }
    }
  }
}

router::RouteTableId TableOf(Octets message) {
  const void* first = message.data();
  return find_table(static_cast<const nlmsghdr*>(first)).value_or(router::RouteTableId{});
}

TEST(MalformedRoute, TableIsFound) {
  EXPECT_EQ(TableOf(Encode(RouteMessage{.table = 10})), kRed4);
  EXPECT_EQ(TableOf(Encode(RouteMessage{.prefix = "2001:db8::/64", .table = 10})), kRed6);
  EXPECT_EQ(TableOf(Encode(RouteMessage{.table = {}, .short_table = 10})), kRed4);
}

TEST(MalformedRoute, TableOfATruncatedMessageIsFoundUnlessItIsMissing) {
  Octets message = Encode(RouteMessage{.table = 1000});
  const auto shorten = [&message](std::uint32_t length) {
    std::memcpy(message.data(), &length, sizeof length);
    return message;
  };
  const std::uint32_t header = sizeof(nlmsghdr) + sizeof(rtmsg);
  EXPECT_EQ(TableOf(shorten(header + 8)).table, 1000U);  // RTA_TABLE is first
  EXPECT_EQ(TableOf(shorten(header + 4)).table, 0U);
  EXPECT_EQ(TableOf(shorten(header - 1)).table, 0U);
  EXPECT_EQ(TableOf(Encode(ObjectMessage{.id = 1})).table, 0U);
}

}  // namespace
}  // namespace kernel

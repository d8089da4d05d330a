// Tests of the rtnetlink decoder: what a message means, what is no concern of ours, what is malformed.
#include <gmock/gmock.h>

#include "sources/kernel/test_support.h"

namespace kernel {
namespace {

constexpr std::uint8_t kOperUp = 6;

LinkMessage Port(const std::string& slave_kind) {
  return {.index = 5,
          .flags = kUpAndRunning,
          .name = "d0",
          .operstate = kOperUp,
          .master = 2,
          .slave_kind = slave_kind};
}

Link OneLink(const LinkMessage& message) {
  const std::vector<Event> events = Parse(Encode(message));
  if (events.size() != 1 || !std::holds_alternative<LinkSeen>(events[0])) {
    ADD_FAILURE() << "not one link but " << events.size() << " events";
    return {};
  }
  return std::get<LinkSeen>(events[0]).link;
}

LinkAddress OneAddress(const AddressMessage& message) {
  const std::vector<Event> events = Parse(Encode(message));
  if (events.size() != 1 || !std::holds_alternative<AddressSeen>(events[0])) {
    ADD_FAILURE() << "not one address but " << events.size() << " events";
    return {};
  }
  return std::get<AddressSeen>(events[0]).address;
}

void ExpectMalformed(const Octets& datagram) {
  ParseReport report;
  EXPECT_TRUE(Parse(datagram, &report).empty());
  EXPECT_EQ(report.malformed, 1U);
}

void ExpectIgnored(const Octets& datagram) {
  ParseReport report;
  EXPECT_TRUE(Parse(datagram, &report).empty());
  EXPECT_EQ(report.malformed, 0U);
}

TEST(NetlinkLinks, VrfDeviceHasItsTable) {
  const Link link =
      OneLink({.index = 2, .name = "red", .alias = "a customer", .kind = "vrf", .vrf_table = 1000});
  EXPECT_TRUE(link.is_vrf);
  EXPECT_EQ(link.index, 2U);
  EXPECT_EQ(link.name, "red");
  EXPECT_EQ(link.alias, "a customer");
  EXPECT_EQ(link.vrf_table, 1000U);
}

TEST(NetlinkLinks, VrfTableIsReadWhateverTheOrderOfKindAndData) {
  const Link link =
      OneLink({.index = 2, .name = "red", .kind = "vrf", .vrf_table = 7, .data_before_kind = true});
  EXPECT_TRUE(link.is_vrf);
  EXPECT_EQ(link.vrf_table, 7U);
}

TEST(NetlinkLinks, DataOfAnotherKindIsNoVrfTable) {
  const Link link = OneLink({.index = 2, .name = "vlan7", .kind = "vlan", .vrf_table = 7});
  EXPECT_FALSE(link.is_vrf);
  EXPECT_EQ(link.vrf_table, 0U);
}

TEST(NetlinkLinks, PortOfVrfNamesItsMaster) {
  EXPECT_EQ(OneLink(Port("vrf")).vrf_master, 2U);
}

TEST(NetlinkLinks, PortOfBridgeIsInNoVrf) {
  EXPECT_EQ(OneLink(Port("bridge")).vrf_master, 0U);
}

TEST(NetlinkLinks, MasterWithoutSlaveKindIsNoVrf) {
  EXPECT_EQ(OneLink(Port("")).vrf_master, 0U);
}

TEST(NetlinkLinks, UnknownOperstateWithCarrierIsUp) {
  EXPECT_TRUE(OneLink({.index = 1, .flags = kUpAndRunning, .name = "lo", .operstate = 0}).up);
  EXPECT_TRUE(OneLink({.index = 1, .flags = kUpAndRunning, .name = "lo"}).up);
}

TEST(NetlinkLinks, UnknownOperstateWithoutCarrierIsDown) {
  EXPECT_FALSE(OneLink({.index = 1, .flags = IFF_UP, .name = "d0", .operstate = 0}).up);
}

TEST(NetlinkLinks, UnknownOperstateAdministrativelyDownIsDown) {
  EXPECT_FALSE(OneLink({.index = 1, .flags = 0x10000, .name = "d0", .operstate = 0}).up);
}

TEST(NetlinkLinks, OperstateDecidesWhereTheDriverKeepsIt) {
  for (std::uint8_t state = 1; state < kOperUp; ++state) {
    EXPECT_FALSE(OneLink({.index = 1, .flags = kUpAndRunning, .name = "e0", .operstate = state}).up)
        << unsigned{state};
  }
  EXPECT_TRUE(OneLink({.index = 1, .flags = kUpAndRunning, .name = "e0", .operstate = kOperUp}).up);
}

TEST(NetlinkLinks, DeletionIsTheIndex) {
  const auto events = Parse(Encode(LinkMessage{.type = RTM_DELLINK, .index = 9}));
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(std::get<LinkGone>(events[0]).index, 9U);
}

TEST(NetlinkLinks, BridgesViewOfItsPortsIsIgnored) {
  ExpectIgnored(Encode(LinkMessage{.family = AF_BRIDGE, .index = 9, .name = "d0"}));
  ExpectIgnored(Encode(LinkMessage{.type = RTM_DELLINK, .family = AF_BRIDGE, .index = 9, .name = "d0"}));
}

TEST(NetlinkLinks, WirelessReportIsIgnored) {
  ExpectIgnored(Encode(LinkMessage{.index = 9, .name = "wlan0", .wireless = true}));
}

TEST(NetlinkLinks, WithoutNameIsMalformed) {
  ExpectMalformed(Encode(LinkMessage{.index = 9}));
}

TEST(NetlinkLinks, NameLongerThanTheKernelsIsMalformed) {
  EXPECT_EQ(OneLink({.index = 9, .name = std::string(15, 'n')}).name, std::string(15, 'n'));
  ExpectMalformed(Encode(LinkMessage{.index = 9, .name = std::string(16, 'n')}));
}

TEST(NetlinkLinks, IndexZeroOrNegativeIsMalformed) {
  ExpectMalformed(Encode(LinkMessage{.index = 0, .name = "d0"}));
  ExpectMalformed(Encode(LinkMessage{.index = -1, .name = "d0"}));
}

TEST(NetlinkLinks, VrfDeviceWithoutTableIsMalformed) {
  ExpectMalformed(Encode(LinkMessage{.index = 2, .name = "red", .kind = "vrf"}));
  ExpectMalformed(Encode(LinkMessage{.index = 2, .name = "red", .kind = "vrf", .vrf_table = 0}));
}

TEST(NetlinkAddresses, Ipv4IsTheLocalAddressNotThePeer) {
  const LinkAddress address =
      OneAddress({.index = 5, .address = "10.0.0.2", .local = "10.0.0.1", .prefix_length = 32});
  EXPECT_EQ(router::format_address(address.address), "10.0.0.1/32");
  EXPECT_EQ(address.peer[3], 2);
  EXPECT_EQ(address.index, 5U);
}

TEST(NetlinkAddresses, Ipv6WithoutPeerHasNoLocalAttribute) {
  const LinkAddress address =
      OneAddress({.family = AF_INET6, .index = 5, .address = "2001:db8::1", .prefix_length = 64});
  EXPECT_EQ(router::format_address(address.address), "2001:db8::1/64");
  EXPECT_EQ(address.peer, address.address.octets);
}

TEST(NetlinkAddresses, Ipv6WithPeerIsTheLocalAddress) {
  const LinkAddress address = OneAddress({.family = AF_INET6,
                                          .index = 5,
                                          .address = "2001:db8::2",
                                          .local = "2001:db8::1",
                                          .prefix_length = 128});
  EXPECT_EQ(router::format_address(address.address), "2001:db8::1/128");
}

TEST(NetlinkAddresses, DeletionNamesTheAddress) {
  const auto events = Parse(Encode(AddressMessage{.type = RTM_DELADDR, .index = 5, .local = "10.0.0.1"}));
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(router::format_address(std::get<AddressGone>(events[0]).address.address), "10.0.0.1/24");
}

TEST(NetlinkAddresses, SecondaryIsAnIpv4Matter) {
  EXPECT_TRUE(OneAddress({.index = 5, .local = "10.0.0.2", .header_flags = IFA_F_SECONDARY}).secondary);
  EXPECT_FALSE(OneAddress({.family = AF_INET6, .index = 5, .address = "::1", .header_flags = IFA_F_SECONDARY})
                   .secondary);
}

TEST(NetlinkAddresses, FlagsAttributeOverridesTheHeader) {
  EXPECT_TRUE(
      OneAddress({.index = 5, .local = "10.0.0.2", .header_flags = IFA_F_TENTATIVE, .flags = 0}).usable);
}

TEST(NetlinkAddresses, NotYetUniqueIsNotUsable) {
  const auto with = [](std::uint32_t flags) {
    return OneAddress({.family = AF_INET6, .index = 5, .address = "2001:db8::1", .flags = flags}).usable;
  };
  EXPECT_TRUE(with(IFA_F_PERMANENT));
  EXPECT_FALSE(with(IFA_F_PERMANENT | IFA_F_TENTATIVE));
  EXPECT_TRUE(with(IFA_F_TENTATIVE | IFA_F_OPTIMISTIC));
  EXPECT_FALSE(with(IFA_F_DADFAILED));
}

TEST(NetlinkAddresses, OtherFamiliesAreIgnored) {
  ExpectIgnored(Encode(AddressMessage{.family = 28, .index = 5}));
}

TEST(NetlinkAddresses, PrefixLongerThanTheFamilyIsMalformed) {
  EXPECT_EQ(OneAddress({.index = 5, .local = "10.0.0.1", .prefix_length = 32}).address.prefix_length, 32);
  ExpectMalformed(Encode(AddressMessage{.index = 5, .local = "10.0.0.1", .prefix_length = 33}));
}

TEST(NetlinkAddresses, AddressOfAnotherLengthIsMalformed) {
  ExpectMalformed(Encode(AddressMessage{.index = 5, .local = "2001:db8::1"}));
  ExpectMalformed(Encode(AddressMessage{.family = AF_INET6, .index = 5, .address = "10.0.0.1"}));
}

TEST(NetlinkAddresses, WithoutAnyAddressIsMalformed) {
  ExpectMalformed(Encode(AddressMessage{.index = 5}));
}

TEST(NetlinkAddresses, LinkZeroIsMalformed) {
  ExpectMalformed(Encode(AddressMessage{.index = 0, .local = "10.0.0.1"}));
}

Octets Control(std::uint16_t type, int error, std::size_t payload) {
  MessageBuffer buffer;
  nlmsghdr* message = buffer.Begin(type, 0);
  std::memcpy(mnl_nlmsg_put_extra_header(message, payload), &error, std::min(payload, sizeof error));
  return buffer.Take(message);
}

TEST(NetlinkControl, DumpEnds) {
  const auto events = Parse(Control(NLMSG_DONE, 0, sizeof(int)));
  ASSERT_EQ(events.size(), 1U);
  EXPECT_TRUE(std::holds_alternative<DumpDone>(events[0]));
}

TEST(NetlinkControl, DumpEndWithAnErrorIsAFailure) {
  const auto events = Parse(Control(NLMSG_DONE, -ENOMEM, sizeof(int)));
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(std::get<RequestFailed>(events[0]).error, ENOMEM);
}

TEST(NetlinkControl, RefusalCarriesItsErrno) {
  const auto events = Parse(Control(NLMSG_ERROR, -EPERM, sizeof(nlmsgerr)));
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(std::get<RequestFailed>(events[0]).error, EPERM);
}

TEST(NetlinkControl, AcknowledgementIsIgnored) {
  ExpectIgnored(Control(NLMSG_ERROR, 0, sizeof(nlmsgerr)));
}

TEST(NetlinkControl, ShortErrorIsMalformed) {
  ExpectMalformed(Control(NLMSG_ERROR, -EPERM, sizeof(int)));
}

TEST(NetlinkControl, OverrunMessageIsALoss) {
  const auto events = Parse(Control(NLMSG_OVERRUN, 0, sizeof(int)));
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(std::get<RequestFailed>(events[0]).error, ENOBUFS);
}

TEST(NetlinkControl, UnknownTypesAreIgnored) {
  ExpectIgnored(Control(RTM_NEWROUTE, 0, sizeof(rtmsg)));
}

TEST(NetlinkControl, DisturbedDumpIsSeenOnAnyMessage) {
  ParseReport report;
  EXPECT_EQ(
      Parse(Encode(LinkMessage{.message_flags = NLM_F_DUMP_INTR, .index = 9, .name = "d0"}), &report).size(),
      1U);
  EXPECT_TRUE(report.interrupted);
}

TEST(NetlinkFraming, SeveralMessagesInOneDatagramKeepTheirOrder) {
  Octets both = Encode(LinkMessage{.index = 9, .name = "d0"});
  const Octets second = Encode(LinkMessage{.type = RTM_DELLINK, .index = 9});
  both.insert(both.end(), second.begin(), second.end());
  const auto events = Parse(both);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_TRUE(std::holds_alternative<LinkSeen>(events[0]));
  EXPECT_TRUE(std::holds_alternative<LinkGone>(events[1]));
}

TEST(NetlinkFraming, MalformedMessageDoesNotHideTheNext) {
  Octets both = Encode(LinkMessage{.index = 0, .name = "d0"});
  const Octets second = Encode(LinkMessage{.type = RTM_DELLINK, .index = 9});
  both.insert(both.end(), second.begin(), second.end());
  ParseReport report;
  EXPECT_EQ(Parse(both, &report).size(), 1U);
  EXPECT_EQ(report.malformed, 1U);
}

TEST(NetlinkFraming, LengthBeyondTheDatagramIsMalformed) {
  Octets datagram = Encode(LinkMessage{.index = 9, .name = "d0"});
  datagram.pop_back();
  ExpectMalformed(datagram);
}

TEST(NetlinkFraming, LengthBelowTheHeaderIsMalformed) {
  Octets datagram = Encode(LinkMessage{.index = 9, .name = "d0"});
  datagram[0] = 15;
  ExpectMalformed(datagram);
}

// Aligned in 32 bits these lengths are 0, which once kept the decoder at one message for ever.
TEST(NetlinkFraming, LengthAtTheEndOfItsRangeIsMalformed) {
  Octets datagram = Encode(LinkMessage{.index = 9, .name = "d0"});
  datagram[1] = datagram[2] = datagram[3] = 0xff;
  for (std::uint8_t lowest = 0xfc; lowest != 0; ++lowest) {
    datagram[0] = lowest;
    ExpectMalformed(datagram);
  }
}

TEST(NetlinkFraming, HeaderOnlyMessagesAreMalformed) {
  for (const std::uint16_t type : {RTM_NEWLINK, RTM_DELLINK, RTM_NEWADDR, RTM_DELADDR}) {
    ExpectMalformed(Control(type, 0, 0));
  }
}

TEST(NetlinkFraming, EmptyDatagramIsNothing) {
  ExpectIgnored({});
}

// Each cut has a buffer of its own size, so that a sanitizer sees any octet read behind it.
TEST(NetlinkFraming, EveryCutOfARecordingIsSurvived) {
  const Octets whole = ReadRecording("dump-link.raw").at(0);
  const std::size_t complete = Parse(whole).size();
  ASSERT_GT(complete, 1U);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const Octets cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_LT(Parse(cut).size(), complete);
  }
}

// The padding behind a message is read with it: a message that ends before its padding is not to be believed.
TEST(NetlinkFraming, MessageCutShortOfItsPaddingIsNotBelieved) {
  const Octets whole = Encode(Port("vrf"));
  for (std::uint8_t length = 0; length < whole.size(); ++length) {
    Octets cut(whole.begin(), whole.begin() + length);
    if (cut.size() >= sizeof(nlmsghdr)) cut[0] = length;
    for (const Event& event : Parse(cut)) {
      EXPECT_EQ(std::get<LinkSeen>(event).link.name, "d0") << unsigned{length};
    }
  }
}

}  // namespace
}  // namespace kernel

// Decoding of link and address messages: what they mean, which are ignored, which are malformed.
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
  return OnlyEvent<LinkSeen>(Parse(Encode(message))).link;
}

LinkAddress OneAddress(const AddressMessage& message) {
  return OnlyEvent<AddressSeen>(Parse(Encode(message))).address;
}

void ExpectMalformed(const Octets& datagram, const std::string& what = {}) {
  SCOPED_TRACE(what);
  ExpectNoEvents(Parse, datagram, 1);
}

void ExpectIgnored(const Octets& datagram) {
  ExpectNoEvents(Parse, datagram, 0);
}

TEST(LinkMessages, VrfDeviceHasItsTable) {
  const Link link =
      OneLink({.index = 2, .name = "red", .alias = "a customer", .kind = "vrf", .vrf_table = 1000});
  EXPECT_TRUE(link.is_vrf);
  EXPECT_EQ(link.index, 2U);
  EXPECT_EQ(link.name, "red");
  EXPECT_EQ(link.alias, "a customer");
  EXPECT_EQ(link.vrf_table, 1000U);
}

TEST(LinkMessages, VrfTableIsReadInAnyOrderOfKindAndData) {
  const Link link =
      OneLink({.index = 2, .name = "red", .kind = "vrf", .vrf_table = 7, .data_before_kind = true});
  EXPECT_TRUE(link.is_vrf);
  EXPECT_EQ(link.vrf_table, 7U);
}

TEST(LinkMessages, DataOfAnotherKindIsNotAVrfTable) {
  const Link link = OneLink({.index = 2, .name = "vlan7", .kind = "vlan", .vrf_table = 7});
  EXPECT_FALSE(link.is_vrf);
  EXPECT_EQ(link.vrf_table, 0U);
}

TEST(LinkMessages, PortOfVrfNamesItsMaster) {
  EXPECT_EQ(OneLink(Port("vrf")).vrf_master, 2U);
}

TEST(LinkMessages, PortOfBridgeIsInNoVrf) {
  EXPECT_EQ(OneLink(Port("bridge")).vrf_master, 0U);
}

TEST(LinkMessages, MasterWithoutSlaveKindIsNotAVrf) {
  EXPECT_EQ(OneLink(Port("")).vrf_master, 0U);
}

TEST(LinkMessages, FactsAreTheFlagsThatAffectRoutesAndAnyMaster) {
  LinkMessage port = Port("bridge");
  port.flags |= IFF_BROADCAST;
  EXPECT_EQ(OnlyEvent<LinkSeen>(Parse(Encode(port))).facts, (LinkFacts{kUpAndRunning, 2}));
}

TEST(LinkMessages, UnknownOperstateWithCarrierIsUp) {
  EXPECT_TRUE(OneLink({.index = 1, .flags = kUpAndRunning, .name = "lo", .operstate = 0}).up);
  EXPECT_TRUE(OneLink({.index = 1, .flags = kUpAndRunning, .name = "lo"}).up);
}

TEST(LinkMessages, UnknownOperstateWithoutCarrierIsDown) {
  EXPECT_FALSE(OneLink({.index = 1, .flags = IFF_UP, .name = "d0", .operstate = 0}).up);
}

TEST(LinkMessages, UnknownOperstateAdministrativelyDownIsDown) {
  EXPECT_FALSE(OneLink({.index = 1, .flags = 0x10000, .name = "d0", .operstate = 0}).up);
}

TEST(LinkMessages, OperstateDecidesWhereTheDriverKeepsIt) {
  for (std::uint8_t state = 1; state < kOperUp; ++state) {
    EXPECT_FALSE(OneLink({.index = 1, .flags = kUpAndRunning, .name = "e0", .operstate = state}).up)
        << unsigned{state};
  }
  EXPECT_TRUE(OneLink({.index = 1, .flags = kUpAndRunning, .name = "e0", .operstate = kOperUp}).up);
}

TEST(LinkMessages, DeletionIsTheIndex) {
  const auto events = Parse(Encode(LinkMessage{.type = RTM_DELLINK, .index = 9}));
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(std::get<LinkRemoved>(events[0]).index, 9U);
}

TEST(LinkMessages, BridgesViewOfItsPortsIsIgnored) {
  ExpectIgnored(Encode(LinkMessage{.family = AF_BRIDGE, .index = 9, .name = "d0"}));
  ExpectIgnored(Encode(LinkMessage{.type = RTM_DELLINK, .family = AF_BRIDGE, .index = 9, .name = "d0"}));
}

TEST(LinkMessages, WirelessReportIsIgnored) {
  ExpectIgnored(Encode(LinkMessage{.index = 9, .name = "wlan0", .wireless = true}));
}

TEST(LinkMessages, ContradictionsAreMalformed) {
  const std::map<std::string, LinkMessage> messages{
      {"no name", {.index = 9}},
      {"a name longer than the kernel's", {.index = 9, .name = std::string(16, 'n')}},
      {"index 0", {.index = 0, .name = "d0"}},
      {"a negative index", {.index = -1, .name = "d0"}},
      {"a VRF device without a table", {.index = 2, .name = "red", .kind = "vrf"}},
      {"a VRF device with table 0", {.index = 2, .name = "red", .kind = "vrf", .vrf_table = 0}}};
  for (const auto& [what, message] : messages) ExpectMalformed(Encode(message), what);
  EXPECT_EQ(OneLink({.index = 9, .name = std::string(15, 'n')}).name, std::string(15, 'n'));
}

TEST(AddressMessages, Ipv4IsTheLocalAddressNotThePeer) {
  const LinkAddress address =
      OneAddress({.index = 5, .address = "10.0.0.2", .local = "10.0.0.1", .prefix_length = 32});
  EXPECT_EQ(router::format_address(address.address), "10.0.0.1/32");
  EXPECT_EQ(address.peer[3], 2);
  EXPECT_EQ(address.index, 5U);
}

TEST(AddressMessages, Ipv6WithoutPeerHasNoLocalAttribute) {
  const LinkAddress address =
      OneAddress({.family = AF_INET6, .index = 5, .address = "2001:db8::1", .prefix_length = 64});
  EXPECT_EQ(router::format_address(address.address), "2001:db8::1/64");
  EXPECT_EQ(address.peer, address.address.octets);
}

TEST(AddressMessages, Ipv6WithPeerIsTheLocalAddress) {
  const LinkAddress address = OneAddress({.family = AF_INET6,
                                          .index = 5,
                                          .address = "2001:db8::2",
                                          .local = "2001:db8::1",
                                          .prefix_length = 128});
  EXPECT_EQ(router::format_address(address.address), "2001:db8::1/128");
}

TEST(AddressMessages, DeletionNamesTheAddress) {
  const auto events = Parse(Encode(AddressMessage{.type = RTM_DELADDR, .index = 5, .local = "10.0.0.1"}));
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(router::format_address(std::get<AddressRemoved>(events[0]).address.address), "10.0.0.1/24");
}

TEST(AddressMessages, SecondaryIsAnIpv4Matter) {
  EXPECT_TRUE(OneAddress({.index = 5, .local = "10.0.0.2", .header_flags = IFA_F_SECONDARY}).secondary);
  EXPECT_FALSE(OneAddress({.family = AF_INET6, .index = 5, .address = "::1", .header_flags = IFA_F_SECONDARY})
                   .secondary);
}

TEST(AddressMessages, FlagsAttributeOverridesTheHeader) {
  EXPECT_TRUE(
      OneAddress({.index = 5, .local = "10.0.0.2", .header_flags = IFA_F_TENTATIVE, .flags = 0}).usable);
}

TEST(AddressMessages, TentativeIsNotUsable) {
  const auto with = [](std::uint32_t flags) {
    return OneAddress({.family = AF_INET6, .index = 5, .address = "2001:db8::1", .flags = flags}).usable;
  };
  EXPECT_TRUE(with(IFA_F_PERMANENT));
  EXPECT_FALSE(with(IFA_F_PERMANENT | IFA_F_TENTATIVE));
  EXPECT_TRUE(with(IFA_F_TENTATIVE | IFA_F_OPTIMISTIC));
  EXPECT_FALSE(with(IFA_F_DADFAILED));
}

TEST(AddressMessages, OtherFamiliesAreIgnored) {
  ExpectIgnored(Encode(AddressMessage{.family = 28, .index = 5}));
}

TEST(AddressMessages, ContradictionsAreMalformed) {
  const std::map<std::string, AddressMessage> messages{
      {"a prefix longer than the family's", {.index = 5, .local = "10.0.0.1", .prefix_length = 33}},
      {"an IPv6 address of IPv4", {.index = 5, .local = "2001:db8::1"}},
      {"an IPv4 address of IPv6", {.family = AF_INET6, .index = 5, .address = "10.0.0.1"}},
      {"no address", {.index = 5}},
      {"link 0", {.index = 0, .local = "10.0.0.1"}}};
  for (const auto& [what, message] : messages) ExpectMalformed(Encode(message), what);
  EXPECT_EQ(OneAddress({.index = 5, .local = "10.0.0.1", .prefix_length = 32}).address.prefix_length, 32);
}

Octets Message(std::uint16_t type, std::size_t payload) {
  MessageBuffer buffer;
  nlmsghdr* message = buffer.Begin(type, 0);
  mnl_nlmsg_put_extra_header(message, payload);
  return buffer.Take(message);
}

TEST(LinkDatagrams, OtherTypesAreIgnored) {
  ExpectIgnored(Message(RTM_NEWROUTE, sizeof(rtmsg)));
  ExpectIgnored(Message(NLMSG_DONE, sizeof(int)));
}

TEST(LinkDatagrams, InterruptedDumpIsReportedByAnyMessage) {
  ParseReport report;
  EXPECT_EQ(
      Parse(Encode(LinkMessage{.message_flags = NLM_F_DUMP_INTR, .index = 9, .name = "d0"}), &report).size(),
      1U);
  EXPECT_TRUE(report.interrupted);
}

TEST(LinkDatagrams, SeveralMessagesInOneDatagramKeepTheirOrder) {
  Octets both = Encode(LinkMessage{.index = 9, .name = "d0"});
  const Octets second = Encode(LinkMessage{.type = RTM_DELLINK, .index = 9});
  both.insert(both.end(), second.begin(), second.end());
  const auto events = Parse(both);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_TRUE(std::holds_alternative<LinkSeen>(events[0]));
  EXPECT_TRUE(std::holds_alternative<LinkRemoved>(events[1]));
}

TEST(LinkDatagrams, MalformedMessageDoesNotHideTheNextOne) {
  Octets both = Encode(LinkMessage{.index = 0, .name = "d0"});
  const Octets second = Encode(LinkMessage{.type = RTM_DELLINK, .index = 9});
  both.insert(both.end(), second.begin(), second.end());
  ParseReport report;
  EXPECT_EQ(Parse(both, &report).size(), 1U);
  EXPECT_EQ(report.malformed, 1U);
}

TEST(LinkDatagrams, LengthBeyondTheDatagramOrBelowTheHeaderIsMalformed) {
  Octets datagram = Encode(LinkMessage{.index = 9, .name = "d0"});
  datagram.pop_back();
  ExpectMalformed(datagram, "beyond the datagram");
  datagram = Encode(LinkMessage{.index = 9, .name = "d0"});
  datagram[0] = 15;
  ExpectMalformed(datagram, "below the header");
}

// Aligned in 32 bits these lengths are 0, which must not make an endless loop.
TEST(LinkDatagrams, LengthAtTheEndOfItsRangeIsMalformed) {
  Octets datagram = Encode(LinkMessage{.index = 9, .name = "d0"});
  datagram[1] = datagram[2] = datagram[3] = 0xff;
  for (std::uint8_t lowest = 0xfc; lowest != 0; ++lowest) {
    datagram[0] = lowest;
    ExpectMalformed(datagram);
  }
}

TEST(LinkDatagrams, HeaderOnlyMessagesAreMalformed) {
  for (const std::uint16_t type : {RTM_NEWLINK, RTM_DELLINK, RTM_NEWADDR, RTM_DELADDR}) {
    ExpectMalformed(Message(type, 0));
  }
}

TEST(LinkDatagrams, EmptyDatagramIsIgnored) {
  ExpectIgnored({});
}

// Each part has a buffer of its own size, so that a sanitizer detects any read beyond it.
TEST(LinkDatagrams, EveryTruncationOfARecordingIsHandled) {
  const Octets whole = ReadRecording("dump-link.raw").at(0);
  const std::size_t complete = Parse(whole).size();
  ASSERT_GT(complete, 1U);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const Octets cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_LT(Parse(cut).size(), complete);
  }
}

// The padding after a message is read with it, so a message without its padding is malformed.
TEST(LinkDatagrams, MessageWithoutItsPaddingIsMalformed) {
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

#include "platform/core/address/address.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace inet {
namespace {

Octets octets(const char* text) {
  return parse_address(text).value().octets;
}

TEST(Addresses, AreReadAndWrittenInTheShortestForm) {
  for (const auto& [text, shortest] :
       {std::pair("192.0.2.1", "192.0.2.1"), std::pair("2001:DB8:0:0::1", "2001:db8::1"),
        std::pair("::ffff:192.0.2.1", "::ffff:192.0.2.1"), std::pair("::", "::")}) {
    const std::optional<Address> address = parse_address(text);
    ASSERT_TRUE(address.has_value()) << text;
    EXPECT_EQ(address_text(*address), shortest);
  }
  EXPECT_EQ(parse_address("192.0.2.1")->family, Family::kIpv4);
  EXPECT_EQ(parse_address("::1")->family, Family::kIpv6);
}

TEST(Addresses, OtherTextsAreNotAddresses) {
  using std::string_literals::operator""s;
  for (const std::string& text :
       {""s, "10.1"s, "010.0.0.1"s, "0x0a.0.0.1"s, "10.0.0.256"s, "10.0.0.1 "s, "10.0.0.1/8"s,
        "fe80::1%eth0"s, "1:2"s, ":::"s, "10.0.0.1\0x"s, std::string(46, '1')}) {
    EXPECT_EQ(parse_address(text), std::nullopt) << text;
  }
}

TEST(Addresses, DottedQuadsAreNumbersInHostOrder) {
  EXPECT_EQ(parse_dotted_quad("192.0.2.1"), 0xc0000201U);
  EXPECT_EQ(dotted_quad(0xc0000201U), "192.0.2.1");
  EXPECT_EQ(dotted_quad(ntohl(inet_addr("10.255.0.7"))), "10.255.0.7");
  EXPECT_EQ(parse_dotted_quad("::1"), std::nullopt);
}

TEST(Prefixes, HaveALengthOfTheirFamily) {
  EXPECT_EQ(prefix_text(parse_prefix("10.1.2.3/16").value()), "10.1.2.3/16");
  EXPECT_EQ(prefix_text(parse_prefix("2001:DB8::/128").value()), "2001:db8::/128");
  for (const char* text : {"10.0.0.0", "10.0.0.0/", "10.0.0.0/33", "::/129", "10.0.0.0/-1", "10.0.0.0/8x",
                           "/8", "10.0.0.0/0008", "10.0.0.0/8/8"}) {
    EXPECT_EQ(parse_prefix(text), std::nullopt) << text;
  }
}

TEST(Prefixes, HostBitsAreThoseAfterTheLength) {
  EXPECT_FALSE(has_host_bits(octets("10.1.0.0"), 16));
  EXPECT_TRUE(has_host_bits(octets("10.1.0.0"), 15));
  EXPECT_TRUE(has_host_bits(octets("128.0.0.0"), 0));
  EXPECT_FALSE(has_host_bits(octets("0.0.0.0"), 0));
  EXPECT_FALSE(has_host_bits(octets("10.1.2.3"), 32));
  EXPECT_FALSE(has_host_bits(octets("ffff::ffff"), 128));
  EXPECT_TRUE(has_host_bits(octets("::1"), 127));
  Octets cleared = octets("2001:db8:ffff::1");
  clear_host_bits(&cleared, 37);
  EXPECT_EQ(cleared, octets("2001:db8:f800::"));
  EXPECT_EQ(host_bits_error("10.12.1.0/16", parse_prefix("10.12.1.0/16").value()),
            "10.12.1.0/16 has host bits set; did you mean 10.12.0.0/16?");
}

TEST(Prefixes, MaskHasTheBitsOfTheLength) {
  EXPECT_EQ(mask_of(0), Octets{});
  EXPECT_EQ(mask_of(12), octets("255.240.0.0"));
  EXPECT_EQ(mask_of(128), octets("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"));
}

TEST(Prefixes, AddressesShareAPrefixWhoseBitsAreEqual) {
  EXPECT_TRUE(share_prefix(octets("10.1.2.3"), octets("10.1.255.255"), 16));
  EXPECT_FALSE(share_prefix(octets("10.1.2.3"), octets("10.1.255.255"), 17));
  EXPECT_TRUE(share_prefix(octets("10.0.0.0"), octets("192.0.2.1"), 0));
  EXPECT_FALSE(share_prefix(octets("::1"), octets("::2"), 128));
}

}  // namespace
}  // namespace inet

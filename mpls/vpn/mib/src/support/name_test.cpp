// The name order, the text index and the agent's value conversions.
#include "mpls/vpn/mib/src/support/name.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "platform/core/base/fault.h"
#include "platform/core/wavl/wavl.h"

namespace {

OctetString Octets(std::string_view text) {
  return {static_cast<std::int32_t>(text.size()), reinterpret_cast<const std::uint8_t*>(text.data())};
}

// The text, or "error" and the code, after which there must be no text.
std::string NewText(const OctetString& octets) {
  char marker = 'x';
  char* text = &marker;
  const Status rc = mpls_vpn_octets_to_new_text(&octets, &text);
  if (rc != kStatusOk) {
    EXPECT_EQ(text, nullptr);
    return "error " + std::to_string(rc);
  }
  const std::string copy = text;
  std::free(text);
  return copy;
}

std::vector<std::uint32_t> SubIdentifiers(const char* text) {
  ObjectIdentifier identifier{};
  EXPECT_EQ(mpls_vpn_text_to_oid(text, &identifier), kStatusOk);
  std::vector<std::uint32_t> result(identifier.sub_identifiers,
                                    identifier.sub_identifiers + identifier.count);
  std::free(identifier.sub_identifiers);
  return result;
}

}  // namespace

TEST(NameOrder, ShorterNameIsFirstWhateverItsLetters) {
  EXPECT_EQ(mpls_vpn_name_compare("vrf10", "vrf9"), kWavlGreater);
  EXPECT_EQ(mpls_vpn_name_compare("vrf9", "vrf10"), kWavlLess);
  EXPECT_EQ(mpls_vpn_name_compare("zz", "aaa"), kWavlLess);
  EXPECT_EQ(mpls_vpn_name_compare("", "a"), kWavlLess);
}

TEST(NameOrder, NamesOfEqualLengthOrderByOctets) {
  EXPECT_EQ(mpls_vpn_name_compare("abc", "abd"), kWavlLess);
  EXPECT_EQ(mpls_vpn_name_compare("abd", "abc"), kWavlGreater);
  EXPECT_EQ(mpls_vpn_name_compare("abc", "abc"), kWavlEqual);
  EXPECT_EQ(mpls_vpn_name_compare("B", "a"), kWavlLess);
  EXPECT_EQ(mpls_vpn_name_compare("\xff", "a"), kWavlGreater);
}

TEST(NameOrder, AbsentNameIsSmallest) {
  EXPECT_EQ(mpls_vpn_name_compare(nullptr, "a"), 0U);
  EXPECT_EQ(mpls_vpn_name_compare("a", nullptr), 2U);
  EXPECT_EQ(mpls_vpn_name_compare(nullptr, nullptr), 1U);
  EXPECT_EQ(mpls_vpn_name_compare(nullptr, ""), 0U);
}

TEST(TextIndex, FindsTheFirstEqualRow) {
  const char* const table[] = {"none", "bgp", "ospf", "bgp"};
  EXPECT_EQ(mpls_vpn_text_index("bgp", table, 4), 1);
  EXPECT_EQ(mpls_vpn_text_index("none", table, 4), 0);
}

TEST(TextIndex, IsMinusOneWithoutAMatch) {
  const char* const table[] = {"none", "bgp"};
  EXPECT_EQ(mpls_vpn_text_index("rip", table, 2), -1);
  EXPECT_EQ(mpls_vpn_text_index("bgp", table, 1), -1);
  EXPECT_EQ(mpls_vpn_text_index("none", table, 0), -1);
  EXPECT_EQ(mpls_vpn_text_index("none", table, -5), -1);
  EXPECT_EQ(mpls_vpn_text_index(nullptr, table, 2), -1);
}

TEST(OctetsToText, IsCutToTheBuffer) {
  const OctetString octets = Octets("0123456789");
  std::array<char, 6> buffer{'x', 'x', 'x', 'x', 'x', 'x'};
  mpls_vpn_octets_to_text(&octets, buffer.data(), 5);
  EXPECT_STREQ(buffer.data(), "0123");
  EXPECT_EQ(buffer[5], 'x');
  const OctetString shorter = Octets("red");
  mpls_vpn_octets_to_text(&shorter, buffer.data(), 6);
  EXPECT_STREQ(buffer.data(), "red");
}

TEST(OctetsToText, NothingGivesTheEmptyText) {
  const OctetString without_octets{3, nullptr};
  const OctetString empty = Octets("");
  for (const OctetString* octets : {static_cast<const OctetString*>(nullptr), &without_octets, &empty}) {
    std::array<char, 4> buffer{'x', 'x', 'x', 'x'};
    mpls_vpn_octets_to_text(octets, buffer.data(), 4);
    EXPECT_STREQ(buffer.data(), "");
  }
}

TEST(OctetsToText, SizeWithoutRoomForTheTerminatorWritesNothing) {
  const OctetString octets = Octets("red");
  char buffer = 'x';
  mpls_vpn_octets_to_text(&octets, &buffer, 0);
  EXPECT_EQ(buffer, 'x');
  mpls_vpn_octets_to_text(&octets, &buffer, 1);
  EXPECT_EQ(buffer, '\0');
}

TEST(OctetsToText, MissingBufferIsReportedUnderItsOwnFlag) {
  const OctetString octets = Octets("red");
  std::string prints;
  debug_capture(&prints);
  mpls_vpn_octets_to_text(&octets, nullptr, 16);
  EXPECT_EQ(prints, "");
  l3vpnmib_debug_flags.enabled.store(1);
  mpls_vpn_octets_to_text(&octets, nullptr, 16);
  l3vpnmib_debug_flags.enabled.store(0);
  debug_capture(nullptr);
  EXPECT_EQ(prints, "OctetString 2 ASCII called with NULL buffer\n");
}

TEST(OctetsToNewText, GivesACopyThatTheCallerFrees) {
  EXPECT_EQ(NewText(Octets("red vrf")), "red vrf");
  EXPECT_EQ(NewText({0, nullptr}), "");
}

TEST(OctetsToNewText, MissingArgumentIsInvalid) {
  const OctetString octets = Octets("red");
  EXPECT_EQ(mpls_vpn_octets_to_new_text(&octets, nullptr), 22U);
  char marker = 'x';
  char* text = &marker;
  EXPECT_EQ(mpls_vpn_octets_to_new_text(nullptr, &text), 22U);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(NewText({-1, octets.octets}), "error 22");
  EXPECT_EQ(NewText({3, nullptr}), "error 22");
}

TEST(OctetsToNewText, NoMemoryIsReported) {
  const ScopedFault fault("calloc_tagged:mpls_vpn_MTOS", kStatusNoMemory);
  EXPECT_EQ(NewText(Octets("red")), "error 12");
}

TEST(OctetsToNewText, UnprintableOctetsAndAFailedPrinterAreInvalid) {
  for (const std::string_view octets :
       {std::string_view("a\0b", 3), std::string_view("a\x7f"), std::string_view("\n")}) {
    EXPECT_EQ(NewText(Octets(octets)), "error 22");
  }
  const ScopedFault fault("octet_string_print", kStatusIo);
  EXPECT_EQ(NewText(Octets("red")), "error 22");
}

TEST(TextToOid, IsTheLengthAndTheCharactersAsSignedOctets) {
  EXPECT_EQ(SubIdentifiers("ab"), (std::vector<std::uint32_t>{2, 97, 98}));
  EXPECT_EQ(SubIdentifiers("\xe9"), (std::vector<std::uint32_t>{1, 0xffffffe9U}));
  EXPECT_TRUE(SubIdentifiers("").empty());
}

TEST(TextToOid, MissingArgumentIsInvalid) {
  ObjectIdentifier identifier{};
  EXPECT_EQ(mpls_vpn_text_to_oid(nullptr, &identifier), 22U);
  EXPECT_EQ(mpls_vpn_text_to_oid("ab", nullptr), 22U);
}

TEST(TextToOid, NoMemoryIsReported) {
  const ScopedFault fault("calloc_tagged:mpls_vpn_MOIDFTxt", kStatusNoMemory);
  ObjectIdentifier identifier{};
  EXPECT_EQ(mpls_vpn_text_to_oid("ab", &identifier), 12U);
  EXPECT_EQ(identifier.count, 0U);
}

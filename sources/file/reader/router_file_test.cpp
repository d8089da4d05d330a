// What a router file can contain and what it means.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "sources/file/reader/reader_test_support.h"

namespace router_file {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

std::vector<std::string> AddressesOf(const router::Interface& interface) {
  std::vector<std::string> texts;
  for (const router::Address& address : interface.addresses) texts.push_back(router::format_address(address));
  return texts;
}

TEST(RouterFile, VrfHasEveryWrittenAttribute) {
  const RouterFile file = Read(
      "vrfs:\n"
      "  - name: red\n"
      "    id: 7\n"
      "    table: 10\n"
      "    description: the red customer\n"
      "    rd: 65000:100\n"
      "    big: true\n"
      "    state: created\n");
  ASSERT_THAT(file.vrfs, SizeIs(1));
  const router::Vrf& red = file.vrfs[0];
  EXPECT_EQ(red.name, "red");
  EXPECT_EQ(red.id, 7U);
  EXPECT_EQ(red.ipv4_table, 10U);
  EXPECT_EQ(red.ipv6_table, 10U);
  EXPECT_EQ(red.description, "the red customer");
  EXPECT_EQ(red.rd, "65000:100");
  EXPECT_EQ(red.flags, router::kVrfFlagBig);
  EXPECT_THAT(file.references, IsEmpty());
}

// "ID: IPV4 IPV6 IPV4-MULTICAST IPV6-MULTICAST" of a VRF with these keys.
std::string IdAndTables(const std::string& keys) {
  const router::Vrf vrf = Read("vrfs: [{name: red, " + keys + "}]").vrfs.at(0);
  std::string text = std::to_string(vrf.id) + ":";
  for (const std::uint32_t table :
       {vrf.ipv4_table, vrf.ipv6_table, vrf.ipv4_multicast_table, vrf.ipv6_multicast_table}) {
    text += " " + std::to_string(table);
  }
  return text;
}

TEST(RouterFile, IdAndTableAreTheDefaultOfEachOther) {
  EXPECT_EQ(IdAndTables("table: 10"), "10: 10 10 0 0");
  EXPECT_EQ(IdAndTables("id: 10"), "10: 10 10 0 0");
  EXPECT_EQ(IdAndTables("tables: {ipv6: 11}"), "11: 0 11 0 0");
}

TEST(RouterFile, TablesNameEachFamilyAndTheOthersHaveNone) {
  EXPECT_EQ(IdAndTables("id: 5, tables: {ipv6: 11, ipv4-multicast: 12, ipv6-multicast: 13}"),
            "5: 0 11 12 13");
  EXPECT_EQ(IdAndTables("id: 5, tables: {}"), "5: 0 0 0 0");
}

TEST(RouterFile, TwoVrfsMayShareATable) {
  EXPECT_THAT(Read("vrfs: [{name: a, id: 2, table: 9}, {name: b, id: 3, table: 9}]").vrfs, SizeIs(2));
}

TEST(RouterFile, VrfThatIsOnlyNamedIsAReference) {
  const RouterFile file = Read("vrfs: [{name: later, state: referenced}]");
  EXPECT_THAT(file.references, ElementsAre("later"));
  EXPECT_THAT(file.vrfs, IsEmpty());
}

TEST(RouterFile, InterfaceHasEveryWrittenAttribute) {
  const RouterFile file = Read(
      "interfaces:\n"
      "  - name: ge0\n"
      "    index: 11\n"
      "    description: to the red customer\n"
      "    state: down\n"
      "    addresses: [10.0.0.1/24, '2001:db8::1/64', 10.0.1.1]\n"
      "    vrf: red\n");
  ASSERT_THAT(file.interfaces, SizeIs(1));
  const router::Interface& ge0 = file.interfaces[0];
  EXPECT_EQ(ge0.name, "ge0");
  EXPECT_EQ(ge0.index, 11U);
  EXPECT_EQ(ge0.description, "to the red customer");
  EXPECT_FALSE(ge0.up);
  EXPECT_EQ(ge0.vrf, "red");
  EXPECT_THAT(AddressesOf(ge0), ElementsAre("10.0.0.1/24", "2001:db8::1/64", "10.0.1.1/32"));
}

TEST(RouterFile, InterfaceIsUpAndInNoVrfByDefault) {
  const router::Interface ge0 = Read("interfaces: [{name: ge0, index: 1}]").interfaces.at(0);
  EXPECT_TRUE(ge0.up);
  EXPECT_EQ(ge0.vrf, "default");
  EXPECT_THAT(ge0.addresses, IsEmpty());
}

TEST(RouterFile, InterfaceMayNameAVrfThatDoesNotExist) {
  EXPECT_EQ(Read("interfaces: [{name: ge0, index: 1, vrf: nowhere}]").interfaces.at(0).vrf, "nowhere");
}

// An address may begin with the character that separates keys from values.
TEST(RouterFile, AddressesInBracketsNeedNoQuotationMarks) {
  const RouterFile file = Read(
      "interfaces: [{name: a, index: 1, addresses: [::1/128,::2, 2001:db8::1/64]}]\n"
      "vrfs: [{name: red, id: 2, description: \"to ::1, ::2\", routes: [{prefix: ::/0, next_hop: ::5}]}]\n");
  EXPECT_THAT(AddressesOf(file.interfaces.at(0)), ElementsAre("::1/128", "::2/128", "2001:db8::1/64"));
  EXPECT_THAT(file.routes, SizeIs(1));
  EXPECT_EQ(file.vrfs.at(0).description, "to ::1, ::2");
  EXPECT_EQ(ErrorIn("interfaces: [{name: a, addresses: [::1,::2], index: 0}]"),
            "1:53: an interface's index is a number from 1 to 2147483647, not \"0\"");
}

TEST(RouterFile, TextMayBeUtf16OrHaveCarriageReturns) {
  std::string utf16 = "\xff\xfe";
  for (const char octet : std::string("vrfs: [{name: a, id: 2}]")) utf16 += {octet, '\0'};
  EXPECT_EQ(Read(utf16).vrfs.at(0).name, "a");
  EXPECT_EQ(Read("vrfs:\r\n- name: a\r\n  id: 2\r\n").vrfs.at(0).name, "a");
}

TEST(RouterFile, NamesThatLookLikeNumbersAreTexts) {
  EXPECT_EQ(Read("vrfs: [{name: 100, id: 2}]").vrfs.at(0).name, "100");
}

TEST(RouterFile, NamesMayHaveTheGreatestLength) {
  EXPECT_EQ(Read("vrfs: [{name: " + std::string(31, 'v') + ", id: 2}]").vrfs.at(0).name.size(), 31U);
  EXPECT_EQ(Read("interfaces: [{name: " + std::string(63, 'i') + ", index: 2}]").interfaces.at(0).name.size(),
            63U);
}

TEST(RouterFile, RangesIncludeTheirEnds) {
  EXPECT_EQ(Read("interfaces: [{name: a, index: 2147483647}]").interfaces.at(0).index, 2147483647U);
  EXPECT_EQ(Read("vrfs: [{name: a, id: 4294967295}]").vrfs.at(0).id, 4294967295U);
  EXPECT_EQ(Read("vrfs: [{name: a, id: 2}]").vrfs.at(0).id, 2U);
  EXPECT_EQ(Read("vrfs: [{name: a, id: 2}]").vrfs.at(0).flags, 0U) << "not big";
}

TEST(RouterFile, EmptySectionsAreAnEmptyRouter) {
  const RouterFile file = Read("vrfs:\ninterfaces: []\n");
  EXPECT_THAT(file.vrfs, IsEmpty());
  EXPECT_THAT(file.interfaces, IsEmpty());
}

TEST(RouterFile, AnchorsSpareRepetition) {
  const RouterFile file =
      Read("vrfs: [{name: a, id: 2, description: &d same}, {name: b, id: 3, description: *d}]");
  EXPECT_EQ(file.vrfs.at(1).description, "same");
}

TEST(GeneratedRouter, NamesNumbersAndAddressesFollowFromTheCounters) {
  const RouterFile file = Read("generate: {vrfs: 2, interfaces_per_vrf: 3}");
  ASSERT_THAT(file.vrfs, SizeIs(2));
  ASSERT_THAT(file.interfaces, SizeIs(6));
  EXPECT_EQ(file.vrfs[1].name, "customer-00002");
  EXPECT_EQ(file.vrfs[1].id, 100002U);
  EXPECT_EQ(file.vrfs[1].ipv6_table, 100002U);
  EXPECT_EQ(file.vrfs[1].rd, "65000:2");
  const router::Interface& last = file.interfaces[5];
  EXPECT_EQ(last.name, "cust00002.3");
  EXPECT_EQ(last.index, 100006U);
  EXPECT_EQ(last.vrf, "customer-00002");
  EXPECT_TRUE(last.up);
  EXPECT_THAT(AddressesOf(last), ElementsAre("10.0.0.21/30", "2001:db8:0:5::1/64"));
}

TEST(GeneratedRouter, StartsAtTheGivenNumbers) {
  const RouterFile file = Read("generate: {vrfs: 1, interfaces_per_vrf: 1, first_id: 50, first_index: 60}");
  EXPECT_EQ(file.vrfs.at(0).id, 50U);
  EXPECT_EQ(file.interfaces.at(0).index, 60U);
}

TEST(GeneratedRouter, IsAddedToWrittenEntries) {
  const RouterFile file = Read("vrfs: [{name: red, id: 2}]\ngenerate: {vrfs: 1, interfaces_per_vrf: 0}");
  ASSERT_THAT(file.vrfs, SizeIs(2));
  EXPECT_EQ(file.vrfs[0].name, "red");
}

TEST(GeneratedRouter, ManyVrfsHaveDistinctValidNamesAndAddresses) {
  const RouterFile file = Read("generate: {vrfs: 100000, interfaces_per_vrf: 1}");
  std::set<std::string> names;
  std::set<router::Address> addresses;
  for (const router::Vrf& vrf : file.vrfs) EXPECT_TRUE(router::valid_vrf_name(vrf.name));
  for (const router::Interface& interface : file.interfaces) {
    names.insert(interface.name);
    addresses.insert(interface.addresses.begin(), interface.addresses.end());
  }
  EXPECT_EQ(names.size(), 100'000U);
  EXPECT_EQ(addresses.size(), 200'000U);
  EXPECT_EQ((*file.interfaces.back().addresses.begin()).octets[0], 10);
}

std::string JsonOfInterfaces(unsigned count) {
  std::string text = "{\"interfaces\": [";
  for (unsigned each = 1; each <= count; ++each) {
    const std::string number = std::to_string(each);
    text += std::string(each == 1 ? "" : ",") + "{\"name\":\"ge" + number + "\",\"index\":" + number + "}";
  }
  return text + "]}\n";
}

// It begins with a brace, in the place of a key.
TEST(RouterFile, JsonIsReadWithoutLookingAheadToItsEnd) {
  EXPECT_EQ(Read("\n" + JsonOfInterfaces(90'000)).interfaces.size(), 90'000U);
  EXPECT_EQ(ErrorIn("{\"vrfs\": [{\"name\": \"red\", \"id\": 1}]}"),
            "1:33: a VRF's id is a number from 2 to 4294967295, not \"1\"");
  EXPECT_EQ(ErrorIn("{\"vrfs\":\n [{\"name\": \"red\", \"id\": 1}]}"),
            "2:25: a VRF's id is a number from 2 to 4294967295, not \"1\"");
}

}  // namespace
}  // namespace router_file

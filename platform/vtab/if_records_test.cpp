// Interface records: look-ups, states and addresses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/base/fault.h"
#include "platform/vtab/test_support.h"

namespace vtab {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(Records, InterfaceRecordShowsNameVrfAndIndex) {
  AddInterface("ge0", 7, "red");
  AddInterface("ge1", 8);
  const VtabIfRecord* record = vtab_get_if_record("ge0");
  ASSERT_NE(record, nullptr);
  EXPECT_STREQ(record->if_name, "ge0");
  EXPECT_STREQ(record->vrf_name, "red");
  EXPECT_EQ(record->if_index, 7U);
  EXPECT_STREQ(vtab_get_if_record("ge1")->vrf_name, "default");
  EXPECT_EQ(vtab_get_if_record("ge2"), nullptr);
  EXPECT_EQ(vtab_get_if_record(nullptr), nullptr);
}

TEST_F(Records, BothProtocolStatesFollowTheOperationalState) {
  AddInterface("ge0", 7);
  const VtabIfRecord* record = vtab_get_if_record("ge0");
  EXPECT_EQ(record->ipv4_state, kVtabStateDown);
  EXPECT_EQ(record->ipv6_state, kVtabStateDown);
  SetLink("ge0", true);
  EXPECT_EQ(record->ipv4_state, kVtabStateUp);
  EXPECT_EQ(record->ipv6_state, kVtabStateUp);
}

TEST_F(Records, InterfacesAreWalkedByIndex) {
  AddInterface("ge0", 30);
  AddInterface("ge1", 20, "red");
  AddInterface("ge2", 10);
  EXPECT_THAT(InterfaceWalk(), ElementsAre("ge2=10", "ge1=20", "ge0=30"));
  Remove("ge1");
  EXPECT_THAT(InterfaceWalk(), ElementsAre("ge2=10", "ge0=30"));
  EXPECT_EQ(vtab_get_next_if_record(nullptr), nullptr);
}

TEST_F(Records, RenamedInterfaceKeepsItsRecord) {
  AddInterface("ge0", 30);
  AddInterface("ge1", 20);
  const VtabIfRecord* record = vtab_get_if_record("ge0");
  Rename("ge0", "ge9", 10);
  EXPECT_EQ(vtab_get_if_record("ge9"), record);
  EXPECT_EQ(vtab_get_if_record("ge0"), nullptr);
  EXPECT_THAT(InterfaceWalk(), ElementsAre("ge9=10", "ge1=20"));
}

TEST_F(Records, MovedInterfaceNamesItsNewVrf) {
  AddInterface("ge0", 7, "red");
  const VtabIfRecord* record = vtab_get_if_record("ge0");
  Move("ge0", "blue");
  EXPECT_STREQ(record->vrf_name, "blue");
  Move("ge0", "default");
  EXPECT_STREQ(record->vrf_name, "default");
}

TEST_F(Records, PrimaryIpv4AddressIsTheFirstOfItsFamilyInHostOrder) {
  AddInterface("ge0", 7);
  std::uint32_t address = 99;
  EXPECT_EQ(vtab_get_if_primary_ipv4_address(vtab_get_if_record("ge0"), &address), kStatusNoSuchRow);
  EXPECT_EQ(address, 99U);
  AddAddress("ge0", "2001:db8::1/64");
  AddAddress("ge0", "10.1.2.3/24");
  AddAddress("ge0", "10.9.9.9/24");
  EXPECT_EQ(vtab_get_if_primary_ipv4_address(vtab_get_if_record("ge0"), &address), kStatusOk);
  EXPECT_EQ(address, 0x0a010203U);
}

TEST_F(Records, Ipv6AddressesAreGivenInOrder) {
  AddInterface("ge0", 7);
  AddAddress("ge0", "2001:db8:1:2:3:4:5:6/64");
  AddAddress("ge0", "10.1.2.3/24");
  AddAddress("ge0", "fe80::1/64");
  const VtabIfRecord* record = vtab_get_if_record("ge0");
  std::uint32_t cursor = 0;
  std::uint32_t words[4] = {};
  ASSERT_EQ(vtab_get_if_next_ipv6_address(record, &cursor, words), kStatusOk);
  EXPECT_THAT(words, ElementsAre(0x20010db8U, 0x00010002U, 0x00030004U, 0x00050006U));
  ASSERT_EQ(vtab_get_if_next_ipv6_address(record, &cursor, words), kStatusOk);
  EXPECT_THAT(words, ElementsAre(0xfe800000U, 0U, 0U, 1U));
  EXPECT_EQ(vtab_get_if_next_ipv6_address(record, &cursor, words), kStatusEndOfList);
}

TEST_F(Records, AddressLookUpsHaveTheirFaultPointsAndRefuseNull) {
  AddInterface("ge0", 7);
  AddAddress("ge0", "10.1.2.3/24");
  AddAddress("ge0", "fe80::1/64");
  const VtabIfRecord* record = vtab_get_if_record("ge0");
  std::uint32_t address = 0;
  std::uint32_t cursor = 0;
  std::uint32_t words[4] = {};
  fault_arm("vtab_get_if_primary_ipv4_address", kStatusIo);
  fault_arm("vtab_get_if_next_ipv6_address", kStatusIo);
  EXPECT_EQ(vtab_get_if_primary_ipv4_address(record, &address), kStatusIo);
  EXPECT_EQ(vtab_get_if_next_ipv6_address(record, &cursor, words), kStatusIo);
  fault_disarm_all();
  EXPECT_EQ(vtab_get_if_primary_ipv4_address(nullptr, &address), kStatusInvalid);
  EXPECT_EQ(vtab_get_if_primary_ipv4_address(record, nullptr), kStatusInvalid);
  EXPECT_EQ(vtab_get_if_next_ipv6_address(nullptr, &cursor, words), kStatusInvalid);
  EXPECT_EQ(cursor, 0U);
}

// --- events ---

TEST_F(Records, StateChangesAreToldForBothFamilies) {
  AddInterface("ge0", 7, "red");
  StartClient();
  SetLink("ge0", true);
  EXPECT_THAT(Told(), IsEmpty()) << "before the loop ran";
  Run();
  SetLink("ge0", false);
  Run();
  EXPECT_THAT(Told(),
              ElementsAre("if ge0 in red changes 1 1 record ge0", "if ge0 in red changes 2 2 record ge0"));
}

TEST_F(Records, OnlyStateChangesAreTold) {
  StartClient();
  router::Interface interface;
  interface.name = "ge0";
  interface.index = 7;
  interface.vrf = "red";
  interface.up = true;
  ASSERT_EQ(router_.add_interface(interface), kStatusOk);
  AddAddress("ge0", "10.1.2.3/24");
  Rename("ge0", "ge1", 8);
  Move("ge1", "blue");
  SetLink("ge1", true);
  Run();
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(Records, EveryChangeIsToldInOrderEvenWhenTheyCancelOut) {
  AddInterface("ge0", 7, "red");
  StartClient();
  for (const bool up : {true, false, true}) SetLink("ge0", up);
  Run();
  EXPECT_THAT(Told(),
              ElementsAre("if ge0 in red changes 1 1 record ge0", "if ge0 in red changes 2 2 record ge0",
                          "if ge0 in red changes 1 1 record ge0"));
}

TEST_F(Records, InterfaceRemovedWhileUpIsToldAsDownWithoutARecord) {
  AddInterface("ge0", 7, "red");
  AddInterface("ge1", 8, "red");
  SetLink("ge0", true);
  StartClient();
  Remove("ge0");
  Remove("ge1");
  AddInterface("ge0", 9, "red");
  Run();
  EXPECT_THAT(Told(), ElementsAre("if ge0 in red changes 2 2 record none"));
}

TEST_F(Records, InterfaceThatLeftTheVrfOrItsNameHasNoRecordForTheEvent) {
  AddInterface("ge0", 7, "red");
  AddInterface("ge1", 8, "red");
  StartClient();
  SetLink("ge0", true);
  Move("ge0", "blue");
  SetLink("ge1", true);
  Rename("ge1", "ge9", 8);
  Run();
  EXPECT_THAT(Told(),
              ElementsAre("if ge0 in red changes 1 1 record none", "if ge1 in red changes 1 1 record none"));
}

TEST_F(Records, InterfacesOfTheDefaultVrfAreToldToo) {
  AddInterface("ge0", 7);
  StartClient();
  SetLink("ge0", true);
  Run();
  EXPECT_THAT(Told(), ElementsAre("if ge0 in default changes 1 1 record ge0"));
}

TEST_F(Records, AHundredThousandInterfacesComeUpAndGo) {
  constexpr std::uint32_t kMany = 100'000;
  for (std::uint32_t n = 1; n <= kMany; ++n) AddInterface("if" + std::to_string(n), n, "red");
  StartClient();
  for (std::uint32_t n = 1; n <= kMany; ++n) SetLink("if" + std::to_string(n), true);
  Run();
  EXPECT_EQ(Told().size(), kMany);
  for (std::uint32_t n = 1; n <= kMany; ++n) Remove("if" + std::to_string(n));
  EXPECT_THAT(InterfaceWalk(), IsEmpty());
}

}  // namespace
}  // namespace vtab

// Interface records: look-ups, states and addresses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"
#include "platform/router/vtab/test_support.h"

namespace vtab {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// "ge0" of "red" has an address of each family.
class UsableInterface : public Records {
 protected:
  UsableInterface() { AddUsableInterface("ge0", 7, "red"); }
};

TEST_F(Records, InterfaceRecordShowsNameVrfAndIndex) {
  AddInterface("ge0", 7, "red");
  AddInterface("ge1", 8);
  const VtabIfRecord* record = vtab_get_if_record("ge0");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->if_name, "ge0");
  EXPECT_EQ(record->vrf_name, "red");
  EXPECT_EQ(record->if_index, 7U);
  EXPECT_EQ(vtab_get_if_record("ge1")->vrf_name, "default");
  EXPECT_EQ(vtab_get_if_record("ge2"), nullptr);
  EXPECT_EQ(vtab_get_if_record(nullptr), nullptr);
}

TEST_F(Records, FamilyIsUpWhileTheLinkIsUpAndItHasAnAddress) {
  AddInterface("ge0", 7);
  SetLink("ge0", true);
  EXPECT_EQ(StatesOf("ge0"), "down down");
  AddAddress("ge0", "10.1.2.3/24");
  EXPECT_EQ(StatesOf("ge0"), "up down");
  AddAddress("ge0", "fe80::1/64");
  EXPECT_EQ(StatesOf("ge0"), "up up");
  SetLink("ge0", false);
  EXPECT_EQ(StatesOf("ge0"), "down down");
}

TEST_F(Records, InterfaceThatIsThereBeforeTheServiceShowsItsStates) {
  vtab_attach(nullptr);
  AddUsableInterface("ge0", 7);
  SetLink("ge0", true);
  vtab_attach(&router_);
  EXPECT_EQ(StatesOf("ge0"), "up up");
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

TEST_F(UsableInterface, PendingEventsAreDeliveredBeforeAnInterfaceIsRenamed) {
  StartClient();
  SetLink("ge0", true);
  EXPECT_THAT(Calls(), IsEmpty());
  Rename("ge0", "ge1", 7);
  EXPECT_THAT(Calls(), ElementsAre("if ge0 in red changes 1 1 record ge0"));
  EXPECT_EQ(vtab_get_if_record("ge0"), nullptr);
  EXPECT_EQ(StatesOf("ge1"), "up up");
}

TEST_F(Records, MovedInterfaceNamesItsNewVrf) {
  AddInterface("ge0", 7, "red");
  const VtabIfRecord* record = vtab_get_if_record("ge0");
  Move("ge0", "blue");
  EXPECT_EQ(record->vrf_name, "blue");
  Move("ge0", "default");
  EXPECT_EQ(record->vrf_name, "default");
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

TEST_F(UsableInterface, StateChangesAreReportedForBothFamilies) {
  StartClient();
  SetLink("ge0", true);
  EXPECT_THAT(Calls(), IsEmpty()) << "before the loop ran";
  Run();
  SetLink("ge0", false);
  EXPECT_THAT(Delivered(),
              ElementsAre("if ge0 in red changes 1 1 record ge0", "if ge0 in red changes 2 2 record ge0"));
}

TEST_F(Records, AddressOfALinkThatIsUpBringsItsFamilyUpAndTheLastOneTakesItDown) {
  AddInterface("ge0", 7, "red");
  SetLink("ge0", true);
  StartClient();
  AddAddress("ge0", "10.1.2.3/24");
  AddAddress("ge0", "10.1.2.4/24");
  AddAddress("ge0", "fe80::1/64");
  EXPECT_THAT(Delivered(),
              ElementsAre("if ge0 in red changes 1 0 record ge0", "if ge0 in red changes 0 1 record ge0"));
  EXPECT_EQ(StatesOf("ge0"), "up up");
  RemoveAddresses("ge0");
  EXPECT_THAT(Delivered(), ElementsAre("if ge0 in red changes 2 2 record ge0"));
}

TEST_F(Records, FamiliesMayChangeInOppositeWaysAtOnce) {
  AddInterface("ge0", 7, "red");
  AddAddress("ge0", "10.1.2.3/24");
  SetLink("ge0", true);
  StartClient();
  ReplaceFirstAddress("ge0", "fe80::1/64");
  EXPECT_THAT(Delivered(), ElementsAre("if ge0 in red changes 2 1 record ge0"));
}

TEST_F(Records, ChangesWithoutAStateAreNotReported) {
  AddInterface("ge0", 7, "red");
  StartClient();
  AddAddress("ge0", "10.1.2.3/24");
  Rename("ge0", "ge1", 8);
  Move("ge1", "blue");
  EXPECT_THAT(Delivered(), IsEmpty());
}

TEST_F(Records, InterfaceAddedWhileUpIsReportedAsUp) {
  StartClient();
  router::Interface interface;
  interface.name = "ge0";
  interface.index = 7;
  interface.vrf = "red";
  interface.up = true;
  interface.addresses = {AddressOf("10.1.2.3/24")};
  ASSERT_EQ(router_.add_interface(interface), kStatusOk);
  EXPECT_EQ(StatesOf("ge0"), "down down");
  EXPECT_THAT(Delivered(), ElementsAre("if ge0 in red changes 1 0 record ge0"));
  EXPECT_EQ(StatesOf("ge0"), "up down");
}

TEST_F(UsableInterface, ChangesThatCancelOutAreAllReportedInOrder) {
  StartClient();
  for (const bool up : {true, false, true}) SetLink("ge0", up);
  EXPECT_THAT(Delivered(),
              ElementsAre("if ge0 in red changes 1 1 record ge0", "if ge0 in red changes 2 2 record ge0",
                          "if ge0 in red changes 1 1 record ge0"));
  EXPECT_EQ(StatesOf("ge0"), "up up");
}

// The states of ge0 and ge1 as looked up in each callback.
std::vector<std::string> seen_states;

Status see_states(const char* if_name, const char* /*vrf_name*/) {
  std::string line = if_name;
  for (const char* name : {"ge0", "ge1"}) {
    const VtabIfRecord* record = vtab_get_if_record(name);
    line += record != nullptr && record->ipv4_state == kVtabStateUp ? " up" : " down";
  }
  seen_states.push_back(line);
  return kStatusOk;
}

TEST_F(UsableInterface, LookUpsShowUpAfterTheCallbackAndDownInsideIt) {
  seen_states.clear();
  AddUsableInterface("ge1", 8, "red");
  StartClient();
  ASSERT_EQ(vtab_specify_if_callback(&see_states), kStatusOk);
  for (const bool up : {true, false}) {
    SetLink("ge0", up);
    SetLink("ge1", up);
  }
  Run();
  EXPECT_THAT(seen_states, ElementsAre("ge0 down down", "ge1 up down", "ge0 down up", "ge1 down down"));
}

TEST_F(Records, InterfaceThatChangesItsFamilyIsSeenAsItWasInItsCallback) {
  seen_states.clear();
  AddInterface("ge0", 7, "red");
  AddAddress("ge0", "10.1.2.3/24");
  SetLink("ge0", true);
  StartClient();
  ASSERT_EQ(vtab_specify_if_callback(&see_states), kStatusOk);
  ReplaceFirstAddress("ge0", "2001:db8::1/64");
  Run();
  EXPECT_THAT(seen_states, ElementsAre("ge0 up down"));
  EXPECT_EQ(StatesOf("ge0"), "down up");
}

TEST_F(UsableInterface, AddressWaitsForTheEventsBeforeIt) {
  StartClient();
  SetLink("ge0", true);
  AddAddress("ge0", "2001:db8::1/64");
  const VtabIfRecord* record = vtab_get_if_record("ge0");
  std::uint32_t cursor = 1;
  std::uint32_t words[4] = {};
  EXPECT_EQ(vtab_get_if_next_ipv6_address(record, &cursor, words), kStatusEndOfList);
  Run();
  EXPECT_EQ(vtab_get_if_next_ipv6_address(record, &cursor, words), kStatusOk);
}

TEST_F(UsableInterface, InterfaceRemovedWhileUpIsReportedAsDownWithItsRecord) {
  AddInterface("ge1", 8, "red");
  SetLink("ge0", true);
  StartClient();
  Remove("ge0");
  Remove("ge1");
  EXPECT_THAT(InterfaceWalk(), IsEmpty());
  EXPECT_NE(vtab_get_if_record("ge0"), nullptr) << "until the client was notified";
  EXPECT_EQ(vtab_get_if_record("ge1"), nullptr) << "nothing is pending for it";
  EXPECT_THAT(Delivered(), ElementsAre("if ge0 in red changes 2 2 record ge0"));
  EXPECT_EQ(vtab_get_if_record("ge0"), nullptr);
}

TEST_F(UsableInterface, NameOfARemovedInterfaceBelongsToItsSuccessorWhenTheRemovalIsDelivered) {
  SetLink("ge0", true);
  StartClient();
  Remove("ge0");
  AddInterface("ge0", 9, "red");
  EXPECT_EQ(vtab_get_if_record("ge0")->if_index, 7U);
  EXPECT_THAT(Delivered(), ElementsAre("if ge0 in red changes 2 2 record ge0"));
  EXPECT_EQ(vtab_get_if_record("ge0")->if_index, 9U);
}

TEST_F(UsableInterface, InterfaceMovedWhileUpIsReportedDownInTheFormerVrfAndUpInTheNewOne) {
  SetLink("ge0", true);
  StartClient();
  Move("ge0", "blue");
  EXPECT_EQ(StatesOf("ge0"), "up up") << "nothing is delivered yet";
  EXPECT_THAT(Delivered(),
              ElementsAre("if ge0 in red changes 2 2 record ge0", "if ge0 in blue changes 1 1 record ge0"));
  EXPECT_EQ(StatesOf("ge0"), "up up");
}

TEST_F(UsableInterface, EventOfAnInterfaceThatHasMovedHasItsRecord) {
  AddUsableInterface("ge1", 8, "red");
  StartClient();
  SetLink("ge0", true);
  Move("ge0", "blue");
  SetLink("ge1", true);
  Rename("ge1", "ge9", 8);
  EXPECT_THAT(Delivered(),
              ElementsAre("if ge0 in red changes 1 1 record ge0", "if ge0 in red changes 2 2 record ge0",
                          "if ge0 in blue changes 1 1 record ge0", "if ge1 in red changes 1 1 record ge1"));
}

TEST_F(Records, InterfacesOfTheDefaultVrfAreReported) {
  AddUsableInterface("ge0", 7);
  StartClient();
  SetLink("ge0", true);
  EXPECT_THAT(Delivered(), ElementsAre("if ge0 in default changes 1 1 record ge0"));
}

TEST_F(Records, AHundredThousandInterfacesAreReportedUpAndRemoved) {
  constexpr std::uint32_t kMany = 100'000;
  for (std::uint32_t n = 1; n <= kMany; ++n) {
    AddInterface("if" + std::to_string(n), n, "red");
    AddAddress("if" + std::to_string(n), "10.0.0.1/24");
  }
  StartClient();
  for (std::uint32_t n = 1; n <= kMany; ++n) SetLink("if" + std::to_string(n), true);
  Run();
  EXPECT_EQ(Calls().size(), kMany);
  for (std::uint32_t n = 1; n <= kMany; ++n) Remove("if" + std::to_string(n));
  EXPECT_THAT(InterfaceWalk(), IsEmpty());
  Run();
  EXPECT_EQ(Calls().size(), kMany);
}

}  // namespace
}  // namespace vtab

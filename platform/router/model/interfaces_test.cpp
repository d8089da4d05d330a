// The router model's interfaces and memberships.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"
#include "platform/router/model/test_support.h"

namespace router {
namespace {

using ::testing::ElementsAre;

TEST_F(RouterModel, AddedInterfaceIsFoundByHandleNameAndIndex) {
  const std::uint32_t handle = AddInterface("ge0", 7, "red");
  ASSERT_NE(handle, 0U);
  const Interface* interface = router_.find_interface(handle);
  ASSERT_NE(interface, nullptr);
  EXPECT_EQ(interface->handle, handle);
  EXPECT_EQ(router_.find_interface_by_name("ge0"), interface);
  EXPECT_EQ(router_.find_interface_by_index(7), interface);
  EXPECT_EQ(router_.interface_count(), 1U);
  EXPECT_THAT(Lines(), ElementsAre("records: added ge0 in red", "members: added ge0 in red",
                                   "other: added ge0 in red"));
}

TEST_F(RouterModel, TakenInterfaceNamesAndIndexesAreRefused) {
  AddInterface("ge0", 7);
  EXPECT_EQ(router_.add_interface(MakeInterface("ge0", 8)), kStatusExists);
  EXPECT_EQ(router_.add_interface(MakeInterface("ge1", 7)), kStatusExists);
  EXPECT_EQ(router_.interface_count(), 1U);
}

TEST_F(RouterModel, InterfacesOfAVrfShareItsNameAndNoTextWithTheSource) {
  const Interface source = MakeInterface("ge0", 1, "red");
  ASSERT_EQ(router_.add_interface(source), kStatusOk);
  AddInterface("ge1", 2, "blue");
  const Interface& first = *router_.find_interface_by_index(1);
  const Interface& second = *router_.find_interface_by_index(2);
  ASSERT_EQ(router_.move_interface(second.handle, "red"), kStatusOk);
  EXPECT_TRUE(second.vrf.is_same(first.vrf));
  EXPECT_FALSE(first.vrf.is_same(source.vrf));
  EXPECT_FALSE(first.name.is_same(source.name));
  EXPECT_EQ(first.name, source.name);
}

TEST_F(RouterModel, ChangedInterfaceKeepsTheNameThatServicesShare) {
  AddInterface("ge0", 1);
  const Interface& stored = *router_.find_interface_by_index(1);
  const SharedText name = stored.name;
  Interface next = MakeInterface("ge0", 1);
  next.handle = stored.handle;
  next.up = true;
  ASSERT_EQ(router_.change_interface(next), kStatusOk);
  EXPECT_TRUE(stored.name.is_same(name));
}

TEST_F(RouterModel, BadInterfacesAreRefused) {
  EXPECT_EQ(router_.add_interface(MakeInterface("", 7)), kStatusInvalid);
  EXPECT_EQ(router_.add_interface(MakeInterface(std::string(64, 'x'), 7)), kStatusInvalid);
  EXPECT_EQ(router_.add_interface(MakeInterface("ge0", 0)), kStatusInvalid);
  EXPECT_EQ(router_.add_interface(MakeInterface("ge0", 2147483648U)), kStatusInvalid);
  EXPECT_EQ(router_.add_interface(MakeInterface("ge0", 7, "")), kStatusInvalid);
  Interface odd = MakeInterface("ge0", 7);
  odd.addresses = {Address{.prefix_length = 33}};
  EXPECT_EQ(router_.add_interface(odd), kStatusInvalid);
  odd.addresses = {Address{.prefix_length = 24, .octets = {0, 0, 0, 0, 1}}};
  EXPECT_EQ(router_.add_interface(odd), kStatusInvalid) << "an IPv4 address of more than four octets";
  EXPECT_EQ(router_.interface_count(), 0U);
  EXPECT_EQ(router_.add_interface(MakeInterface(std::string(63, 'x'), 2147483647U)), kStatusOk);
}

TEST_F(RouterModel, RenamedInterfaceKeepsItsHandleAndMembership) {
  const std::uint32_t handle = AddInterface("ge0", 7, "red");
  Lines();
  Interface next = MakeInterface("ge9", 9, "blue");
  next.handle = handle;
  next.up = true;
  EXPECT_EQ(router_.change_interface(next), kStatusOk);
  EXPECT_EQ(router_.find_interface_by_name("ge0"), nullptr);
  EXPECT_EQ(router_.find_interface_by_index(7), nullptr);
  EXPECT_EQ(router_.find_interface_by_name("ge9"), router_.find_interface(handle));
  EXPECT_EQ(router_.find_interface_by_index(9), router_.find_interface(handle));
  EXPECT_EQ(router_.find_interface(handle)->vrf, "red") << "membership moves by move_interface only";
  EXPECT_THAT(Lines(), ElementsAre("records: changed ge0 to ge9 up", "members: changed ge0 to ge9 up",
                                   "other: changed ge0 to ge9 up"));
  EXPECT_EQ(router_.change_interface(next), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre()) << "nothing differed";
}

TEST_F(RouterModel, ChangeToATakenNameOrIndexIsRefused) {
  AddInterface("ge0", 7);
  Interface next = MakeInterface("ge1", 8);
  next.handle = AddInterface("ge1", 8);
  next.name = "ge0";
  EXPECT_EQ(router_.change_interface(next), kStatusExists);
  next.name = "ge1";
  next.index = 7;
  EXPECT_EQ(router_.change_interface(next), kStatusExists);
  next.index = 0;
  EXPECT_EQ(router_.change_interface(next), kStatusInvalid);
  next.handle = 99;
  EXPECT_EQ(router_.change_interface(next), kStatusNoSuchRow);
  EXPECT_EQ(router_.find_interface_by_name("ge1")->index, 8U);
}

TEST_F(RouterModel, RemovalIsNotifiedInReverseRankOrderWithTheMembership) {
  const std::uint32_t handle = AddInterface("ge0", 7, "red");
  Lines();
  EXPECT_EQ(router_.remove_interface(handle), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre("other: removed ge0 in red", "members: removed ge0 in red",
                                   "records: removed ge0 in red"));
  EXPECT_EQ(router_.find_interface(handle), nullptr);
  EXPECT_EQ(router_.find_interface_by_name("ge0"), nullptr);
  EXPECT_EQ(router_.find_interface_by_index(7), nullptr);
  EXPECT_EQ(router_.remove_interface(handle), kStatusNoSuchRow);
}

TEST_F(RouterModel, InterfaceAddedAgainHasANewHandle) {
  const std::uint32_t first = AddInterface("ge0", 7);
  ASSERT_EQ(router_.remove_interface(first), kStatusOk);
  EXPECT_NE(AddInterface("ge0", 7), first);
}

TEST_F(RouterModel, MoveNamesTheVrfThatWasLeft) {
  const std::uint32_t handle = AddInterface("ge0", 7, "red");
  Lines();
  EXPECT_EQ(router_.move_interface(handle, "blue"), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre("other: moved ge0 from red to blue", "members: moved ge0 from red to blue",
                                   "records: moved ge0 from red to blue"));
  EXPECT_EQ(router_.move_interface(handle, "blue"), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre()) << "it was there already";
  EXPECT_EQ(router_.move_interface(handle, ""), kStatusInvalid);
  EXPECT_EQ(router_.move_interface(99, "red"), kStatusNoSuchRow);
}

TEST_F(RouterModel, DeletingAVrfLeavesItsMembers) {
  AddVrf("red", 10);
  const std::uint32_t handle = AddInterface("ge0", 7, "red");
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  EXPECT_EQ(router_.find_interface(handle)->vrf, "red");
}

TEST_F(RouterModel, InterfacesAreVisitedInTheOrderOfAddition) {
  AddInterface("ge2", 30);
  AddInterface("ge0", 20);
  AddInterface("ge1", 10);
  std::vector<std::string> names;
  router_.for_each_interface([&names](const Interface& interface) { names.push_back(interface.name); });
  EXPECT_THAT(names, ElementsAre("ge2", "ge0", "ge1"));
}

TEST_F(RouterModel, FailedInterfaceChangeLeavesTheModelAsItWas) {
  const std::uint32_t handle = AddInterface("ge0", 7, "red");
  const Interface before = *router_.find_interface(handle);
  Lines();
  for (const char* point : {"router_add_interface", "router_change_interface", "router_remove_interface",
                            "router_move_interface"}) {
    fault_arm(point, kStatusIo, 1, 0);
  }
  Interface next = before;
  next.up = true;
  EXPECT_EQ(router_.add_interface(MakeInterface("ge1", 8)), kStatusIo);
  EXPECT_EQ(router_.change_interface(next), kStatusIo);
  EXPECT_EQ(router_.move_interface(handle, "blue"), kStatusIo);
  EXPECT_EQ(router_.remove_interface(handle), kStatusIo);
  fault_disarm_all();
  EXPECT_THAT(Lines(), ElementsAre());
  EXPECT_EQ(*router_.find_interface(handle), before);
  EXPECT_EQ(router_.interface_count(), 1U);
}

TEST_F(RouterModel, AHundredThousandInterfacesStayConsistentThroughMovesAndRemovals) {
  router_.stop_observing(&records_);
  router_.stop_observing(&members_);
  router_.stop_observing(&other_);
  constexpr std::uint32_t kMany = 100'000;
  for (std::uint32_t n = 1; n <= kMany; ++n) AddInterface("if" + std::to_string(n), n);
  for (std::uint32_t n = 1; n <= kMany; ++n) {
    const std::uint32_t handle = router_.find_interface_by_index(n)->handle;
    ASSERT_EQ(router_.move_interface(handle, "vrf" + std::to_string(n % 100)), kStatusOk);
    if (n % 2 == 0) {
      ASSERT_EQ(router_.remove_interface(handle), kStatusOk);
    }
  }
  EXPECT_EQ(router_.interface_count(), kMany / 2);
  EXPECT_EQ(router_.find_interface_by_name("if99999")->vrf, "vrf99");
  EXPECT_EQ(router_.find_interface_by_name("if100000"), nullptr);
}

}  // namespace
}  // namespace router

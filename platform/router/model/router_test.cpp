// The router model's VRFs, references, observers and address texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"
#include "platform/router/model/test_support.h"

namespace router {
namespace {

using ::testing::ElementsAre;

TEST_F(RouterModel, DefaultVrfExistsFromTheStartAndIsNotCounted) {
  ASSERT_NE(router_.find_vrf("default"), nullptr);
  EXPECT_EQ(router_.find_vrf("default")->id, 1U);
  EXPECT_EQ(router_.find_vrf_by_id(1), router_.find_vrf("default"));
  EXPECT_EQ(router_.vrf_count(), 0U);
}

TEST_F(RouterModel, CreatedVrfIsFoundByNameAndId) {
  AddVrf("red", 10);
  EXPECT_EQ(router_.find_vrf("red")->id, 10U);
  EXPECT_EQ(router_.find_vrf_by_id(10)->name, "red");
  EXPECT_EQ(router_.vrf_count(), 1U);
  EXPECT_THAT(Lines(), ElementsAre("records: created red", "members: created red", "other: created red"));
}

TEST_F(RouterModel, TakenNamesAndIdsAreRefused) {
  AddVrf("red", 10);
  EXPECT_EQ(router_.create_vrf(MakeVrf("red", 11)), kStatusExists);
  EXPECT_EQ(router_.create_vrf(MakeVrf("blue", 10)), kStatusExists);
  EXPECT_EQ(router_.create_vrf(MakeVrf("blue", 1)), kStatusExists) << "the id of the default VRF";
  EXPECT_EQ(router_.vrf_count(), 1U);
}

TEST_F(RouterModel, BadNamesAndIdZeroAreRefused) {
  EXPECT_EQ(router_.create_vrf(MakeVrf("", 10)), kStatusInvalid);
  EXPECT_EQ(router_.create_vrf(MakeVrf("default", 10)), kStatusInvalid);
  EXPECT_EQ(router_.create_vrf(MakeVrf("red", 0)), kStatusInvalid);
  EXPECT_EQ(router_.create_vrf(MakeVrf(std::string(32, 'a'), 10)), kStatusInvalid);
  EXPECT_EQ(router_.create_vrf(MakeVrf(std::string("a\0b", 3), 10)), kStatusInvalid);
  EXPECT_EQ(router_.create_vrf(MakeVrf(std::string(31, 'a'), 10)), kStatusOk);
}

TEST_F(RouterModel, ChangeReplacesEverythingButNameAndId) {
  AddVrf("red", 10);
  Lines();
  Vrf next = MakeVrf("red", 99);
  next.ipv4_table = 1010;
  next.rd = "65000:1";
  EXPECT_EQ(router_.change_vrf(next), kStatusOk);
  EXPECT_EQ(router_.find_vrf("red")->id, 10U);
  EXPECT_EQ(router_.find_vrf("red")->ipv4_table, 1010U);
  EXPECT_EQ(router_.find_vrf("red")->rd, "65000:1");
  EXPECT_THAT(Lines(), ElementsAre("records: changed red", "members: changed red", "other: changed red"));
  EXPECT_EQ(router_.change_vrf(next), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre()) << "nothing differed";
}

TEST_F(RouterModel, DefaultVrfMayChangeButNotBeDeleted) {
  Vrf next = MakeVrf("default", 0);
  next.ipv4_table = 254;
  EXPECT_EQ(router_.change_vrf(next), kStatusOk);
  EXPECT_EQ(router_.find_vrf("default")->ipv4_table, 254U);
  EXPECT_EQ(router_.delete_vrf("default"), kStatusInvalid);
  EXPECT_EQ(router_.change_vrf(MakeVrf("red", 10)), kStatusNoSuchRow);
  EXPECT_EQ(router_.change_vrf(MakeVrf("", 10)), kStatusInvalid);
}

TEST_F(RouterModel, ObserversAreNotifiedOfADeletionInReverseRankOrder) {
  AddVrf("red", 10);
  Lines();
  EXPECT_EQ(router_.delete_vrf("red"), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre("other: deleted red", "members: deleted red", "records: deleted red"));
  EXPECT_EQ(router_.find_vrf("red"), nullptr);
  EXPECT_EQ(router_.find_vrf_by_id(10), nullptr);
  EXPECT_EQ(router_.delete_vrf("red"), kStatusNoSuchRow);
}

TEST_F(RouterModel, ReferenceOutlivesTheVrf) {
  EXPECT_EQ(router_.reference_vrf("red"), kStatusOk);
  EXPECT_THAT(Lines(),
              ElementsAre("records: referenced red", "members: referenced red", "other: referenced red"));
  AddVrf("red", 10);
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  EXPECT_TRUE(router_.is_referenced("red"));
  Lines();
  EXPECT_EQ(router_.unreference_vrf("red"), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre("other: unreferenced red", "members: unreferenced red",
                                   "records: unreferenced red"));
  EXPECT_FALSE(router_.is_referenced("red"));
}

TEST_F(RouterModel, ReferenceToAnExistingVrfIsNotNotified) {
  AddVrf("red", 10);
  Lines();
  EXPECT_EQ(router_.reference_vrf("red"), kStatusOk);
  EXPECT_EQ(router_.unreference_vrf("red"), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre());
}

TEST_F(RouterModel, ReferenceLastsWhileAnyHolderNamesTheVrf) {
  using router::ReferenceHolder;
  ASSERT_EQ(router_.reference_vrf("red", ReferenceHolder::kSource), kStatusOk);
  Lines();
  EXPECT_EQ(router_.reference_vrf("red", ReferenceHolder::kConfiguration), kStatusOk);
  EXPECT_EQ(router_.reference_vrf("red", ReferenceHolder::kConfiguration), kStatusExists);
  EXPECT_EQ(router_.unreference_vrf("red", ReferenceHolder::kSource), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre()) << "it is named as before";
  EXPECT_TRUE(router_.is_referenced("red"));
  EXPECT_FALSE(router_.is_referenced("red", ReferenceHolder::kSource));
  EXPECT_EQ(router_.unreference_vrf("red", ReferenceHolder::kSource), kStatusNoSuchRow);
  EXPECT_EQ(router_.unreference_vrf("red", ReferenceHolder::kConfiguration), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre("other: unreferenced red", "members: unreferenced red",
                                   "records: unreferenced red"));
  EXPECT_FALSE(router_.is_referenced("red"));
}

TEST_F(RouterModel, ReferencesAreNotCounted) {
  EXPECT_EQ(router_.reference_vrf("red"), kStatusOk);
  EXPECT_EQ(router_.reference_vrf("red"), kStatusExists);
  EXPECT_EQ(router_.unreference_vrf("red"), kStatusOk);
  EXPECT_EQ(router_.unreference_vrf("red"), kStatusNoSuchRow);
  EXPECT_EQ(router_.reference_vrf("default"), kStatusInvalid);
  EXPECT_EQ(router_.reference_vrf(""), kStatusInvalid);
}

TEST_F(RouterModel, VrfsAndReferencesAreVisitedShorterNamesFirst) {
  AddVrf("vrf10", 10);
  AddVrf("vrf9", 9);
  AddVrf("blue", 8);
  ASSERT_EQ(router_.reference_vrf("green"), kStatusOk);
  ASSERT_EQ(router_.reference_vrf("tan"), kStatusOk);
  std::vector<std::string> names;
  router_.for_each_vrf([&names](const Vrf& vrf) { names.push_back(vrf.name); });
  EXPECT_THAT(names, ElementsAre("blue", "vrf9", "vrf10", "default"));
  names.clear();
  router_.for_each_reference([&names](const std::string& name) { names.push_back(name); });
  EXPECT_THAT(names, ElementsAre("tan", "green"));
}

TEST_F(RouterModel, ChangesFromInsideAVisitAreRefused) {
  AddVrf("red", 10);
  Status inside = kStatusOk;
  router_.for_each_vrf([&](const Vrf&) { inside = router_.delete_vrf("red"); });
  EXPECT_EQ(inside, kStatusDeadlock);
  EXPECT_NE(router_.find_vrf("red"), nullptr);
  EXPECT_EQ(router_.delete_vrf("red"), kStatusOk);
}

TEST_F(RouterModel, ChangesFromInsideANotificationAreRefused) {
  struct Meddler : Observer {
    explicit Meddler(Router* model) : model_(model) {}
    void vrf_created(const Vrf& vrf) override { answer_ = model_->delete_vrf(vrf.name); }
    Router* model_;
    Status answer_ = kStatusOk;
  } meddler(&router_);
  router_.observe(ObserverRank::kOther, &meddler);
  AddVrf("red", 10);
  EXPECT_EQ(meddler.answer_, kStatusDeadlock);
  EXPECT_NE(router_.find_vrf("red"), nullptr);
  router_.stop_observing(&meddler);
}

TEST_F(RouterModel, ObserverThatStoppedIsNotNotified) {
  router_.stop_observing(&members_);
  AddVrf("red", 10);
  EXPECT_THAT(Lines(), ElementsAre("records: created red", "other: created red"));
}

TEST_F(RouterModel, FailedVrfChangeLeavesTheModelAsItWas) {
  AddVrf("red", 10);
  Lines();
  for (const char* point : {"router_create_vrf", "router_change_vrf", "router_delete_vrf",
                            "router_reference_vrf", "router_unreference_vrf"}) {
    fault_arm(point, kStatusIo, 1, 0);
  }
  Vrf next = MakeVrf("red", 10);
  next.description = "other";
  EXPECT_EQ(router_.create_vrf(MakeVrf("blue", 11)), kStatusIo);
  EXPECT_EQ(router_.change_vrf(next), kStatusIo);
  EXPECT_EQ(router_.delete_vrf("red"), kStatusIo);
  EXPECT_EQ(router_.reference_vrf("red"), kStatusIo);
  EXPECT_EQ(router_.unreference_vrf("red"), kStatusIo);
  fault_disarm_all();
  EXPECT_THAT(Lines(), ElementsAre());
  EXPECT_EQ(*router_.find_vrf("red"), MakeVrf("red", 10));
  EXPECT_EQ(router_.vrf_count(), 1U);
}

TEST(AddressText, RoundTripsBothFamilies) {
  Address address;
  ASSERT_TRUE(parse_address("10.0.0.1/24", &address));
  EXPECT_EQ(address.family, Family::kIpv4);
  EXPECT_EQ(address.prefix_length, 24);
  EXPECT_EQ(address.octets[0], 10);
  EXPECT_EQ(address.octets[3], 1);
  EXPECT_EQ(format_address(address), "10.0.0.1/24");
  ASSERT_TRUE(parse_address("2001:DB8::1/64", &address));
  EXPECT_EQ(address.family, Family::kIpv6);
  EXPECT_EQ(format_address(address), "2001:db8::1/64");
}

TEST(AddressText, LengthDefaultsToAHost) {
  Address address;
  ASSERT_TRUE(parse_address("192.0.2.1", &address));
  EXPECT_EQ(address.prefix_length, 32);
  ASSERT_TRUE(parse_address("::1", &address));
  EXPECT_EQ(address.prefix_length, 128);
}

TEST(AddressText, InvalidTextIsRejectedAndWritesNothing) {
  Address address;
  ASSERT_TRUE(parse_address("192.0.2.1/7", &address));
  const Address before = address;
  for (const char* text :
       {"", "/24", "10.0.0.1/", "10.0.0.1/33", "10.0.0.1/-1", "10.0.0.1/+8", "10.0.0.1/2x", "10.0.0.1/0008",
        "10.0.0", "10.0.0.256", "::1/129", "fe80::1%eth0", " 10.0.0.1", "red"}) {
    EXPECT_FALSE(parse_address(text, &address)) << text;
  }
  EXPECT_FALSE(parse_address(std::string_view("10.0.0.1\0x", 10), &address));
  EXPECT_EQ(address, before);
}

}  // namespace
}  // namespace router

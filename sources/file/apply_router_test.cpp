// The model is changed to a router file: which notifications observers receive, and in which order.
#include "sources/file/apply_router.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"
#include "platform/router/model/test_support.h"

namespace router_file {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Reconciled : public ::testing::Test {
 protected:
  Reconciled() { router_.observe(router::ObserverRank::kOther, &listener_); }

  Status Try(const std::string& text) {
    RouterFile file;
    ParseError error;
    EXPECT_TRUE(parse(text, &file, &error)) << error.what;
    notifications_.clear();
    RouterApplication application(&file, &router_);
    Status status = kStatusOk;
    for (steps_ = 0; status == kStatusOk && !application.is_done(); ++steps_) status = application.step(1);
    changes_ = application.changes();
    error_ = application.error();
    return status;
  }
  void Load(const std::string& text) { ASSERT_EQ(Try(text), kStatusOk) << error_; }

  std::vector<std::string> notifications_;
  router::Listener listener_{"r", &notifications_};
  router::Router router_;
  Changes changes_;
  std::size_t steps_ = 0;  // of one item
  std::string error_;
};

constexpr char kRedAndBlue[] =
    "vrfs: [{name: red, id: 10}, {name: blue, id: 20}]\n"
    "interfaces: [{name: ge0, index: 1, vrf: red}, {name: ge1, index: 2, vrf: blue}]\n";

TEST_F(Reconciled, FirstLoadCreatesVrfsBeforeTheirInterfaces) {
  Load(kRedAndBlue);
  EXPECT_THAT(notifications_, ElementsAre("r: created red", "r: created blue", "r: added ge0 in red",
                                          "r: added ge1 in blue"));
  EXPECT_EQ(changes_text(changes_), "2 VRFs created, 2 interfaces added");
}

TEST_F(Reconciled, SameFileAgainNotifiesNoObserver) {
  Load(kRedAndBlue);
  Load(kRedAndBlue);
  EXPECT_THAT(notifications_, IsEmpty());
  EXPECT_EQ(changes_text(changes_), "nothing changed");
}

TEST_F(Reconciled, WhatIsRemovedIsFoundInSteps) {
  constexpr std::size_t kVrfs = 20;
  constexpr std::size_t kInterfaces = 100;
  Load("generate: {vrfs: 20, interfaces_per_vrf: 5}");
  for (std::size_t name = 0; name < kVrfs; ++name)
    ASSERT_EQ(router_.reference_vrf("absent" + std::to_string(name)), kStatusOk);
  Load("vrfs: []");
  EXPECT_EQ(changes_text(changes_), "20 VRFs deleted, 100 interfaces removed");
  EXPECT_EQ(router_.reference_after({}), nullptr);
  EXPECT_GE(steps_, 2 * (kVrfs + kVrfs + kInterfaces)) << "each is found, then removed";
}

TEST_F(Reconciled, EmptyRouterRemovesEverything) {
  Load(kRedAndBlue);
  Load("vrfs: []");
  EXPECT_THAT(notifications_, ElementsAre("r: removed ge0 in red", "r: removed ge1 in blue", "r: deleted red",
                                          "r: deleted blue"));
  EXPECT_EQ(changes_text(changes_), "2 VRFs deleted, 2 interfaces removed");
}

TEST_F(Reconciled, OnlyWhatDiffersIsChanged) {
  Load(kRedAndBlue);
  Load(
      "vrfs: [{name: red, id: 10, description: new}, {name: blue, id: 20}]\n"
      "interfaces: [{name: ge0, index: 1, vrf: red}, {name: ge1, index: 2, vrf: blue, state: down}]\n");
  EXPECT_THAT(notifications_, ElementsAre("r: changed red", "r: changed ge1 to ge1 down"));
  EXPECT_EQ(router_.find_vrf("red")->description, "new");
  EXPECT_EQ(changes_text(changes_), "1 VRF changed, 1 interface changed");
}

TEST_F(Reconciled, EveryDetailOfAVrfCounts) {
  const std::string plain = "vrfs: [{name: red, id: 10, tables: {ipv4: 1}}]";
  for (const char* other :
       {"tables: {ipv4: 2}", "tables: {ipv4: 1, ipv6: 1}", "tables: {ipv4: 1, ipv4-multicast: 1}",
        "tables: {ipv4: 1, ipv6-multicast: 1}", "tables: {ipv4: 1}, big: true", "tables: {ipv4: 1}, rd: 1:1",
        "tables: {ipv4: 1}, description: d"}) {
    Load(plain);
    Load("vrfs: [{name: red, id: 10, " + std::string(other) + "}]");
    EXPECT_THAT(notifications_, ElementsAre("r: changed red")) << other;
  }
}

TEST_F(Reconciled, EveryDetailOfAnInterfaceCounts) {
  const std::string plain = "interfaces: [{name: ge0, index: 1, addresses: [10.0.0.1/24, 10.0.1.1/24]}]";
  for (const char* other :
       {"state: down, addresses: [10.0.0.1/24, 10.0.1.1/24]", "addresses: [10.0.1.1/24, 10.0.0.1/24]",
        "addresses: [10.0.0.1/24, 10.0.1.1/25]", "description: d, addresses: [10.0.0.1/24, 10.0.1.1/24]"}) {
    Load(plain);
    Load("interfaces: [{name: ge0, index: 1, " + std::string(other) + "}]");
    EXPECT_EQ(notifications_.size(), 1U) << other;
  }
}

TEST_F(Reconciled, MemberMovesBetweenVrfs) {
  Load(kRedAndBlue);
  Load(
      "vrfs: [{name: red, id: 10}, {name: blue, id: 20}]\n"
      "interfaces: [{name: ge0, index: 1, vrf: blue}, {name: ge1, index: 2}]\n");
  EXPECT_THAT(notifications_,
              ElementsAre("r: moved ge0 from red to blue", "r: moved ge1 from blue to default"));
  EXPECT_EQ(changes_text(changes_), "2 interfaces moved");
}

TEST_F(Reconciled, MembershipMayOutliveItsVrf) {
  Load(kRedAndBlue);
  Load(
      "vrfs: [{name: blue, id: 20}]\n"
      "interfaces: [{name: ge0, index: 1, vrf: red}, {name: ge1, index: 2, vrf: blue}]\n");
  EXPECT_THAT(notifications_, ElementsAre("r: deleted red"));
  EXPECT_EQ(router_.find_interface_by_index(1)->vrf, "red");
}

TEST_F(Reconciled, RenamedVrfTransfersItsIdAndMembers) {
  Load(kRedAndBlue);
  Load(
      "vrfs: [{name: crimson, id: 10}, {name: blue, id: 20}]\n"
      "interfaces: [{name: ge0, index: 1, vrf: crimson}, {name: ge1, index: 2, vrf: blue}]\n");
  EXPECT_THAT(notifications_, ElementsAre("r: moved ge0 from red to default", "r: deleted red",
                                          "r: created crimson", "r: moved ge0 from default to crimson"));
  EXPECT_EQ(changes_text(changes_), "1 VRF created, 1 VRF deleted, 1 interface moved");
}

TEST_F(Reconciled, VrfWithANewIdIsAnotherVrf) {
  Load(kRedAndBlue);
  Load(
      "vrfs: [{name: red, id: 11}, {name: blue, id: 20}]\n"
      "interfaces: [{name: ge0, index: 1, vrf: red}, {name: ge1, index: 2, vrf: blue}]\n");
  EXPECT_THAT(notifications_, ElementsAre("r: moved ge0 from red to default", "r: deleted red",
                                          "r: created red", "r: moved ge0 from default to red"));
}

TEST_F(Reconciled, InterfaceWithANewNameIsRenamed) {
  Load("interfaces: [{name: ge0, index: 1}]");
  Load("interfaces: [{name: ge9, index: 1}]");
  EXPECT_THAT(notifications_, ElementsAre("r: changed ge0 to ge9 up"));
}

TEST_F(Reconciled, InterfaceWithANewIndexIsAnotherInterface) {
  Load("interfaces: [{name: ge0, index: 1}]");
  Load("interfaces: [{name: ge0, index: 5}]");
  EXPECT_THAT(notifications_, ElementsAre("r: removed ge0 in default", "r: added ge0 in default"));
}

TEST_F(Reconciled, ReferencedVrfIsCompletedBeforeTheReferenceEnds) {
  Load("vrfs: [{name: later, state: referenced}]");
  EXPECT_THAT(notifications_, ElementsAre("r: referenced later"));
  Load("vrfs: [{name: later, id: 9}]");
  EXPECT_THAT(notifications_, ElementsAre("r: created later"));
  EXPECT_FALSE(router_.is_referenced("later"));
}

TEST_F(Reconciled, VrfBecomesAReferenceWithoutAGap) {
  Load("vrfs: [{name: later, id: 9}]");
  Load("vrfs: [{name: later, state: referenced}]");
  EXPECT_TRUE(router_.is_referenced("later"));
  EXPECT_EQ(router_.find_vrf("later"), nullptr);
  for (const std::string& line : notifications_) EXPECT_NE(line, "r: unreferenced later");
}

TEST_F(Reconciled, ReferenceOfTheConfigurationRemains) {
  ASSERT_EQ(router_.reference_vrf("later", router::ReferenceHolder::kConfiguration), kStatusOk);
  Load("vrfs: [{name: later, state: referenced}]");
  Load("vrfs: []");
  EXPECT_TRUE(router_.is_referenced("later"));
  EXPECT_FALSE(router_.is_referenced("later", router::ReferenceHolder::kSource));
}

TEST_F(Reconciled, ReferenceEndsWithTheFile) {
  Load("vrfs: [{name: later, state: referenced}]");
  Load("vrfs: []");
  EXPECT_THAT(notifications_, ElementsAre("r: unreferenced later"));
}

TEST_F(Reconciled, ObjectsAddedByOtherMeansAreRemoved) {
  router::Vrf stray;
  stray.name = "stray";
  stray.id = 99;
  ASSERT_EQ(router_.create_vrf(stray), kStatusOk);
  Load("vrfs: []");
  EXPECT_THAT(notifications_, ElementsAre("r: deleted stray"));
}

// Everything a file can do to a router at once: old and new text have each kind of change.
TEST_F(Reconciled, EachChangeThatTheModelRefusesEndsTheRun) {
  constexpr char kOld[] =
      "vrfs: [{name: a, id: 10}, {name: b, id: 20}, {name: ended, state: referenced}]\n"
      "interfaces: [{name: ge0, index: 1, vrf: a}, {name: ge1, index: 2}, {name: ge2, index: 3}]\n";
  constexpr char kNew[] =
      "vrfs: [{name: b, id: 20, rd: '1:1'}, {name: c, id: 30}, {name: begun, state: referenced}]\n"
      "interfaces: [{name: ge0, index: 1, vrf: b}, {name: ge1, index: 2, state: down}, {name: ge4, index: "
      "4}]\n";
  constexpr const char* kRefused[] = {"cannot reference VRF begun",
                                      "cannot remove interface ge2",
                                      "cannot move interface ge0",
                                      "cannot delete VRF a",
                                      "cannot change VRF b",
                                      "cannot create VRF c",
                                      "cannot end the reference to VRF ended",
                                      "cannot move interface ge0",
                                      "cannot change interface ge1",
                                      "cannot add interface ge4"};
  std::uint32_t change = 0;
  for (const char* refused : kRefused) {
    Load(kOld);
    const ScopedFault fault("reconcile", kStatusIo, ++change);
    EXPECT_EQ(Try(kNew), kStatusIo) << refused;
    EXPECT_EQ(error_, std::string(refused) + ": Input/output error");
  }
  Load(kOld);
  Load(kNew);
}

TEST_F(Reconciled, TenThousandVrfsWithTenInterfacesEach) {
  Load("generate: {vrfs: 10000, interfaces_per_vrf: 10}");
  EXPECT_EQ(router_.vrf_count(), 10'000U);
  EXPECT_EQ(router_.interface_count(), 100'000U);
  Load("generate: {vrfs: 10000, interfaces_per_vrf: 10}");
  EXPECT_THAT(notifications_, IsEmpty());
}

}  // namespace
}  // namespace router_file

// What policies decide. The sources' tests cover the order of the changes.
#include "sources/reconcile/reconcile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/feed/feed.h"
#include "platform/router/model/test_support.h"

namespace reconcile {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Continuing : public Policy {
 public:
  Status on_refusal(const Refusal& refusal) override {
    refusals.push_back(refusal.text());
    return kStatusOk;
  }
  std::uint32_t choose_id(const router::Vrf& vrf) override { return vrf.ipv4_table; }
  bool allows_missing_vrfs() const override { return missing_vrfs; }

  std::vector<std::string> refusals;
  bool missing_vrfs = true;
};

class Reconciliation : public ::testing::Test {
 protected:
  static WantedVrf Vrf(const std::string& name, std::uint32_t table, const std::string& replaces = "") {
    WantedVrf wanted;
    wanted.vrf.name = name;
    wanted.vrf.ipv4_table = table;
    wanted.replaces = replaces;
    return wanted;
  }
  static router::Interface Interface(std::uint32_t index, const std::string& name,
                                     const std::string& vrf = "default") {
    router::Interface interface;
    interface.index = index;
    interface.name = name;
    interface.vrf = vrf;
    return interface;
  }
  void Run(const WantedRouter& wanted) {
    policy_.refusals.clear();
    ASSERT_EQ(run(wanted, &model_, &policy_, &changes_), kStatusOk);
  }
  std::string NameOf(std::uint32_t index) const { return model_.find_interface_by_index(index)->name; }

  router::Router model_;
  Continuing policy_;
  Changes changes_;
};

TEST_F(Reconciliation, RefusedDeletionPreventsTheReplacementAndNothingElse) {
  WantedRouter wanted;
  wanted.vrfs = {Vrf("red", 10)};
  wanted.interfaces = {Interface(5, "d0", "red")};
  Run(wanted);
  wanted.deleted_vrfs = {"red"};
  wanted.vrfs = {Vrf("crimson", 10, "red"), Vrf("blue", 20)};
  wanted.interfaces = {Interface(5, "d0", "crimson")};
  {
    const ScopedFault fault("router_delete_vrf", kStatusNoMemory);
    Run(wanted);
  }
  EXPECT_THAT(policy_.refusals, ElementsAre("cannot delete VRF red: Cannot allocate memory",
                                            "cannot create VRF crimson: File exists"));
  EXPECT_NE(model_.find_vrf("red"), nullptr);
  EXPECT_NE(model_.find_vrf("blue"), nullptr);
  EXPECT_EQ(changes_.vrfs_created, 1U);
  wanted.vrfs = {Vrf("crimson", 10, "red")};
  Run(wanted);
  EXPECT_THAT(policy_.refusals, IsEmpty());
  EXPECT_EQ(model_.find_vrf("red"), nullptr);
  EXPECT_EQ(model_.find_vrf("crimson")->id, 10U);
}

TEST_F(Reconciliation, MemberThatCannotLeavePreventsTheDeletion) {
  WantedRouter wanted;
  wanted.vrfs = {Vrf("red", 10)};
  wanted.interfaces = {Interface(5, "d0", "red")};
  Run(wanted);
  wanted = {};
  wanted.deleted_vrfs = {"red"};
  wanted.interfaces = {Interface(5, "d0")};
  const ScopedFault fault("router_move_interface", kStatusNoMemory, 1, 1);
  Run(wanted);
  EXPECT_THAT(policy_.refusals, ElementsAre("cannot move interface d0: Cannot allocate memory"));
  EXPECT_NE(model_.find_vrf("red"), nullptr);
}

TEST_F(Reconciliation, MembersOfDeletedVrfsAreFoundInSteps) {
  constexpr std::uint32_t kInterfaces = 100;
  WantedRouter wanted;
  wanted.vrfs = {Vrf("red", 10), Vrf("blue", 20)};
  for (std::uint32_t index = 1; index <= kInterfaces; ++index)
    wanted.interfaces.push_back(Interface(index, "d" + std::to_string(index), index == 7 ? "red" : "blue"));
  Run(wanted);
  wanted = {};
  wanted.deleted_vrfs = {"red"};
  reconcile::Run run(wanted, &model_, &policy_);
  std::uint32_t steps = 0;
  for (; !run.is_done(); ++steps) ASSERT_EQ(run.step(1), kStatusOk);
  EXPECT_EQ(run.changes().interfaces_moved, 1U);
  EXPECT_EQ(model_.find_interface_by_index(7)->vrf, "default");
  EXPECT_EQ(model_.find_vrf("red"), nullptr);
  EXPECT_GT(steps, kInterfaces);
}

TEST_F(Reconciliation, StepsWaitWhileManyNotificationsArePending) {
  const TestRunDirectory directory;
  EventManager* const manager = event_manager_create("/dev/test/main", 0);
  const feed::Receiver receiver{manager};
  std::size_t delivered = 0;
  for (std::size_t i = 0; i < 2 * feed::kLongQueue; ++i)
    feed::append(0, feed::Phase::kJoined, &receiver, [&delivered] { ++delivered; });
  WantedRouter wanted;
  wanted.interfaces = {Interface(5, "d0")};
  reconcile::Run run(wanted, &model_, &policy_);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(run.step(1), kStatusOk);
  EXPECT_EQ(model_.find_interface_by_index(5), nullptr);
  while (event_run_pending(manager)) {
  }
  EXPECT_EQ(delivered, 2 * feed::kLongQueue);
  while (!run.is_done()) ASSERT_EQ(run.step(1), kStatusOk);
  EXPECT_NE(model_.find_interface_by_index(5), nullptr);
  event_manager_destroy(manager);
}

TEST_F(Reconciliation, PolicyDecidesOverMembershipsInMissingVrfs) {
  WantedRouter wanted;
  wanted.interfaces = {Interface(5, "d0", "red")};
  Run(wanted);
  EXPECT_EQ(model_.find_interface_by_index(5)->vrf, "red");
  policy_.missing_vrfs = false;
  Run(wanted);
  EXPECT_EQ(model_.find_interface_by_index(5)->vrf, "default");
  wanted.vrfs = {Vrf("red", 10)};
  Run(wanted);
  EXPECT_EQ(model_.find_interface_by_index(5)->vrf, "red");
}

TEST_F(Reconciliation, NamesRotateWithoutNewHandles) {
  WantedRouter wanted;
  wanted.interfaces = {Interface(5, "a"), Interface(6, "b"), Interface(7, "c")};
  Run(wanted);
  const std::uint32_t handle = model_.find_interface_by_name("a")->handle;
  wanted.interfaces = {Interface(5, "b"), Interface(6, "c"), Interface(7, "a")};
  Run(wanted);
  EXPECT_THAT(policy_.refusals, IsEmpty());
  EXPECT_THAT((std::vector<std::string>{NameOf(5), NameOf(6), NameOf(7)}), ElementsAre("b", "c", "a"));
  EXPECT_EQ(model_.find_interface_by_name("b")->handle, handle);
  EXPECT_EQ(changes_.interfaces_changed, 3U);
}

TEST_F(Reconciliation, ObjectsInNoListAreLeftUnchanged) {
  WantedRouter wanted;
  wanted.vrfs = {Vrf("red", 10)};
  wanted.interfaces = {Interface(5, "d0", "red")};
  Run(wanted);
  std::vector<std::string> notifications;
  router::Listener listener("r", &notifications);
  model_.observe(router::ObserverRank::kOther, &listener);
  Run({});
  wanted.vrfs[0].vrf = *model_.find_vrf("red");
  Run(wanted);
  EXPECT_THAT(notifications, IsEmpty());
  model_.stop_observing(&listener);
}

TEST_F(Reconciliation, ObjectThatIsRemovedAndWantedIsMadeAnew) {
  WantedRouter wanted;
  wanted.interfaces = {Interface(5, "d0")};
  Run(wanted);
  const std::uint32_t handle = model_.find_interface_by_index(5)->handle;
  wanted.removed_interfaces = {5};
  Run(wanted);
  EXPECT_NE(model_.find_interface_by_index(5)->handle, handle);
}

}  // namespace
}  // namespace reconcile

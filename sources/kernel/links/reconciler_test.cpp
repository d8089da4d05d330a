// Which changes the kernel's state makes in the model, and in which order. The listener also checks that no
// interface joins a VRF before it exists and that no VRF is deleted with members.
#include "sources/kernel/links/reconciler.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "sources/kernel/test_support.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Does something for each interface that is added.
class SlowObserver : public router::Observer {
 public:
  SlowObserver(router::Router* model, std::function<void()> work) : model_(model), work_(std::move(work)) {
    model_->observe(router::ObserverRank::kOther, this);
  }
  ~SlowObserver() override { model_->stop_observing(this); }
  SlowObserver(const SlowObserver&) = delete;
  SlowObserver& operator=(const SlowObserver&) = delete;
  void interface_added(const router::Interface&) override { work_(); }

 private:
  router::Router* model_;
  std::function<void()> work_;
};

class KernelModel : public ::testing::Test {
 protected:
  void AddVrf(const std::string& name, std::uint32_t index, std::uint32_t table) {
    mirror_.apply(LinkSeen{VrfLink(name, index, table)});
  }
  void AddLink(const std::string& name, std::uint32_t index, std::uint32_t master = 0, bool up = false) {
    mirror_.apply(LinkSeen{{.index = index, .name = name, .vrf_master = master, .up = up}});
  }
  template <typename Change>
  void Alter(std::uint32_t index, Change change) {
    Link link = *mirror_.find(index);
    change(&link);
    mirror_.apply(LinkSeen{link});
  }
  void Enslave(std::uint32_t index, std::uint32_t master) {
    Alter(index, [=](Link* link) { link->vrf_master = master; });
  }
  void Rename(std::uint32_t index, const std::string& name) {
    Alter(index, [&](Link* link) { link->name = name; });
  }
  void SetAlias(std::uint32_t index, const std::string& alias) {
    Alter(index, [&](Link* link) { link->alias = alias; });
  }
  void Delete(std::uint32_t index) { mirror_.apply(LinkRemoved{index}); }
  // Updates the model and returns its notifications.
  std::vector<std::string> Settle() {
    reconciler_.run(mirror_, mirror_.take_changes());
    return listener_.TakeLines();
  }
  std::uint32_t VrfId(const std::string& name) const {
    const router::Vrf* vrf = model_.find_vrf(name);
    return vrf == nullptr ? 0 : vrf->id;
  }
  std::uint32_t HandleOf(const std::string& name) const {
    const router::Interface* interface = model_.find_interface_by_name(name);
    return interface == nullptr ? 0 : interface->handle;
  }

  router::Router model_;
  Listener listener_{&model_};
  Mirror mirror_;
  Reconciler reconciler_{&model_};
};

TEST_F(KernelModel, VrfIsCreatedBeforeItsInterfacesWithAnyIndexes) {
  AddLink("d0", 5, 7);
  AddVrf("red", 7, 10);
  EXPECT_THAT(Settle(), ElementsAre("created red", "added d0 in red down"));
}

TEST_F(KernelModel, ManyLinksAreReadInStepsBeforeAnyChange) {
  constexpr std::uint32_t kLinks = 1000;
  constexpr std::size_t kItems = 10;
  AddVrf("red", 1, 10);
  for (std::uint32_t index = 2; index < kLinks + 2; ++index) AddLink("d" + std::to_string(index), index, 1);
  reconciler_.begin(mirror_, mirror_.take_changes());
  EXPECT_TRUE(reconciler_.is_reading());
  std::size_t steps = 0;
  for (; reconciler_.is_reading(); ++steps) reconciler_.step(kItems);
  EXPECT_GE(steps, kLinks / kItems);
  EXPECT_THAT(listener_.TakeLines(), IsEmpty());
  for (steps = 0; model_.interface_count() < kLinks; ++steps) reconciler_.step(kItems);
  EXPECT_GE(steps, kLinks / kItems);
  for (steps = 0; !reconciler_.is_done(); ++steps) reconciler_.step(kItems);
  EXPECT_GE(steps, kLinks / kItems) << "what was read is freed in steps, too";
}

TEST_F(KernelModel, MembersOfADeletedVrfAreFoundInSteps) {
  constexpr std::uint32_t kLinks = 200;
  AddVrf("red", 1, 10);
  for (std::uint32_t index = 2; index < kLinks + 2; ++index) AddLink("d" + std::to_string(index), index);
  Settle();
  Delete(1);
  reconciler_.begin(mirror_, mirror_.take_changes());
  std::size_t steps = 0;
  for (; reconciler_.is_reading(); ++steps) reconciler_.step(1);
  EXPECT_GT(steps, 2 * kLinks) << "the links are read, then the interfaces";
}

TEST_F(KernelModel, StepEndsWhenItsTimeHasPassed) {
  ManualClock clock(1000);
  for (std::uint32_t index = 2; index < 12; ++index) AddLink("d" + std::to_string(index), index);
  SlowObserver slow(&model_, [&clock] { clock.advance(reconcile::kStepTime / 2); });
  reconciler_.begin(mirror_, mirror_.take_changes());
  std::size_t most = 0;
  for (std::size_t before = 0; !reconciler_.is_done(); before = model_.interface_count()) {
    reconciler_.step(SIZE_MAX);
    most = std::max(most, model_.interface_count() - before);
  }
  EXPECT_EQ(model_.interface_count(), 10U);
  EXPECT_EQ(most, 2U);
}

TEST_F(KernelModel, InterfaceWhoseMasterIsNotYetKnownJoinsLater) {
  AddLink("d0", 5, 7);
  EXPECT_THAT(Settle(), ElementsAre("added d0 in default down"));
  AddVrf("red", 7, 10);
  EXPECT_THAT(Settle(), ElementsAre("created red", "moved d0 from default to red"));
}

TEST_F(KernelModel, MasterThatIsNotAVrfDeviceMakesNoMembership) {
  AddLink("br0", 7);
  AddLink("d0", 5, 7);
  Settle();
  EXPECT_EQ(model_.find_interface_by_name("d0")->vrf, "default");
}

TEST_F(KernelModel, InterfaceAndVrfDeletedTogetherAreRemovedInThatOrder) {
  AddVrf("red", 2, 10);
  AddLink("d0", 5, 2);
  Settle();
  Delete(2);
  Delete(5);
  EXPECT_THAT(Settle(), ElementsAre("removed d0 in red", "deleted red"));
}

TEST_F(KernelModel, TwoVrfsSwapTheirNames) {
  AddVrf("red", 2, 10);
  AddVrf("blue", 3, 20);
  AddLink("d0", 5, 2);
  Settle();
  Rename(2, "tmp");
  Rename(3, "red");
  Rename(2, "blue");
  Settle();
  EXPECT_EQ(VrfId("red"), 20U);
  EXPECT_EQ(VrfId("blue"), 10U);
  EXPECT_EQ(model_.find_interface_by_name("d0")->vrf, "blue");
}

TEST_F(KernelModel, VrfDeletedAndCreatedInOneBatchIsANewVrf) {
  AddVrf("red", 2, 10);
  AddLink("d0", 5, 2);
  Settle();
  Enslave(5, 0);
  Delete(2);
  AddVrf("red", 12, 10);
  Enslave(5, 12);
  EXPECT_THAT(Settle(), ElementsAre("moved d0 from red to default", "deleted red", "created red",
                                    "moved d0 from default to red"));
}

TEST_F(KernelModel, VrfCreatedAgainWithTheSameIndexIsANewVrf) {
  AddVrf("red", 2, 10);
  Settle();
  Delete(2);
  AddVrf("red", 2, 10);
  EXPECT_THAT(Settle(), ElementsAre("deleted red", "created red"));
}

TEST_F(KernelModel, VrfOfAnotherTableUnderTheSameIndexIsANewVrf) {
  AddVrf("red", 2, 10);
  Settle();
  AddVrf("red", 2, 11);
  EXPECT_THAT(Settle(), ElementsAre("deleted red", "created red"));
  EXPECT_EQ(VrfId("red"), 11U);
}

TEST_F(KernelModel, IndexThatBecomesAVrfIsNoLongerAnInterface) {
  AddLink("d0", 5);
  Settle();
  AddVrf("red", 5, 10);
  EXPECT_THAT(Settle(), ElementsAre("removed d0 in default", "created red"));
  AddLink("d0", 5);
  EXPECT_THAT(Settle(), ElementsAre("deleted red", "added d0 in default down"));
}

TEST_F(KernelModel, NameFreedByADeletionIsTakenInOneBatch) {
  AddLink("d0", 6);
  Settle();
  Delete(6);
  AddLink("d0", 5);
  EXPECT_THAT(Settle(), ElementsAre("removed d0 in default", "added d0 in default down"));
}

TEST_F(KernelModel, InterfaceWithAnAmbiguousNameHasATemporaryName) {
  AddLink("d0", 5);
  Settle();
  const std::uint32_t handle = HandleOf("d0");
  AddLink("d0", 6);
  EXPECT_THAT(Settle(), ElementsAre("renamed d0 to :5", "added d0 in default down"));
  Rename(5, "d1");
  EXPECT_THAT(Settle(), ElementsAre("renamed :5 to d1"));
  EXPECT_EQ(HandleOf("d1"), handle);
}

TEST_F(KernelModel, SecondVrfOnOneTableGetsAnIdOfItsOwn) {
  AddVrf("red", 2, 10);
  AddVrf("dup", 9, 10);
  AddVrf("third", 11, 10);
  Settle();
  EXPECT_EQ(VrfId("red"), 10U);
  EXPECT_EQ(VrfId("dup"), 0x8000000aU);
  EXPECT_EQ(VrfId("third"), 0x8000000bU);
  EXPECT_EQ(model_.find_vrf("dup")->ipv4_table, 10U);
  EXPECT_EQ(model_.find_vrf("third")->ipv6_table, 10U);
}

TEST_F(KernelModel, SecondVrfKeepsItsIdWhenTheFirstIsDeleted) {
  AddVrf("red", 2, 10);
  AddVrf("dup", 9, 10);
  Settle();
  Delete(2);
  SetAlias(9, "alone");
  EXPECT_THAT(Settle(), ElementsAre("deleted red", "described dup 'alone'"));
  EXPECT_EQ(VrfId("dup"), 0x8000000aU);
}

TEST_F(KernelModel, TableOfTheDefaultVrfsIdDoesNotClash) {
  AddVrf("one", 2, 1);
  Settle();
  EXPECT_EQ(VrfId("one"), 0x80000001U);
  EXPECT_EQ(model_.find_vrf("one")->ipv4_table, 1U);
}

TEST_F(KernelModel, IdOfTheHighestTableIsNeverZero) {
  AddVrf("red", 2, 0xffffffff);
  AddVrf("dup", 3, 0xffffffff);
  Settle();
  EXPECT_EQ(VrfId("red"), 0xffffffffU);
  EXPECT_EQ(VrfId("dup"), 2U);  // 0 is not an id, and 1 is that of "default"
}

TEST_F(KernelModel, AliasOfAVrfIsItsDescriptionAndChangesNoOtherAttribute) {
  AddVrf("red", 2, 10);
  Settle();
  router::Vrf configured = *model_.find_vrf("red");
  configured.rd = "65000:1";
  configured.flags = router::kVrfFlagBig;
  ASSERT_EQ(model_.change_vrf(configured), kStatusOk);
  listener_.TakeLines();
  SetAlias(2, "new");
  EXPECT_THAT(Settle(), ElementsAre("described red 'new'"));
  EXPECT_EQ(model_.find_vrf("red")->rd, "65000:1");
  EXPECT_EQ(model_.find_vrf("red")->flags, router::kVrfFlagBig);
}

TEST_F(KernelModel, VrfDeviceCalledDefaultIsRefusedAndItsInterfacesStayInDefault) {
  AddVrf("default", 2, 10);
  AddLink("d0", 5, 2);
  EXPECT_THAT(Settle(), ElementsAre("added d0 in default down"));
  EXPECT_EQ(reconciler_.refused(), 1U);
  EXPECT_EQ(model_.vrf_count(), 0U);
}

// A later run makes the changes that the model refused, without a new event.
class KernelModelRefusing : public KernelModel, public ::testing::WithParamInterface<const char*> {};

TEST_P(KernelModelRefusing, RefusedChangeIsRetriedByTheNextRun) {
  AddVrf("red", 2, 10);
  AddVrf("old", 3, 20);
  AddLink("d0", 5, 2, true);
  AddLink("d1", 6, 3);
  AddLink("d2", 7);
  AddLink("a", 8);
  AddLink("b", 9);
  Settle();
  Enslave(6, 0);
  Delete(3);
  Delete(7);
  AddVrf("new", 10, 30);
  Enslave(5, 10);
  SetAlias(2, "described");
  Rename(8, "tmp");
  Rename(9, "a");
  Rename(8, "b");
  AddLink("fresh", 11, 10);
  {
    const ScopedFault fault(GetParam(), kStatusNoMemory, 1, 1);
    Settle();
    EXPECT_EQ(fault_reached(GetParam()) >= 1, true) << GetParam();
  }
  EXPECT_GE(reconciler_.refused(), 1U);
  Settle();
  Settle();
  EXPECT_THAT(Describe(model_),
              ElementsAre("vrf new id 30 tables 30 30 ''", "vrf red id 10 tables 10 10 'described'",
                          "5 d0 in new up '' ", "6 d1 in default down '' ", "8 b in default down '' ",
                          "9 a in default down '' ", "11 fresh in new down '' "));
}

INSTANTIATE_TEST_SUITE_P(Steps, KernelModelRefusing,
                         ::testing::Values("router_create_vrf", "router_change_vrf", "router_delete_vrf",
                                           "router_add_interface", "router_change_interface",
                                           "router_remove_interface", "router_move_interface"),
                         [](const auto& step) { return std::string(step.param); });

}  // namespace
}  // namespace kernel

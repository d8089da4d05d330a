// VRFs referenced by their configuration, and the replay of protocols' items to clients that count them on
// interfaces.
#include "platform/router/config_references/config_references.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/vmap/vmap.h"
#include "platform/router/vtab/vtab.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/tree/kvtree.h"

namespace {

using router::ReferenceHolder;
using testing::ElementsAre;
using testing::IsEmpty;
using vrf_config::Family;

std::vector<std::string>& reported() {
  static std::vector<std::string> lines;
  return lines;
}

void note_item(const KvNotification* notification) {
  const bool deleted = kvtree_notify_info(notification)->whichevent == kKvEventDeleted;
  reported().push_back((deleted ? "-" : "+") + std::string(kvtree_notify_path(notification)));
}
void note_interface(VmapMemberDatabase*, VmapEvent kind, const VmapIntfItem* item) {
  reported().push_back(std::string(kind == VmapEvent::kUpdate ? "joined " : "left ") + item->vrf_name);
}

const KvConfigNode kRedText = vrf_config::description("red", "Red Rail");
const KvConfigNode kRedRip = vrf_config::rip_interface("red", "ge0");
const KvConfigNode kRedBgp = vrf_config::bgp_neighbor("red", 65000, "192.0.2.9", Family::kIpv4);
const std::string kTextPath = kRedText.path.substr(vrf_config::kVrfScope.size());
const std::string kRipPath = "red/ord_t/if/ge0/ord_d/enabled";

class ConfigReferences : public router::RouterTest {
 protected:
  ConfigReferences() : manager_(event_manager_create("/dev/mpls/vpn/main", 0)) {
    EXPECT_EQ(vrf_config::register_configuration(), kStatusOk);
    vtab_attach(&router_);
    vmap_attach(&router_);
    reported().clear();
  }
  ~ConfigReferences() override {
    fault_disarm_all();
    config_references_stop();
    if (client_ != nullptr) vmap_c_lib_end(client_);
    kvtree_reset();
    vmap_attach(nullptr);
    vtab_attach(nullptr);
    event_manager_destroy(manager_);
  }

  void Start() { ASSERT_EQ(config_references_start(&router_, manager_), kStatusOk); }
  void Run() {
    while (event_run_pending(manager_)) {
    }
  }
  void Commit(std::vector<KvConfigChange> changes, std::string_view owner = kConfigOwnerCli) {
    ASSERT_EQ(kvtree_config_commit(owner, changes, ""), kStatusOk);
    Run();
  }
  void Set(const KvConfigNode& node, std::string_view owner = kConfigOwnerCli) {
    Commit({{node.path, node.value}}, owner);
  }
  void Delete(const KvConfigNode& node, std::string_view owner = kConfigOwnerCli) {
    Commit({{node.path, std::nullopt}}, owner);
  }
  bool IsReferenced(std::string_view vrf) const {
    return router_.is_referenced(vrf, ReferenceHolder::kConfiguration);
  }
  // With the next free index.
  std::uint32_t AddInterface(const std::string& name, const std::string& vrf) {
    return RouterTest::AddInterface(name, ++last_index_, vrf);
  }
  // A subscriber that notes its notifications of the items below the scope.
  void ListenTo(std::string_view scope) {
    KvConnection* connection = nullptr;
    ASSERT_EQ(kvtree_bind(&connection, std::string(scope).c_str(), kKvBindConfiguration), kStatusOk);
    ASSERT_EQ(kvtree_register_notification(connection, "", 7, note_item, manager_, 0, 0, 4, nullptr),
              kStatusOk);
  }
  // A subscriber of RIP's items and a client of the membership service, which both note what is delivered.
  void Listen() {
    ListenTo("/cfg/gl/rip/ord_B/");
    ASSERT_EQ(vmap_c_lib_init(
                  "listener", manager_, [](void*) { return 0; }, &client_),
              kStatusOk);
    int fd = -1;
    std::uint32_t count = 0;
    VmapMemberDatabase* database = nullptr;
    ASSERT_EQ(vmap_c_bind(client_, &fd), kStatusOk);
    ASSERT_EQ(vmap_c_mdb_init(client_, 0, &database), kStatusOk);
    ASSERT_EQ(vmap_c_mdb_add_intf_all(database, note_interface, 1), kStatusOk);
    ASSERT_EQ(vmap_c_notif_reg(database, &fd, &count), kStatusOk);
    reported().clear();
  }
  // What was delivered since the last call.
  std::vector<std::string> Reported() {
    Run();
    return std::exchange(reported(), {});
  }

  TestRunDirectory directory_;
  EventManager* manager_;
  VmapClient* client_ = nullptr;
  std::uint32_t last_index_ = 0;
};

class StartedReferences : public ConfigReferences {
 protected:
  void SetUp() override { Start(); }
};

// One item of an interface, with a subscriber and a client that have been notified of it.
class ReplayedItems : public StartedReferences {
 protected:
  void SetUp() override {
    StartedReferences::SetUp();
    Listen();
    Set(kRedRip);
    EXPECT_THAT(Reported(), ElementsAre("+" + kRipPath));
  }
};

TEST_F(StartedReferences, VrfIsReferencedFromItsFirstItemToItsLast) {
  EXPECT_FALSE(IsReferenced("red"));
  Set(kRedText);
  EXPECT_TRUE(IsReferenced("red"));
  Set(kRedBgp);
  Set(kRedRip);
  Delete(kRedText);
  Delete(kRedBgp);
  EXPECT_TRUE(IsReferenced("red"));
  Delete(kRedRip);
  EXPECT_FALSE(IsReferenced("red"));
  Set(kRedText);
  EXPECT_TRUE(IsReferenced("red")) << "again";
}

TEST_F(StartedReferences, EveryKindOfItemNamesItsVrf) {
  const vrf_config::Target target = {vrf_config::Target::Type::kTwoOctetAs, 1, 2};
  const vrf_config::StaticRoute route = {Family::kIpv4, "10.0.0.0/8", "", "192.0.2.1"};
  for (const KvConfigNode& node :
       {vrf_config::description("red", "x"), vrf_config::route_distinguisher("red", Family::kIpv4, target),
        vrf_config::route_target("red", Family::kIpv6, vrf_config::Direction::kExport, target),
        vrf_config::route_policy("red", Family::kIpv4, vrf_config::Direction::kImport, "IN"),
        vrf_config::route_threshold("red", Family::kIpv4, 5, 4), kRedBgp, kRedRip,
        vrf_config::ospf_interface("red", "1", 0, "ge0"), vrf_config::eigrp_interface("red", 1, "ge0"),
        vrf_config::static_route("red", route)}) {
    Set(node);
    EXPECT_TRUE(IsReferenced("red")) << node.path;
    Delete(node);
    EXPECT_FALSE(IsReferenced("red")) << node.path;
  }
}

TEST_F(ConfigReferences, EffectiveItemsAreReadAtTheStart) {
  Set(kRedRip);
  EXPECT_FALSE(IsReferenced("red"));
  Start();
  EXPECT_TRUE(IsReferenced("red"));
}

TEST_F(StartedReferences, ItemOfAnotherOwnerKeepsTheReference) {
  Set(kRedText, kConfigOwnerCli);
  Set(kRedText, kConfigOwnerFile);
  Delete(kRedText, kConfigOwnerCli);
  EXPECT_TRUE(IsReferenced("red"));
  Delete(kRedText, kConfigOwnerFile);
  EXPECT_FALSE(IsReferenced("red"));
}

TEST_F(StartedReferences, ItemThatIsSetAgainAtOnceKeepsTheReference) {
  Set(kRedRip);
  ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, {{kRedRip.path, std::nullopt}}, ""), kStatusOk);
  ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, {{kRedRip.path, kRedRip.value}}, ""), kStatusOk);
  Run();
  EXPECT_TRUE(IsReferenced("red"));
}

TEST_F(StartedReferences, ReferenceOfTheSourceIsNotReleased) {
  ASSERT_EQ(router_.reference_vrf("red", ReferenceHolder::kSource), kStatusOk);
  Set(kRedText);
  Delete(kRedText);
  EXPECT_TRUE(router_.is_referenced("red"));
}

TEST_F(StartedReferences, DefaultAndImpossibleNamesAreNotReferenced) {
  Set(vrf_config::description("default", "x"));
  Set(vrf_config::description(std::string(32, 'v'), "x"));
  std::vector<std::string> names;
  router_.for_each_reference([&](const std::string& name) { names.push_back(name); });
  EXPECT_THAT(names, IsEmpty());
}

TEST_F(StartedReferences, TrapSwitchesReferenceNoVrf) {
  Set(vrf_config::trap_switch("vrf-up", 1));
  EXPECT_FALSE(IsReferenced("vrf-up"));
}

TEST_F(StartedReferences, RefusedReferenceIsTriedAgainWithTheNextItem) {
  fault_arm("router_reference_vrf", kStatusNoMemory);
  Set(kRedText);
  EXPECT_EQ(fault_reached("router_reference_vrf"), 1U);
  EXPECT_FALSE(IsReferenced("red"));
  Set(kRedRip);
  EXPECT_TRUE(IsReferenced("red"));
}

TEST_F(StartedReferences, ReferenceThatCannotBeReleasedIsReleasedAtTheNextDeletion) {
  Set(kRedText);
  fault_arm("router_unreference_vrf", kStatusNoMemory);
  Delete(kRedText);
  EXPECT_TRUE(IsReferenced("red"));
  Set(kRedRip);
  Delete(kRedRip);
  EXPECT_FALSE(IsReferenced("red"));
}

TEST_F(StartedReferences, VrfDeletedUnderItsConfigurationKeepsItsRecord) {
  AddVrf("red", 10);
  Set(kRedText);
  const VtabVrfRecord* const record = vtab_get_vrf_record_by_vrf_name("red");
  ASSERT_NE(record, nullptr);
  DeleteVrf("red");
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("red"), record);
  EXPECT_EQ(record->vrf_id, 0U);
  AddVrf("red", 11);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("red"), record);
  EXPECT_EQ(record->vrf_id, 11U);
  DeleteVrf("red");
  Delete(kRedText);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
}

TEST_F(StartedReferences, RecordExistsBeforeALaterSubscriberIsNotified) {
  static bool had_record;
  had_record = false;
  KvConnection* connection = nullptr;
  ASSERT_EQ(kvtree_bind(&connection, "/cfg/gl/ip-bgp/", kKvBindConfiguration), kStatusOk);
  const auto look = [](const KvNotification*) {
    had_record = vtab_get_vrf_record_by_vrf_name("red") != nullptr;
  };
  ASSERT_EQ(kvtree_register_notification(connection, "", 7, look, manager_, 0, 0, 4, nullptr), kStatusOk);
  Set(kRedBgp);
  EXPECT_TRUE(had_record);
}

TEST_F(StartedReferences, StoppingReleasesTheReferences) {
  Set(kRedText);
  config_references_stop();
  EXPECT_FALSE(router_.is_referenced("red"));
  Set(kRedRip);
  EXPECT_FALSE(router_.is_referenced("red"));
  Start();
  EXPECT_TRUE(IsReferenced("red"));
}

TEST_F(ConfigReferences, StartsOnceAndAFailedStartLeavesNothing) {
  Set(kRedText);
  EXPECT_EQ(config_references_start(nullptr, manager_), kStatusInvalid);
  EXPECT_EQ(config_references_start(&router_, nullptr), kStatusInvalid);
  for (const char* point : {"config_references_start", "kvtree_bind", "kvtree_register_notification"}) {
    const ScopedFault fault(point, kStatusNoMemory);
    EXPECT_EQ(config_references_start(&router_, manager_), kStatusNoMemory) << point;
    EXPECT_FALSE(router_.is_referenced("red"));
  }
  fault_arm("kvtree_bind", kStatusNoMemory, 3);
  EXPECT_EQ(config_references_start(&router_, manager_), kStatusNoMemory);
  EXPECT_FALSE(router_.is_referenced("red"));
  Start();
  EXPECT_EQ(config_references_start(&router_, manager_), kStatusExists);
  EXPECT_TRUE(IsReferenced("red"));
}

TEST_F(ReplayedItems, ItemsOfAnInterfaceAreReplayedAfterItJoined) {
  AddInterface("ge0", "red");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  Move("ge0", "default");
  EXPECT_THAT(Reported(), ElementsAre("left red"));
  Move("ge0", "red");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  EXPECT_TRUE(IsReferenced("red")) << "a replay keeps the reference";
}

TEST_F(ReplayedItems, OnlyItemsOfTheInterfaceInItsVrfAreReplayed) {
  Set(vrf_config::rip_interface("red", "ge1"));
  Set(vrf_config::rip_interface("blue", "ge0"));
  Reported();
  AddInterface("ge0", "red");
  AddInterface("ge5", "red");
  AddInterface("ge1", "default");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "joined red", "-" + kRipPath, "+" + kRipPath));
}

TEST_F(StartedReferences, ItemsOfManyJoinsAreReplayedAfterTheirJoins) {
  Listen();
  for (int number = 0; number < 250; ++number) {
    Set(vrf_config::rip_interface("red", "ge" + std::to_string(number)));
  }
  Reported();
  for (int number = 0; number < 250; ++number) AddInterface("ge" + std::to_string(number), "red");
  Run();
  std::size_t joined = 0;
  std::size_t set = 0;
  for (const std::string& line : Reported()) {
    joined += line == "joined red" ? 1 : 0;
    set += line[0] == '+' ? 1 : 0;
    EXPECT_LE(set, joined);
  }
  EXPECT_EQ(joined, 250U);
  EXPECT_EQ(set, 250U);
}

TEST_F(ReplayedItems, ItemsOfAnInterfaceAreReplayedAfterItsNameOrIndexChanged) {
  AddInterface("new", "red");
  Reported();
  Rename("new", "ge0");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  Rename("ge0", "ge0", 99);
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  router::Interface changed = Current("ge0");
  changed.up = true;
  ChangeInterface(changed);
  EXPECT_THAT(Reported(), IsEmpty()) << "name, index and VRF are the same";
}

TEST_F(ReplayedItems, InterfaceLeavesWithTheNameUnderWhichItHadItems) {
  AddInterface("ge0", "red");
  Reported();
  Rename("ge0", "ge1");
  EXPECT_THAT(Reported(), ElementsAre("left red", "joined red"));
  Rename("ge1", "ge0");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  Delete(kRedRip);
  Reported();
  Rename("ge0", "ge1");
  EXPECT_THAT(Reported(), ElementsAre("joined red")) << "nothing is counted under its former name";
}

// The time in the retained record could be before the creation of the VRF.
TEST_F(StartedReferences, DescriptionIsReplayedWhenAVrfIsCreatedUnderAReferencedName) {
  ListenTo(vrf_config::kVrfScope);
  Set(kRedBgp);
  Reported();
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), ElementsAre("-" + kTextPath));
  Set(kRedText);
  DeleteVrf("red");
  Reported();
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), ElementsAre("+" + kTextPath));
  AddVrf("blue", 20);
  EXPECT_THAT(Reported(), IsEmpty()) << "nothing names it";
}

TEST_F(StartedReferences, DescriptionThatCannotBeReplayedIsReplayedAtTheNextCreation) {
  ListenTo(vrf_config::kVrfScope);
  Set(kRedBgp);
  fault_arm("kvtree_config_announce", kStatusNoMemory);
  AddVrf("red", 10);
  Run();
  EXPECT_EQ(fault_reached("kvtree_config_announce"), 1U);
  EXPECT_THAT(Reported(), IsEmpty());
  DeleteVrf("red");
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), ElementsAre("-" + kTextPath));
}

TEST_F(StartedReferences, NothingIsReplayedForAVrfThatIsDeletedAgain) {
  ListenTo(vrf_config::kVrfScope);
  Set(kRedBgp);
  AddVrf("red", 10);
  DeleteVrf("red");
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(ReplayedItems, ItemDeletedBeforeItsReplayIsNotReplayed) {
  AddInterface("ge0", "red");
  Delete(kRedRip);
  EXPECT_THAT(Reported(), testing::UnorderedElementsAre("joined red", "-" + kRipPath));
}

TEST_F(ReplayedItems, FailedReplayIsRetriedAtTheNextJoin) {
  fault_arm("kvtree_config_replay", kStatusNoMemory);
  AddInterface("ge0", "red");
  Run();
  EXPECT_EQ(fault_reached("kvtree_config_replay"), 1U);
  EXPECT_THAT(Reported(), ElementsAre("joined red"));
  Move("ge0", "blue");
  Move("ge0", "red");
  EXPECT_THAT(Reported(), testing::IsSupersetOf({"-" + kRipPath, "+" + kRipPath}));
}

}  // namespace

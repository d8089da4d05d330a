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
#include "platform/router/config_references/config_references_test_support.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/vmap/vmap.h"
#include "platform/router/vtab/vtab.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/tree/kvtree.h"

namespace {

using router::ReferenceHolder;
using testing::IsEmpty;
using vrf_config::Family;

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

}  // namespace

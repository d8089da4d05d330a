// VRF and table records: look-ups, order, forward references and attribute blocks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "platform/core/base/fault.h"
#include "platform/core/base/test_time.h"
#include "platform/router/vtab/test_support.h"

namespace vtab {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(Records, DefaultVrfHasARecordWithIdOne) {
  ASSERT_NE(Find("default"), nullptr);
  EXPECT_EQ(Find("default")->vrf_id, 1U);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_id(1), Find("default"));
}

TEST_F(Records, VrfIsFoundByNameIdAndTable) {
  AddVrf("red", 10, 1010, 2010);
  VtabVrfRecord* record = Find("red");
  ASSERT_NE(record, nullptr);
  EXPECT_STREQ(record->vrf_name, "red");
  EXPECT_EQ(record->ipv4_table_id, 1010U);
  EXPECT_EQ(record->ipv6_table_id, 2010U);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_id(10), record);
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(1010), record);
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(2010), record);
}

TEST_F(Records, LookUpsOfMissingRecordsReturnNull) {
  ASSERT_NE(vtab_create_vrf_record("forward"), nullptr);
  EXPECT_EQ(Find("red"), nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name(nullptr), nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_id(0), nullptr) << "forward references have no id";
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_id(10), nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(0), nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(7), nullptr);
  EXPECT_EQ(vtab_get_next_vrf_record(nullptr), nullptr);
}

TEST_F(Records, VrfRecordsAreWalkedShorterNamesFirst) {
  for (const auto& [name, id] : {std::pair("vrf10", 10U), {"vrf9", 9U}, {"blue", 8U}, {"red", 7U}})
    AddVrf(name, id);
  ASSERT_NE(vtab_create_vrf_record("tan"), nullptr);
  EXPECT_THAT(VrfWalk(), ElementsAre("red=7", "tan=0", "blue=8", "vrf9=9", "vrf10=10", "default=1"));
}

TEST_F(Records, WalkContinuesFromADeletedRecord) {
  AddVrf("red", 10);
  AddVrf("blue", 20);
  StartClient();
  VtabVrfRecord* record = Find("red");
  DeleteVrf("red");
  EXPECT_EQ(vtab_get_next_vrf_record(record), Find("blue"));
}

// Look-ups near an earlier one are found without a search.
TEST_F(Records, LookUpsInAnyOrderFindTheRecordsThatExist) {
  std::set<std::string, router::ShorterFirst> present = {"default"};
  std::mt19937 random(7);
  for (int step = 0; step < 5000; ++step) {
    const std::string name = "vrf" + std::to_string(random() % 12);
    switch (random() % 4) {
      case 0:
        if (present.insert(name).second) AddVrf(name, static_cast<std::uint32_t>(10 + step));
        break;
      case 1:
        if (present.erase(name) != 0) DeleteVrf(name);
        break;
      case 2:
        ASSERT_EQ(Find(name.c_str()) != nullptr, present.contains(name)) << "step " << step;
        break;
      default: {
        VtabVrfRecord key{};
        name.copy(key.vrf_name, sizeof key.vrf_name - 1);
        const VtabVrfRecord* next = vtab_get_next_vrf_record(&key);
        const auto expected = present.upper_bound(name);
        ASSERT_EQ(next == nullptr ? "" : next->vrf_name, expected == present.end() ? "" : *expected)
            << "step " << step;
      }
    }
  }
}

TEST_F(Records, LookUpsOfOneRecordAfterTheOtherNeedNoSearch) {
  std::vector<std::string> names;
  for (int n = 10'000; n < 20'000; ++n) names.push_back("vrf" + std::to_string(n));
  std::uint32_t id = 10;
  for (const std::string& name : names) AddVrf(name, id++);
  // Looks up all, those next to each other or not.
  const auto look_up = [&](std::size_t stride) {
    return least_time([&] {
      for (std::size_t first = 0; first < stride; ++first) {
        for (std::size_t n = first; n < names.size(); n += stride)
          ASSERT_NE(vtab_get_vrf_record_by_vrf_name(names[n].c_str()), nullptr);
      }
    });
  };
  EXPECT_LT(look_up(1), look_up(3) * 2 / 3);
}

TEST_F(Records, TablesAreWalkedByAddressFamilyThenSubsequentFamily) {
  router::Vrf vrf;
  vrf.name = "red";
  vrf.id = 10;
  vrf.ipv4_table = 4;
  vrf.ipv6_table = 3;
  vrf.ipv4_multicast_table = 2;
  vrf.ipv6_multicast_table = 1;
  ASSERT_EQ(router_.create_vrf(vrf), kStatusOk);
  EXPECT_THAT(TableWalk("red"), ElementsAre("1/1 red.ipv4.unicast 4", "1/2 red.ipv4.multicast 2",
                                            "2/1 red.ipv6.unicast 3", "2/2 red.ipv6.multicast 1"));
}

TEST_F(Records, VrfWithoutATableOfAFamilyHasNoSuchRecord) {
  AddVrf("red", 10, 0, 2010);
  AddVrf("blue", 20);
  EXPECT_THAT(TableWalk("red"), ElementsAre("2/1 red.ipv6.unicast 2010"));
  EXPECT_THAT(TableWalk("blue"), IsEmpty());
  EXPECT_THAT(TableWalk("tan"), IsEmpty());
  EXPECT_EQ(vtab_get_first_table_record_by_vrf_name(nullptr), nullptr);
  EXPECT_EQ(vtab_get_next_table_record_by_vrf_name("red", nullptr), nullptr);
}

TEST_F(Records, ChangedTablesAreFoundUnderTheirNewIdsOnly) {
  AddVrf("red", 10, 1010, 1010);
  router::Vrf vrf = *router_.find_vrf("red");
  vrf.ipv4_table = 2020;
  ChangeVrf(vrf);
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(2020), Find("red"));
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(1010), Find("red")) << "the IPv6 table is still that";
  vrf.ipv6_table = 2020;
  ChangeVrf(vrf);
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(1010), nullptr);
  EXPECT_EQ(Find("red")->ipv6_table_id, 2020U);
}

TEST_F(Records, TableSharedByTwoVrfsBelongsToTheFirstInNameOrder) {
  AddVrf("blue", 20, 1010);
  AddVrf("red", 10, 1010);
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(1010), Find("red"));
  DeleteVrf("red");
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(1010), Find("blue"));
}

TEST_F(Records, ForwardReferenceHasIdZeroAndNoTables) {
  VtabVrfRecord* record = vtab_create_vrf_record("red");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->vrf_id, 0U);
  EXPECT_THAT(TableWalk("red"), IsEmpty());
  EXPECT_EQ(vtab_create_vrf_record("red"), record) << "the existing record";
}

TEST_F(Records, ForwardReferenceIsCompletedInPlaceWithItsBlock) {
  StartClient();
  VtabVrfRecord* record = vtab_create_vrf_record("red");
  ASSERT_NE(record, nullptr);
  AttributesOf(record)->number = 42;
  AddVrf("red", 10, 1010);
  EXPECT_EQ(Find("red"), record);
  EXPECT_EQ(record->vrf_id, 10U);
  EXPECT_EQ(record->ipv4_table_id, 1010U);
  EXPECT_EQ(AttributesOf(record)->number, 42U);
}

TEST_F(Records, VrfNamedByConfigurationHasAForwardReferenceWhileItIsNamed) {
  Reference("red");
  ASSERT_NE(Find("red"), nullptr);
  EXPECT_EQ(Find("red")->vrf_id, 0U);
  Unreference("red");
  EXPECT_EQ(Find("red"), nullptr);
}

TEST_F(Records, DeletedVrfThatConfigurationStillNamesKeepsItsRecordAndBlock) {
  StartClient();
  Reference("red");
  AddVrf("red", 10, 1010);
  VtabVrfRecord* record = Find("red");
  AttributesOf(record)->number = 42;
  DeleteVrf("red");
  EXPECT_EQ(Find("red"), record);
  EXPECT_EQ(record->vrf_id, 0U);
  EXPECT_EQ(record->ipv4_table_id, 0U);
  EXPECT_EQ(AttributesOf(record)->number, 42U);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_id(10), nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(1010), nullptr);
  EXPECT_THAT(TableWalk("red"), IsEmpty());
}

TEST_F(Records, RecordThatTheClientMadeIsDeletedWithTheVrf) {
  ASSERT_NE(vtab_create_vrf_record("red"), nullptr);
  AddVrf("red", 10);
  DeleteVrf("red");
  EXPECT_EQ(Find("red"), nullptr);
}

TEST_F(Records, BadNamesGetNoRecord) {
  EXPECT_EQ(vtab_create_vrf_record(nullptr), nullptr);
  EXPECT_EQ(vtab_create_vrf_record(""), nullptr);
  EXPECT_EQ(vtab_create_vrf_record(std::string(32, 'a').c_str()), nullptr);
  EXPECT_NE(vtab_create_vrf_record(std::string(31, 'a').c_str()), nullptr);
}

TEST_F(Records, EveryRecordHasAZeroFilledBlockOfTheClients) {
  AddVrf("red", 10);
  EXPECT_EQ(Find("red")->attributes, nullptr) << "no client yet";
  StartClient();
  AddVrf("blue", 20);
  Reference("tan");
  ASSERT_NE(vtab_create_vrf_record("gray"), nullptr);
  for (const char* name : {"default", "red", "blue", "tan", "gray"}) {
    TestAttributes* attributes = AttributesOf(Find(name));
    ASSERT_NE(attributes, nullptr) << name;
    EXPECT_EQ(attributes->text, nullptr) << name;
    EXPECT_EQ(attributes->number, 0U) << name;
    attributes->number = 42;
  }
  EXPECT_EQ(AttributesOf(Find("red"))->number, 42U);
}

TEST_F(Records, AttachedModelIsReadCompletely) {
  AddVrf("red", 10, 1010);
  Reference("blue");
  AddInterface("ge0", 7, "red");
  StartClient();
  DeleteVrf("red");
  AddVrf("red", 10, 1010);
  vtab_attach(nullptr);
  EXPECT_THAT(VrfWalk(), IsEmpty());
  EXPECT_THAT(InterfaceWalk(), IsEmpty());
  vtab_attach(&router_);
  EXPECT_THAT(Delivered(), IsEmpty()) << "the client is ended";
  StartClient();
  EXPECT_THAT(VrfWalk(), ElementsAre("red=10", "blue=0", "default=1"));
  EXPECT_THAT(InterfaceWalk(), ElementsAre("ge0=7"));
  EXPECT_THAT(TableWalk("red"), ElementsAre("1/1 red.ipv4.unicast 1010"));
}

TEST_F(Records, ClientThatGetsNoMemoryForItsBlocksIsRefused) {
  AddVrf("red", 10);
  {
    const ScopedFault fault("calloc_tagged:vtab attributes", kStatusNoMemory, 2);
    EXPECT_EQ(vtab_init("test", manager_.get(), 0, sizeof(TestAttributes), 1, 3), kStatusNoMemory);
  }
  EXPECT_EQ(Find("red")->attributes, nullptr);
  EXPECT_EQ(Find("default")->attributes, nullptr);
  StartClient();
  EXPECT_NE(Find("red")->attributes, nullptr);
}

TEST_F(Records, RecordThatGotNoMemoryIsMadeCompleteWhenTheClientAsksForIt) {
  StartClient();
  {
    const ScopedFault fault("calloc_tagged:vtab attributes", kStatusNoMemory);
    AddVrf("red", 10, 1010);
  }
  EXPECT_EQ(Find("red"), nullptr);
  VtabVrfRecord* record = vtab_create_vrf_record("red");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->vrf_id, 10U);
  EXPECT_EQ(record->ipv4_table_id, 1010U);
  EXPECT_THAT(Delivered(), IsEmpty());
}

TEST_F(Records, CreationHasItsFaultPointAndItsMemory) {
  StartClient();
  {
    const ScopedFault fault("vtab_create_vrf_record", kStatusIo);
    EXPECT_EQ(vtab_create_vrf_record("red"), nullptr);
  }
  {
    const ScopedFault fault("calloc_tagged:vtab attributes", kStatusNoMemory);
    EXPECT_EQ(vtab_create_vrf_record("red"), nullptr);
  }
  EXPECT_EQ(Find("red"), nullptr);
  EXPECT_NE(vtab_create_vrf_record("red"), nullptr);
}

TEST_F(Records, DatabaseLockIsHeldOnce) {
  EXPECT_EQ(vtab_unlock_dbase(), kStatusInvalid);
  EXPECT_EQ(vtab_lock_dbase("first"), kStatusOk);
  EXPECT_EQ(vtab_lock_dbase("second"), kStatusDeadlock);
  EXPECT_EQ(vtab_unlock_dbase(), kStatusOk);
  EXPECT_EQ(vtab_lock_dbase("second"), kStatusOk);
  EXPECT_EQ(vtab_unlock_dbase(), kStatusOk);
  EXPECT_EQ(vtab_lock_dbase(nullptr), kStatusInvalid);
}

TEST_F(Records, FailedReleaseOfTheLockReleasesIt) {
  const ScopedFault lock_fault("vtab_lock_dbase", kStatusIo);
  EXPECT_EQ(vtab_lock_dbase("first"), kStatusIo);
  EXPECT_EQ(vtab_lock_dbase("first"), kStatusOk);
  fault_arm("vtab_unlock_dbase", kStatusIo);
  EXPECT_EQ(vtab_unlock_dbase(), kStatusIo);
  EXPECT_EQ(vtab_lock_dbase("second"), kStatusOk);
  EXPECT_EQ(vtab_unlock_dbase(), kStatusOk);
}

TEST_F(Records, TenThousandVrfsAreWalkedInOrderAndDeleted) {
  constexpr std::uint32_t kMany = 10'000;
  StartClient();
  for (std::uint32_t n = 0; n < kMany; ++n) AddVrf("vrf" + std::to_string(n), n + 2, n + 2);
  Run();
  EXPECT_EQ(Calls().size(), kMany);
  EXPECT_EQ(VrfWalk().size(), kMany + 1);
  EXPECT_STREQ(vtab_get_first_vrf_record()->vrf_name, "vrf0");
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(5002), Find("vrf5000"));
  for (std::uint32_t n = 0; n < kMany; ++n) DeleteVrf("vrf" + std::to_string(n));
  EXPECT_THAT(VrfWalk(), ElementsAre("default=1"));
  Run();
  EXPECT_EQ(Calls().size(), kMany);
}

}  // namespace
}  // namespace vtab

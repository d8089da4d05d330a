// The repair pass and the interface manager's names.
#include <chrono>

#include "mpls/vpn/mib/src/interface/database_internal.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

// --wrap in the build file puts this in the place of the index service's, which has no index 0 and writes
// none when it fails.
Status real_index(const char* name, std::uint32_t* index) __asm__("__real__Z15ifname_to_indexPKcPj");
Status other_index(const char* name, std::uint32_t* index) __asm__("__wrap__Z15ifname_to_indexPKcPj");

namespace {

std::function<Status(std::uint32_t*)> index_answer;  // none: the service's own

}  // namespace

Status other_index(const char* name, std::uint32_t* index) {
  return index_answer ? index_answer(index) : real_index(name, index);
}

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

using IfRepair = DaemonTest;
using InterfaceName = DaemonTest;

std::uint32_t NodesByVrf() {
  return wavl_size(mpls_vpn_mib_if_tree(), kIfByVrf);
}
std::uint32_t NodesByHandle() {
  return wavl_size(mpls_vpn_mib_if_tree(), kIfByHandle);
}

}  // namespace

TEST_F(IfRepair, CleanDatabaseTakesNoLock) {
  CreateIf("red", 7, "ge0", 0x10);
  ClearPrints();
  fault_arm("pthread_mutex_lock", kStatusIo, 100);
  EXPECT_EQ(mpls_vpn_mib_clean_if_dbase(), 1);
  EXPECT_EQ(fault_reached("pthread_mutex_lock"), 0U);
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(IfRepair, NodeWithoutNameAndIndexIsCompletedAndPlaced) {
  const std::uint32_t handle = AddInterface("ge0");
  IfNode* node = CreateIf("red", 0, nullptr, handle);
  ClearPrints();
  EXPECT_NE(mpls_vpn_mib_clean_if_dbase(), 0);
  EXPECT_THAT(Prints(), ElementsAre("Start cleaning interface database...",
                                    "Interface " + Hex(handle) + ": resolved if_name = ge0",
                                    "Interface " + Hex(handle) +
                                        ": resolved if_index = " + std::to_string(IndexOf("ge0")),
                                    "Done cleaning interface database. State is clean."));
  EXPECT_EQ(mpls_vpn_mib_get_if(true, "red", IndexOf("ge0")), node);
  EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
}

TEST_F(IfRepair, NodeWithIndexGetsItsNameOnly) {
  const std::uint32_t handle = AddInterface("ge0");
  IfNode* named_later = CreateIf("red", 55, nullptr, handle);
  CreateIf("red", 0, "nowhere", 0x999);  // makes the database dirty
  mpls_vpn_mib_clean_if_dbase();
  EXPECT_THAT(named_later->if_name, StrEq("ge0"));
  EXPECT_EQ(named_later->if_index, 55U);
}

TEST_F(IfRepair, NodeWhoseHandleHasNoNameStaysOutAndKeepsTheDatabaseDirty) {
  CreateIf("red", 0, nullptr, 0xdead);
  ClearPrints();
  EXPECT_NE(mpls_vpn_mib_clean_if_dbase(), 0);
  EXPECT_TRUE(Printed("DIRTY: Failed to resolve if_name for interface 0xdead"));
  EXPECT_EQ(Prints().back(), "Done cleaning interface database. State is DIRTY.");
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  EXPECT_EQ(NodesByVrf(), 0U);
}

TEST_F(IfRepair, NameWithoutAnIndexKeepsTheDatabaseDirty) {
  IfNode* node = CreateIf("red", 0, "nowhere", 0x10);
  ClearPrints();
  EXPECT_NE(mpls_vpn_mib_clean_if_dbase(), 0);
  EXPECT_TRUE(Printed(std::string("DIRTY: Failed to resolve if_index for interface 0x10: ") +
                      err_text(kStatusNoSuchRow)));
  EXPECT_EQ(node->if_index, 0U);
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
}

TEST_F(IfRepair, IndexZeroAndTheIndexOfAFailedLookupAreNone) {
  const struct {
    std::uint32_t index;
    Status status;
  } answers[] = {{0, kStatusOk}, {55, kStatusIo}};
  const IfNode* node = CreateIf("red", 0, "ge0", 7);
  for (const auto& answer : answers) {
    index_answer = [&answer](std::uint32_t* index) {
      *index = answer.index;
      return answer.status;
    };
    mpls_vpn_mib_clean_if_dbase();
    index_answer = nullptr;
    EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
    EXPECT_EQ(node->if_index, 0U);
    EXPECT_EQ(NodesByVrf(), 0U);
    EXPECT_TRUE(Printed(std::string("DIRTY: Failed to resolve if_index for interface 0x7: ") +
                        err_text(answer.status)));
  }
}

TEST_F(IfRepair, EachMessageIsPrintedUnderItsArea) {
  const std::uint32_t handle = AddInterface("ge0");
  const auto repair = [&] {
    if (IfNode* node = mpls_vpn_mib_get_if_by_handle(true, handle)) DeleteIf(node);
    CreateIf("red", 0, nullptr, handle);
    mpls_vpn_mib_clean_if_dbase();
  };
  ExpectUnder(DBASE, "Start cleaning interface database...", repair);
  ExpectUnder(DBASE, "Interface " + Hex(handle) + ": resolved if_name = ge0", repair);
  ExpectUnder(DBASE, "Interface " + Hex(handle) + ": resolved if_index = " + std::to_string(IndexOf("ge0")),
              repair);
  ExpectUnder(DBASE, "Done cleaning interface database. State is clean.", repair);
  CreateIf("red", 0, nullptr, 0xdead);
  CreateIf("red", 0, "lost", 0xbeef);
  const auto fail = [] { mpls_vpn_mib_clean_if_dbase(); };
  ExpectUnder(DBASE, "DIRTY: Failed to resolve if_name for interface 0xdead", fail);
  ExpectUnder(
      DBASE,
      std::string("DIRTY: Failed to resolve if_index for interface 0xbeef: ") + err_text(kStatusNoSuchRow),
      fail);
  ExpectUnder(DBASE, "Done cleaning interface database. State is DIRTY.", fail);
  const auto locked = [] {
    const ScopedFault fault("pthread_mutex_lock", kStatusIo);
    mpls_vpn_mib_clean_if_dbase();
  };
  ExpectUnder(ERR, "Error (mpls_vpn_mib_clean_if_dbase): pthread mutex lock failed", locked);
  const auto collide = [&] {
    CreateIf("red", 0, nullptr, 0xcafe);
    index_answer = [&](std::uint32_t* index) {
      *index = IndexOf("ge0");
      return kStatusOk;
    };
    mpls_vpn_mib_clean_if_dbase();
    index_answer = nullptr;
  };
  ExpectUnder(DBASE, "DIRTY: WAVL walk failed", [&] {
    CreateIf("red", 0, "lost", 0xbeef);
    collide();
  });
  ExpectUnder(
      ERR,
      "Error (mpls_vpn_mib_clean_if_dbase_walker): Cannot insert node into vrf/ifindex WAVL thread for "
      "interface 0xbeef, if_index",
      [&] {
        CreateIf("red", 0, "lost", 0xbeef);
        collide();
      });
}

TEST_F(IfRepair, EmptyNameNeverResolves) {
  AddInterface("ge0");
  IfNode* node = CreateIf("red", 0, "", HandleOf("ge0"));
  for (int pass = 0; pass < 3; ++pass) {
    EXPECT_NE(mpls_vpn_mib_clean_if_dbase(), 0);
    EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  }
  EXPECT_THAT(node->if_name, StrEq(""));
  EXPECT_EQ(NodesByVrf(), 0U);
}

TEST_F(IfRepair, InterfaceThatAppearsLaterIsCompletedByALaterPass) {
  IfNode* node = CreateIf("red", 0, "ge0", 0x10);
  mpls_vpn_mib_clean_if_dbase();
  AddInterface("ge0");
  EXPECT_EQ(mpls_vpn_mib_get_if(true, "red", IndexOf("ge0")), node);
  EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
}

TEST_F(IfRepair, NodeWhoseResolvedIndexCollidesIsRemovedAndTheNextLookupRunsThePassAgain) {
  const std::uint32_t handle = AddInterface("ge0");
  IfNode* first = CreateIf("red", IndexOf("ge0"), "other", 0x999);
  CreateIf("red", 0, "ge0", handle);
  ClearPrints();
  EXPECT_EQ(mpls_vpn_mib_clean_if_dbase(), 0);
  EXPECT_TRUE(
      Printed("Error (mpls_vpn_mib_clean_if_dbase_walker): Cannot insert node into vrf/ifindex WAVL thread "
              "for interface " +
              Hex(handle) + ", if_index"));
  EXPECT_TRUE(Printed("DIRTY: WAVL walk failed"));
  EXPECT_EQ(Prints().back(), "Done cleaning interface database. State is DIRTY.");
  EXPECT_EQ(NodesByHandle(), 1U);
  ClearPrints();
  EXPECT_EQ(mpls_vpn_mib_get_if(true, "red", IndexOf("ge0")), first);
  EXPECT_EQ(Prints().front(), "Start cleaning interface database...");
  EXPECT_TRUE(Printed("Done cleaning interface database. State is clean."));
}

TEST_F(IfRepair, CollidingNodeThatCannotBeUnlinkedStaysWholeForTheNextPass) {
  const std::uint32_t handle = AddInterface("ge0");
  CreateIf("red", IndexOf("ge0"), "other", 0x999);
  IfNode* node = CreateIf("red", 0, "ge0", handle);
  {
    const ScopedFault fault("wavl_delete", kStatusIo);
    EXPECT_EQ(mpls_vpn_mib_clean_if_dbase(), 0);
  }
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("interface " + Hex(handle) + " stays linked by its handle"));
  EXPECT_EQ(node->if_index, 0U);
  EXPECT_EQ(NodesByHandle(), 2U);
  EXPECT_EQ(mpls_vpn_mib_clean_if_dbase(), 0);
  EXPECT_EQ(NodesByHandle(), 1U);
}

// A pass at every step of a walk that visits every node takes 20,000 times as long as one pass.
TEST_F(IfRepair, UnresolvedNodeDoesNotMakeWalksQuadratic) {
  for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(0);
  for (std::uint32_t i = 1; i <= 20000; ++i) CreateIf("red", i, ("ge" + std::to_string(i)).c_str(), i);
  CreateIf("red", 0, "nowhere", 0x10000000);
  const auto start = std::chrono::steady_clock::now();
  unsigned nodes = 0;
  for (const IfNode* node = mpls_vpn_mib_if_dbase_first(); node != nullptr;
       node = mpls_vpn_mib_if_dbase_next(node)) {
    ++nodes;
  }
  EXPECT_EQ(nodes, 20000U);
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST_F(IfRepair, StoppedWalkKeepsTheDatabaseDirty) {
  CreateIf("red", 0, "ge0", 0x10);
  ClearPrints();
  const ScopedFault fault("mpls_vpn_mib_clean_if_dbase", kStatusIo);
  EXPECT_EQ(mpls_vpn_mib_clean_if_dbase(), 0);
  EXPECT_THAT(Prints(), ElementsAre("Start cleaning interface database...", "DIRTY: WAVL walk failed",
                                    "Done cleaning interface database. State is DIRTY."));
}

TEST_F(IfRepair, MutexThatCannotBeTakenRepairsNothing) {
  const std::uint32_t handle = AddInterface("ge0");
  IfNode* node = CreateIf("red", 0, nullptr, handle);
  ClearPrints();
  const ScopedFault fault("pthread_mutex_lock", kStatusIo);
  EXPECT_EQ(mpls_vpn_mib_clean_if_dbase(), 0);
  EXPECT_THAT(Prints(), ElementsAre("Start cleaning interface database...",
                                    "Error (mpls_vpn_mib_clean_if_dbase): pthread mutex lock failed"));
  EXPECT_EQ(node->if_name, nullptr);
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
}

TEST_F(IfRepair, LookupUnderTheMutexFindsNodesUnrepaired) {
  const std::uint32_t handle = AddInterface("ge0");
  IfNode* node = CreateIf("red", 0, nullptr, handle);
  ClearPrints();
  TakeMutex();
  EXPECT_EQ(mpls_vpn_mib_get_if_by_handle(true, handle), node);
  ReleaseMutex();
  EXPECT_TRUE(Printed("Error (mpls_vpn_mib_clean_if_dbase): pthread mutex lock failed"));
  EXPECT_EQ(node->if_name, nullptr);
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
}

TEST_F(IfRepair, UnlockFailureIsReported) {
  CreateIf("red", 0, "ge0", 0x10);
  {
    const ScopedFault fault("pthread_mutex_unlock", kStatusIo);
    mpls_vpn_mib_clean_if_dbase();
  }
  EXPECT_TRUE(Printed("Error (mpls_vpn_mib_clean_if_dbase): pthread mutex unlock failed"));
  ReleaseMutex();
}

TEST_F(IfRepair, NameWithoutMemoryForItIsTriedAgain) {
  const std::uint32_t handle = AddInterface("ge0");
  IfNode* node = CreateIf("red", 0, nullptr, handle);
  {
    const ScopedFault fault("text_copy", kStatusNoMemory);
    mpls_vpn_mib_clean_if_dbase();
  }
  EXPECT_EQ(node->if_name, nullptr);
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  mpls_vpn_mib_clean_if_dbase();
  EXPECT_THAT(node->if_name, StrEq("ge0"));
}

TEST_F(InterfaceName, IsTheRoutersName) {
  EXPECT_THAT(mpls_vpn_get_interface_name(AddInterface("ge0")), StrEq("ge0"));
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(InterfaceName, UnknownHandleHasNone) {
  EXPECT_EQ(mpls_vpn_get_interface_name(0x77), nullptr);
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_get_interface_name", "qic_s_interface_name failed",
                                            kStatusNoSuchRow)));
}

TEST_F(InterfaceName, FailedBindIsReportedAndTriedAgainByTheNextLookup) {
  const std::uint32_t handle = AddInterface("ge0");
  {
    const ScopedFault fault("qic_control_server_bind", kStatusIo);
    EXPECT_EQ(mpls_vpn_get_interface_name(handle), nullptr);
  }
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_get_interface_name", "qic_control_server_bind failed",
                                            kStatusIo)));
  EXPECT_THAT(mpls_vpn_get_interface_name(handle), StrEq("ge0"));
}

TEST_F(InterfaceName, ConnectionIsBoundOnce) {
  const std::uint32_t handle = AddInterface("ge0");
  fault_arm("qic_control_server_bind", kStatusIo, 2);
  EXPECT_THAT(mpls_vpn_get_interface_name(handle), StrEq("ge0"));
  EXPECT_THAT(mpls_vpn_get_interface_name(handle), StrEq("ge0"));
  EXPECT_EQ(fault_reached("qic_control_server_bind"), 1U);
  EXPECT_EQ(qic_last_binding().request_type, 4U);
  EXPECT_EQ(qic_last_binding().version, 2U);
}

TEST_F(InterfaceName, StaleConnectionIsBoundAndUsedAgain) {
  const std::uint32_t handle = AddInterface("ge0");
  EXPECT_THAT(mpls_vpn_get_interface_name(handle), StrEq("ge0"));
  fault_arm("qic_s_interface_name", kStatusStaleConnection);
  fault_arm("qic_control_server_unbind", kStatusIo, 100);  // counts
  EXPECT_THAT(mpls_vpn_get_interface_name(handle), StrEq("ge0"));
  EXPECT_THAT(Prints(),
              ElementsAre(Failure("mpls_vpn_get_interface_name", "qic_s_interface_name failed", 0x409a0c00)));
  EXPECT_EQ(fault_reached("qic_control_server_unbind"), 1U);
}

TEST_F(InterfaceName, UnbindThatFailsIsTracedAndTheNameIsFound) {
  const std::uint32_t handle = AddInterface("ge0");
  EXPECT_THAT(mpls_vpn_get_interface_name(handle), StrEq("ge0"));
  fault_arm("qic_s_interface_name", kStatusStaleConnection);
  const ScopedFault fault("qic_control_server_unbind", kStatusIo);
  EXPECT_THAT(mpls_vpn_get_interface_name(handle), StrEq("ge0"));
  ExpectErrorTraced("qic_control_server_unbind failed", kStatusIo);
}

TEST_F(InterfaceName, EachStaleAnswerBindsOnce) {
  const std::uint32_t handle = AddInterface("ge0");
  fault_arm("qic_s_interface_name", kStatusStaleConnection, 1, 3);
  fault_arm("qic_control_server_bind", kStatusIo, 100);
  fault_arm("qic_control_server_unbind", kStatusIo, 100);
  EXPECT_THAT(mpls_vpn_get_interface_name(handle), StrEq("ge0"));
  EXPECT_EQ(fault_reached("qic_control_server_bind"), 4U);
  EXPECT_EQ(fault_reached("qic_control_server_unbind"), 3U);
  EXPECT_EQ(fault_reached("qic_s_interface_name"), 4U);
}

TEST_F(InterfaceName, BindThatFailsAfterAStaleAnswerEndsTheLookup) {
  const std::uint32_t handle = AddInterface("ge0");
  EXPECT_THAT(mpls_vpn_get_interface_name(handle), StrEq("ge0"));
  fault_arm("qic_s_interface_name", kStatusStaleConnection);
  const ScopedFault fault("qic_control_server_bind", kStatusIo);
  ClearPrints();
  EXPECT_EQ(mpls_vpn_get_interface_name(handle), nullptr);
  EXPECT_EQ(Prints().size(), 2U);
  EXPECT_EQ(Prints().back(),
            Failure("mpls_vpn_get_interface_name", "qic_control_server_bind failed", kStatusIo));
}

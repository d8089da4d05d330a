// Status texts, fault points, the manual clock, tagged memory and directories.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/core/base/assertion.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/memory.h"
#include "platform/core/base/status.h"
#include "platform/core/files/directories.h"

TEST(Status, EveryCodeOfTheVocabularyHasItsOwnText) {
  EXPECT_STREQ(err_text(kStatusOk), "Success");
  EXPECT_STREQ(err_text(kStatusArgumentMissing), "A path argument is missing");
  EXPECT_STREQ(err_text(kStatusNoVrfRecord), "No VRF record of this name");
  EXPECT_STREQ(err_text(kStatusNoSuchRow), "No such file or directory");
}

TEST(Status, UnknownCodeIsShownInHexadecimal) {
  EXPECT_STREQ(err_text(0xa2d38003), "Unknown status 0xa2d38003");
}

TEST(Memory, FreedBlocksAreJoinedAtOnce) {
  heap_join_freed_blocks_at_once();
  std::vector<std::unique_ptr<char[]>> blocks(10000);
  for (auto& block : blocks) block = std::make_unique<char[]>(40);
  blocks.clear();
  EXPECT_EQ(mallinfo2().fsmblks, 0U) << "octets in freed blocks that are not joined";
}

TEST(Memory, FreedBufferIsAvailableToTheNextOne) {
  heap_reuse_freed_buffers();
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  auto buffer = std::make_unique<char[]>(512 * page);  // zeroed, so that it has its pages
  char* const within = buffer.get() + 256 * page;
  char* const start = within - reinterpret_cast<std::uintptr_t>(within) % page;
  buffer.reset();
  if (mallinfo2().arena == 0) GTEST_SKIP() << "this allocator, a sanitizer's, has no settings";
  unsigned char state = 0;
  ASSERT_EQ(mincore(start, page, &state), 0) << "the buffer was unmapped";
  EXPECT_EQ(state & 1, 1) << "the page was returned";
}

// A page between two blocks that are in use.
TEST(Memory, FreedPagesAreReturned) {
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  std::vector<std::unique_ptr<char[]>> blocks(64);
  for (auto& block : blocks) block = std::make_unique<char[]>(8 * page);
  char* const within = blocks[31].get() + 4 * page;
  char* const start = within - reinterpret_cast<std::uintptr_t>(within) % page;
  const auto is_resident = [start, page] {
    unsigned char state = 0;
    EXPECT_EQ(mincore(start, page, &state), 0);
    return (state & 1) != 0;
  };
  EXPECT_TRUE(is_resident());
  blocks[31].reset();
  if (mallinfo2().fordblks < 8 * page) GTEST_SKIP() << "this allocator does not return pages";
  heap_return_freed_memory();
  EXPECT_FALSE(is_resident());
}

TEST(FaultPoint, UnarmedPointLetsEveryCallPass) {
  EXPECT_EQ(fault_check("kvtree_bind"), kStatusOk);
}

TEST(FaultPoint, FailsExactlyTheArmedCalls) {
  const ScopedFault fault("operation", kStatusIo, 2, 2);
  EXPECT_EQ(fault_check("operation"), kStatusOk);
  EXPECT_EQ(fault_check("operation"), kStatusIo);
  EXPECT_EQ(fault_check("operation"), kStatusIo);
  EXPECT_EQ(fault_check("operation"), kStatusOk);
  EXPECT_EQ(fault_check("another"), kStatusOk);
  EXPECT_EQ(fault_reached("operation"), 4U);
}

TEST(FaultPoint, CountZeroFailsForEver) {
  const ScopedFault fault("operation", kStatusIo, 1, 0);
  for (int call = 0; call < 5; ++call) EXPECT_EQ(fault_check("operation"), kStatusIo);
}

TEST(FaultPoint, TextArmsSeveralPoints) {
  ASSERT_EQ(fault_arm_from_text("kvtree_bind=0x40810200@3+1,proc_ready=5"), kStatusOk);
  EXPECT_EQ(fault_check("proc_ready"), 5U);
  EXPECT_EQ(fault_check("kvtree_bind"), kStatusOk);
  EXPECT_EQ(fault_check("kvtree_bind"), kStatusOk);
  EXPECT_EQ(fault_check("kvtree_bind"), kStatusUnavailable);
  fault_disarm_all();
}

TEST(FaultPoint, MalformedTextArmsNothing) {
  for (const char* text : {"a", "=5", "a=", "a=x", "a=0", "a=5@0", "a=5@1+x", "good=5,,bad=5"}) {
    EXPECT_EQ(fault_arm_from_text(text), kStatusInvalid) << text;
    EXPECT_EQ(fault_check("good"), kStatusOk) << text;
  }
}

TEST(Clock, ManualClockIsFrozenUntilAdvanced) {
  ManualClock clock(5 * kNanosecondsPerSecond);
  EXPECT_EQ(clock_stamp(), 5 * kNanosecondsPerSecond);
  clock.advance(kNanosecondsPerSecond);
  EXPECT_EQ(clock_stamp(), 6 * kNanosecondsPerSecond);
  EXPECT_EQ(clock_monotonic(), 6 * kNanosecondsPerSecond);
}

TEST(Clock, RealClockIsWallTime) {
  EXPECT_GT(clock_stamp(), 1'700'000'000 * kNanosecondsPerSecond);
}

TEST(Memory, TaggedAllocationIsZeroedAndFailsOnDemand) {
  auto* octets = static_cast<unsigned char*>(calloc_tagged(4, 8, "IF node"));
  ASSERT_NE(octets, nullptr);
  for (int i = 0; i < 32; ++i) EXPECT_EQ(octets[i], 0);
  std::free(octets);
  const ScopedFault fault("calloc_tagged:IF node", kStatusNoMemory);
  void* other = calloc_tagged(1, 8, "VRF node");
  EXPECT_NE(other, nullptr);
  std::free(other);
  EXPECT_EQ(calloc_tagged(1, 8, "IF node"), nullptr);
  fault_arm("calloc_tagged:IF node", kStatusNoMemory);
  EXPECT_EQ(malloc_tagged(8, "IF node"), nullptr);
}

TEST(Memory, TextReplaceOwnsACopy) {
  char* slot = nullptr;
  text_replace(&slot, "red");
  EXPECT_STREQ(slot, "red");
  text_replace(&slot, nullptr);
  EXPECT_EQ(slot, nullptr);
}

TEST(Directories, EnvironmentOverridesTheRunDirectory) {
  setenv("MPLS_VPN_MIB_RUN_DIR", "/tmp/somewhere", 1);
  EXPECT_EQ(event_manager_socket("/dev/mpls/vpn/main"), "/tmp/somewhere/dev.mpls.vpn.main");
  unsetenv("MPLS_VPN_MIB_RUN_DIR");
  EXPECT_EQ(run_directory(), "/run/mpls_vpn_mib");
}

TEST(AssertionDeathTest, PrintsFileLineAndConditionAndAborts) {
  EXPECT_DEATH(assertion_failed("mpls/vpn/mib/src/x", 12, "evm != NULL"),
               "mpls/vpn/mib/src/x: 12 evm != NULL -- assertion failed");
}

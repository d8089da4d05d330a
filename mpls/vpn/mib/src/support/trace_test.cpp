// The daemon's trace buffers, and the report of failures.
#include "mpls/vpn/mib/src/support/trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/files/directories.h"
#include "platform/core/trace/ring.h"

namespace {

using testing::IsEmpty;
using testing::SizeIs;

class TraceBuffers : public testing::Test {
 protected:
  void SetUp() override { debug_capture(&prints_); }
  void TearDown() override {
    debug_capture(nullptr);
    mpls_vpn_debug_flags[ERR].enabled.store(0);
    fault_disarm_all();
    mpls_vpn_trace_end();
  }
  std::vector<TraceEntry> Entries(const char* buffer) const {
    std::vector<TraceEntry> entries;
    EXPECT_EQ(trace_read(run_directory(), buffer, &entries), kStatusOk) << buffer;
    return entries;
  }
  // What begins the buffer's file.
  static std::unique_ptr<trace_detail::Header> HeaderOf(const char* buffer) {
    auto header = std::make_unique<trace_detail::Header>();
    std::ifstream file(trace_detail::folder(run_directory()) + "/" + trace_detail::file_name(buffer),
                       std::ios::binary);
    void* octets = header.get();
    file.read(static_cast<char*>(octets), sizeof *header);
    EXPECT_TRUE(file) << buffer;
    return header;
  }
  // Files of the trace folder that this process has mapped.
  static unsigned MappedBuffers() {
    std::ifstream maps("/proc/self/maps");
    unsigned count = 0;
    for (std::string line; std::getline(maps, line);) {
      count += line.find(trace_detail::folder(run_directory())) != std::string::npos ? 1 : 0;
    }
    return count;
  }
  static unsigned OpenBuffers() {
    unsigned count = 0;
    for (const MplsVpnTraceEntry& entry : mpls_vpn_ltrace_buffer_tbl)
      count += entry.buffer != nullptr ? 1 : 0;
    return count;
  }
  TestRunDirectory directory_;
  std::string prints_;
};

TEST_F(TraceBuffers, TheEightAreOpenedInOrderWithTheirParameters) {
  const struct {
    const char* name;
    std::uint32_t size;
    std::uint32_t further;
  } rows[] = {{"mpls_vpn/prov", 4096, 0},       {"mpls_vpn/init", 1024, 0},  {"mpls_vpn/vmap", 8192, 0},
              {"mpls_vpn/vtab", 8192, 0x58000}, {"mpls_vpn/chkpt", 8192, 0}, {"mpls_vpn/rib", 1024, 0},
              {"mpls_vpn/error", 8192, 0},      {"mpls_vpn/dbase", 4096, 0}};
  for (std::uint32_t i = 0; i < kMplsVpnTraceAreas; ++i) {
    EXPECT_EQ(mpls_vpn_ltrace_buffer_tbl[i].index, i);
    EXPECT_STREQ(mpls_vpn_ltrace_buffer_tbl[i].name, rows[i].name);
  }
  ASSERT_EQ(mpls_vpn_trace_init(), kStatusOk);
  for (const auto& row : rows) {
    const std::unique_ptr<trace_detail::Header> header = HeaderOf(row.name);
    EXPECT_EQ(header->entry_count, row.size) << row.name;
    EXPECT_EQ(header->further, row.further) << row.name;
    EXPECT_EQ(header->reserved1, 0U) << row.name;
    EXPECT_EQ(header->reserved2, 0U) << row.name;
  }
}

TEST_F(TraceBuffers, InitOpensAllAndWritesTheResult) {
  ASSERT_EQ(mpls_vpn_trace_init(), kStatusOk);
  EXPECT_EQ(OpenBuffers(), 8U);
  EXPECT_EQ(MappedBuffers(), 8U);
  EXPECT_THAT(trace_names(run_directory()), SizeIs(8));
  const std::vector<TraceEntry> entries = Entries("mpls_vpn/init");
  ASSERT_THAT(entries, SizeIs(1));
  EXPECT_EQ(entries[0].code, kStatusOk);
}

TEST_F(TraceBuffers, SecondInitOpensNothingAndReportsSuccess) {
  ASSERT_EQ(mpls_vpn_trace_init(), kStatusOk);
  std::vector<TraceBuffer*> before;
  for (const MplsVpnTraceEntry& entry : mpls_vpn_ltrace_buffer_tbl) before.push_back(entry.buffer);
  const ScopedFault fault("trace_open", kStatusIo);
  EXPECT_EQ(mpls_vpn_trace_init(), kStatusOk);
  EXPECT_EQ(mpls_vpn_trace_init(), kStatusOk) << "the second has left the mark of the first";
  EXPECT_EQ(fault_reached("trace_open"), 0U);
  for (unsigned i = 0; i < kMplsVpnTraceAreas; ++i) {
    EXPECT_EQ(mpls_vpn_ltrace_buffer_tbl[i].buffer, before[i]);
  }
  const std::vector<TraceEntry> entries = Entries("mpls_vpn/init");
  ASSERT_THAT(entries, SizeIs(3));
  EXPECT_EQ(entries[1].code, kStatusOk);
  EXPECT_EQ(entries[2].code, kStatusOk);
}

TEST_F(TraceBuffers, FourthBufferFailingClosesTheFirstThreeAndReturnsItsCode) {
  const ScopedFault fault("trace_open", kStatusNoMemory, 4);
  EXPECT_EQ(mpls_vpn_trace_init(), kStatusNoMemory);
  EXPECT_EQ(fault_reached("trace_open"), 4U);
  EXPECT_EQ(OpenBuffers(), 0U);
  EXPECT_EQ(MappedBuffers(), 0U);
}

TEST_F(TraceBuffers, InitAfterAFailureOpensAll) {
  fault_arm("trace_open", kStatusIo, 1);
  ASSERT_EQ(mpls_vpn_trace_init(), kStatusIo);
  EXPECT_EQ(mpls_vpn_trace_init(), kStatusOk);
  EXPECT_EQ(OpenBuffers(), 8U);
}

TEST_F(TraceBuffers, AnEntryOutOfPlaceEndsTheOpening) {
  mpls_vpn_ltrace_buffer_tbl[5].index = 6;
  EXPECT_EQ(mpls_vpn_trace_init(), kStatusOk);
  EXPECT_EQ(OpenBuffers(), 5U);
  mpls_vpn_ltrace_buffer_tbl[5].index = 5;
}

TEST_F(TraceBuffers, RecordsGoToTheirBufferWithTheirCode) {
  ASSERT_EQ(mpls_vpn_trace_init(), kStatusOk);
  mpls_vpn_trace(kTraceDbase, kStatusOk, "made %s", "red");
  mpls_vpn_trace(kTraceDbase, kStatusExists, "not made %s", "red");
  const std::vector<TraceEntry> entries = Entries("mpls_vpn/dbase");
  ASSERT_THAT(entries, SizeIs(2));
  EXPECT_EQ(entries[0].text, "made red");
  EXPECT_EQ(entries[0].record, kTraceRecordEvent);
  EXPECT_EQ(entries[1].code, kStatusExists);
  EXPECT_EQ(entries[1].record, kTraceRecordFailure);
}

TEST_F(TraceBuffers, ARecordBeforeInitIsDropped) {
  mpls_vpn_trace(kTraceError, kStatusIo, "too early");
  ASSERT_EQ(mpls_vpn_trace_init(), kStatusOk);
  EXPECT_THAT(Entries("mpls_vpn/error"), IsEmpty());
}

TEST_F(TraceBuffers, FailureIsPrintedUnderErrAndTraced) {
  ASSERT_EQ(mpls_vpn_trace_init(), kStatusOk);
  mpls_vpn_debug_flags[ERR].enabled.store(1);
  mpls_vpn_error("fetch_name", "no name", kStatusNoSuchRow);
  EXPECT_EQ(prints_, "Error in fetch_name: no name: No such file or directory\n");
  const std::vector<TraceEntry> entries = Entries("mpls_vpn/error");
  ASSERT_THAT(entries, SizeIs(1));
  EXPECT_EQ(entries[0].code, kStatusNoSuchRow);
}

TEST_F(TraceBuffers, FailureIsTracedAlsoWhileErrIsOff) {
  ASSERT_EQ(mpls_vpn_trace_init(), kStatusOk);
  mpls_vpn_error("fetch_name", "no name", kStatusNoSuchRow);
  EXPECT_EQ(prints_, "");
  EXPECT_THAT(Entries("mpls_vpn/error"), SizeIs(1));
}

}  // namespace

// Trace buffers: what is written is read, rings turn, damaged files are refused, readers run beside writers.
#include "platform/core/trace/trace.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/files/temporary_directory.h"
#include "platform/core/trace/ring.h"

namespace {

namespace fs = std::filesystem;

class TraceTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(setenv("MPLS_VPN_MIB_RUN_DIR", directory_.path().c_str(), 1), 0); }
  void TearDown() override {
    for (TraceBuffer* buffer : open_) trace_close(buffer);
    unsetenv("MPLS_VPN_MIB_RUN_DIR");
  }

  TraceBuffer* Open(const char* name, std::uint32_t size) {
    TraceBuffer* buffer = nullptr;
    EXPECT_EQ(trace_open(name, size, 0, 0, 0, &buffer), kStatusOk);
    open_.push_back(buffer);
    return buffer;
  }

  std::vector<TraceEntry> Read(const std::string& name) const {
    std::vector<TraceEntry> entries;
    EXPECT_EQ(trace_read(directory_.path(), name, &entries), kStatusOk);
    return entries;
  }
  Status ReadStatus(const std::string& name) const {
    std::vector<TraceEntry> entries;
    return trace_read(directory_.path(), name, &entries);
  }
  std::string File(const std::string& file) const { return directory_.path() + "/trace/" + file; }

  std::uint64_t Lost(const std::string& file_name) const {
    trace_detail::Header header{};
    std::ifstream file(File(file_name), std::ios::binary);
    file.read(static_cast<char*>(static_cast<void*>(&header)), sizeof header);
    return header.lost.load();
  }

  // Replaces octets of a buffer's file.
  void Damage(const std::string& file, std::size_t at, const std::string& octets) const {
    std::fstream stream(File(file), std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(static_cast<std::streamoff>(at));
    stream << octets;
    ASSERT_TRUE(stream.good());
  }

  const TemporaryDirectory directory_;
  std::vector<TraceBuffer*> open_;
};

TEST_F(TraceTest, RecordIsReadAsItWasWritten) {
  const ManualClock clock(42);
  TraceBuffer* buffer = Open("mpls_vpn/error", 16);
  trace_write(buffer, 7, kStatusIo, "%s: %s", "main", "proc_ready");
  const std::vector<TraceEntry> entries = Read("mpls_vpn/error");
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].sequence, 1U);
  EXPECT_EQ(entries[0].stamp, 42U);
  EXPECT_EQ(entries[0].thread, static_cast<std::uint32_t>(gettid()));
  EXPECT_EQ(entries[0].record, 7U);
  EXPECT_EQ(entries[0].code, kStatusIo);
  EXPECT_EQ(entries[0].text, "main: proc_ready");
}

TEST_F(TraceTest, FreshBufferIsEmpty) {
  Open("mpls_vpn/init", 8);
  EXPECT_TRUE(Read("mpls_vpn/init").empty());
}

TEST_F(TraceTest, FullRingKeepsTheLatestOldestFirst) {
  TraceBuffer* buffer = Open("ring", 4);
  for (unsigned i = 1; i <= 10; ++i) trace_write(buffer, i, 0, "%u", i);
  const std::vector<TraceEntry> entries = Read("ring");
  ASSERT_EQ(entries.size(), 4U);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(entries[i].sequence, 7 + i);
    EXPECT_EQ(entries[i].text, std::to_string(7 + i));
  }
}

TEST_F(TraceTest, LongTextIsCutAndMarked) {
  TraceBuffer* buffer = Open("long", 4);
  const std::string longest(kTraceTextMax, 'x');
  for (const std::size_t length : {kTraceTextMax, kTraceTextMax + 1, 10 * kTraceTextMax}) {
    trace_write(buffer, 1, 0, "%s", std::string(length, 'x').c_str());
  }
  EXPECT_EQ(Read("long").at(0).text, longest);
  const std::string marked = longest.substr(3) + "...";
  EXPECT_EQ(Read("long").at(1).text, marked);
  EXPECT_EQ(Read("long").at(2).text, marked);
}

// A file is not trusted: a text that fills its entry has no terminator.
TEST_F(TraceTest, TextWithoutTerminatorIsReadToItsBound) {
  trace_write(Open("damaged", 1), 1, 0, "x");
  const std::size_t text = sizeof(trace_detail::Header) + offsetof(trace_detail::Entry, text);
  Damage("damaged", text, std::string(trace_detail::kTextWords * 8, 'x'));
  EXPECT_EQ(Read("damaged").at(0).text, std::string(kTraceTextMax, 'x'));
}

TEST_F(TraceTest, ShortTextReplacesALongOne) {
  TraceBuffer* buffer = Open("short", 1);
  for (const std::size_t length : {100U, 8U, 7U, 0U}) {
    trace_write(buffer, 1, 0, "%s", std::string(length, 'x').c_str());
    EXPECT_EQ(Read("short").at(0).text, std::string(length, 'x'));
  }
}

TEST_F(TraceTest, OpeningEmptiesTheBuffer) {
  trace_write(Open("again", 4), 1, 0, "former");
  TraceBuffer* buffer = Open("again", 8);
  EXPECT_TRUE(Read("again").empty());
  trace_write(buffer, 1, 0, "new");
  EXPECT_EQ(Read("again").at(0).text, "new");
}

TEST_F(TraceTest, FormerWriterDoesNotReachTheReopenedBuffer) {
  TraceBuffer* former = Open("again", 4);
  Open("again", 4);
  trace_write(former, 1, 0, "to the former file");
  EXPECT_TRUE(Read("again").empty());
}

TEST_F(TraceTest, NullBufferDropsTheRecord) {
  trace_write(nullptr, 1, 0, "nothing");
  trace_close(nullptr);
  EXPECT_TRUE(trace_names(directory_.path()).empty());
}

TEST_F(TraceTest, RecordsOutliveAKilledProcess) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    TraceBuffer* buffer = nullptr;
    if (trace_open("killed", 4, 0, 0, 0, &buffer) != kStatusOk) _exit(1);
    trace_write(buffer, 1, 0, "last words");
    kill(getpid(), SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(Read("killed").at(0).text, "last words");
}

TEST_F(TraceTest, HeaderKeepsTheParametersForReaders) {
  TraceBuffer* buffer = nullptr;
  ASSERT_EQ(trace_open("mpls_vpn/vtab", 8, 0x58000, 3, 4, &buffer), kStatusOk);
  open_.push_back(buffer);
  trace_detail::Header header{};
  std::ifstream file(File("mpls_vpn.vtab"), std::ios::binary);
  file.read(static_cast<char*>(static_cast<void*>(&header)), sizeof header);
  EXPECT_EQ(header.entry_count, 8U);
  EXPECT_EQ(header.further, 0x58000U);
  EXPECT_EQ(header.reserved1, 3U);
  EXPECT_EQ(header.reserved2, 4U);
  EXPECT_EQ(header.process, static_cast<std::uint32_t>(getpid()));
}

TEST_F(TraceTest, NamesAreListedSortedAsTheyWereGiven) {
  Open("mpls_vpn/prov", 4);
  Open("mpls_vpn/error", 4);
  std::ofstream(File("no_buffer")) << "text";
  std::ofstream(File(".mpls_vpn.half")) << "text";
  EXPECT_EQ(trace_names(directory_.path()), (std::vector<std::string>{"mpls_vpn/error", "mpls_vpn/prov"}));
  EXPECT_TRUE(trace_names(directory_.path() + "/nothing").empty());
}

TEST_F(TraceTest, BadNamesAndSizesAreInvalid) {
  TraceBuffer* buffer = nullptr;
  const std::string longest(kTraceNameMax, 'n');
  const std::vector<std::string> bad = {"",          ".hidden",     "/absolute",
                                        "two words", "line\nbreak", longest + "n"};
  for (const std::string& name : bad) {
    EXPECT_EQ(trace_open(name.c_str(), 4, 0, 0, 0, &buffer), kStatusInvalid) << name;
  }
  EXPECT_EQ(trace_open(nullptr, 4, 0, 0, 0, &buffer), kStatusInvalid);
  EXPECT_EQ(trace_open("name", 0, 0, 0, 0, &buffer), kStatusInvalid);
  EXPECT_EQ(trace_open("name", trace_detail::kMaxEntries + 1, 0, 0, 0, &buffer), kStatusInvalid);
  EXPECT_EQ(trace_open("name", 4, 0, 0, 0, nullptr), kStatusInvalid);
  trace_write(Open(longest.c_str(), 4), 1, 0, "x");
  EXPECT_EQ(Read(longest).size(), 1U);
}

TEST_F(TraceTest, FolderThatCannotBeCreatedIsReportedByItsErrno) {
  std::ofstream(directory_.path() + "/trace") << "a file in the way";
  TraceBuffer* buffer = nullptr;
  EXPECT_EQ(trace_open("name", 4, 0, 0, 0, &buffer), static_cast<Status>(ENOTDIR));
}

TEST_F(TraceTest, FileThatCannotBeCreatedIsReportedByItsErrno) {
  fs::create_directories(File(".name"));
  TraceBuffer* buffer = nullptr;
  testing::internal::CaptureStderr();
  EXPECT_EQ(trace_open("name", 4, 0, 0, 0, &buffer), static_cast<Status>(EEXIST));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "trace: " + File("name") + " cannot be created: File exists\n");
  fs::create_directories(File("other/inside"));
  EXPECT_EQ(trace_open("other", 4, 0, 0, 0, &buffer), static_cast<Status>(EISDIR));
  EXPECT_FALSE(fs::exists(File(".other")));
}

TEST_F(TraceTest, FaultPointFailsTheOpening) {
  const ScopedFault fault("trace_open", kStatusNoMemory);
  TraceBuffer* buffer = nullptr;
  EXPECT_EQ(trace_open("name", 4, 0, 0, 0, &buffer), kStatusNoMemory);
  EXPECT_FALSE(fs::exists(File("name")));
}

TEST_F(TraceTest, UnknownBufferHasNoSuchRow) {
  EXPECT_EQ(ReadStatus("absent"), kStatusNoSuchRow);
  EXPECT_EQ(ReadStatus(""), kStatusNoSuchRow);
  EXPECT_EQ(ReadStatus("../secret"), kStatusNoSuchRow);
  EXPECT_EQ(trace_read(directory_.path(), "absent", nullptr), kStatusInvalid);
}

TEST_F(TraceTest, FileThatIsNotATraceBufferIsABadMessage) {
  trace_write(Open("buffer", 4), 1, 0, "x");
  std::ofstream(File("text")) << std::string(4096, 'x');
  std::ofstream(File("empty")).flush();
  fs::create_directory(File("folder"));
  for (const char* name : {"text", "empty", "folder"}) EXPECT_EQ(ReadStatus(name), kStatusBadMessage) << name;
  const auto damaged = [this](std::size_t at, const std::string& octets) {
    fs::copy_file(File("buffer"), File("copy"), fs::copy_options::overwrite_existing);
    Damage("copy", at, octets);
    return ReadStatus("copy");
  };
  using trace_detail::Header;
  EXPECT_EQ(damaged(offsetof(Header, magic), "x"), kStatusBadMessage);
  EXPECT_EQ(damaged(offsetof(Header, entry_size), "x"), kStatusBadMessage);
  EXPECT_EQ(damaged(offsetof(Header, entry_count), std::string("\5\0\0\0", 4)), kStatusBadMessage);
  EXPECT_EQ(damaged(offsetof(Header, entry_count), std::string(4, '\0')), kStatusBadMessage);
  EXPECT_EQ(damaged(offsetof(Header, entry_count), std::string(4, '\xff')), kStatusBadMessage);
  fs::resize_file(File("copy"), 200);
  EXPECT_EQ(ReadStatus("copy"), kStatusBadMessage);
}

TEST_F(TraceTest, EntryBeingWrittenIsSkipped) {
  TraceBuffer* buffer = Open("half", 4);
  trace_write(buffer, 1, 0, "whole");
  trace_write(buffer, 2, 0, "half");
  Damage("half", sizeof(trace_detail::Header) + sizeof(trace_detail::Entry),
         std::string("\3\0\0\0\0\0\0\0", 8));
  const std::vector<TraceEntry> entries = Read("half");
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].text, "whole");
}

TEST_F(TraceTest, RecordWhosePlaceIsStillBeingWrittenIsGivenUpAndCounted) {
  TraceBuffer* buffer = Open("stalled", 1);
  trace_write(buffer, 1, 0, "first");
  // As if the writer of record 1 stood still in the only entry.
  Damage("stalled", sizeof(trace_detail::Header), std::string("\1\0\0\0\0\0\0\0", 8));
  trace_write(buffer, 2, 0, "given up");
  EXPECT_TRUE(Read("stalled").empty());
  EXPECT_EQ(Lost("stalled"), 1U);
}

TEST_F(TraceTest, LateWriterDoesNotOverwriteANewerRecord) {
  TraceBuffer* buffer = Open("late", 1);
  trace_write(buffer, 1, 0, "newer");
  // As if record 5 had been written while the writer of record 2 stood still.
  Damage("late", sizeof(trace_detail::Header), std::string("\12\0\0\0\0\0\0\0", 8));
  trace_write(buffer, 2, 0, "late");
  EXPECT_EQ(Read("late").at(0).text, "newer");
  EXPECT_EQ(Lost("late"), 1U);
}

// Reading passes beside the writers. The sanitizers look at every access and need few; torn entries need
// many.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kReadingPasses = 30;
#else
constexpr int kReadingPasses = 6000;
#endif

// Every text repeats its record number, so that a torn entry would show.
void expect_whole(const TraceEntry& entry) {
  const std::string number = std::to_string(entry.record);
  std::string expected = number;
  for (int i = 0; i < 6; ++i) expected += " " + number;
  ASSERT_EQ(entry.text, expected);
  ASSERT_EQ(entry.code, entry.record);
}

TEST_F(TraceTest, ReadersBesideWritersSeeWholeEntriesOnly) {
  TraceBuffer* buffer = Open("busy", 256);
  std::atomic<bool> stop{false};
  const auto write = [&](std::uint32_t base) {
    for (std::uint32_t i = base; !stop; ++i) {
      trace_write(buffer, i, i, "%u %u %u %u %u %u %u", i, i, i, i, i, i, i);
    }
  };
  std::thread first(write, 0);
  std::thread second(write, 1'000'000'000);
  while (Read("busy").empty()) std::this_thread::yield();  // the writers' threads may start late
  std::uint64_t seen = 0;
  for (int pass = 0; pass < kReadingPasses && !HasFatalFailure(); ++pass) {
    std::uint64_t previous = 0;
    for (const TraceEntry& entry : Read("busy")) {
      expect_whole(entry);
      EXPECT_GT(entry.sequence, previous);
      previous = entry.sequence;
      ++seen;
    }
  }
  stop = true;
  first.join();
  second.join();
  EXPECT_GT(seen, 0U);
}

}  // namespace

// "trace", over buffers that the trace service wrote.
#include "platform/core/trace/trace.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cli/command_line_test_fixture.h"
#include "cli/output/json_list.h"
#include "platform/core/base/clock.h"

namespace cli {
namespace {

using ::testing::HasSubstr;

constexpr uid_t kUnprivileged = 65534;
constexpr gid_t kDaemonGroup = 1;                                                // "daemon"
constexpr std::uint64_t kStamp = 1'767'323'045 * kNanosecondsPerSecond + 6'000;  // 2026-01-02 03:04:05.000006

class TraceCommand : public CommandLine {
 protected:
  ~TraceCommand() override { trace_close(buffer_); }
  void Write(const char* name, const std::vector<std::string>& texts, Status code = kStatusOk) {
    trace_close(buffer_);
    buffer_ = nullptr;
    ASSERT_EQ(trace_open(name, 16, 0, 0, 0, &buffer_), kStatusOk);
    for (const std::string& text : texts) trace_write(buffer_, 7, code, "%s", text.c_str());
  }

  ManualClock clock_{kStamp};
  TraceBuffer* buffer_ = nullptr;
};

TEST_F(TraceCommand, BuffersAreListed) {
  Write("mpls_vpn/init", {"one", "two"});
  Write("mpls_vpn/error", {});
  EXPECT_EQ(Run({"trace"}), kExitOk) << Err();
  EXPECT_EQ(Out(),
            "BUFFER          ENTRIES  LAST\n"
            "mpls_vpn/error        0\n"
            "mpls_vpn/init         2  2026-01-02T03:04:05.000006Z\n");
  EXPECT_EQ(Run({"--json", "trace"}), kExitOk);
  EXPECT_EQ(Json::parse(Out())[1], (Json{{"buffer", "mpls_vpn/init"},
                                         {"entries", 2},
                                         {"last", 1'767'323'045},
                                         {"lastText", "2026-01-02T03:04:05.000006Z"}}));
}

TEST_F(TraceCommand, EntriesAreShownOldestFirst) {
  Write("mpls_vpn/init", {"one", "two"});
  EXPECT_EQ(Run({"trace", "mpls_vpn/init"}), kExitOk) << Err();
  EXPECT_THAT(Out(), HasSubstr("2026-01-02T03:04:05.000006Z "));
  EXPECT_THAT(Out(), HasSubstr(" 7 one\n"));
  EXPECT_LT(Out().find(" 7 one\n"), Out().find(" 7 two\n"));
}

TEST_F(TraceCommand, PrefixOfTheNameMayBeLeftOut) {
  Write("mpls_vpn/init", {"one"});
  EXPECT_EQ(Run({"trace", "init"}), kExitOk) << Err();
  EXPECT_THAT(Out(), HasSubstr("one"));
}

TEST_F(TraceCommand, CodeIsShownWithItsText) {
  Write("mpls_vpn/error", {"no luck"}, kStatusArgumentMissing);
  EXPECT_EQ(Run({"trace", "error"}), kExitOk);
  EXPECT_THAT(Out(), HasSubstr("no luck [A path argument is missing]\n"));
}

TEST_F(TraceCommand, EmptyBufferIsNamed) {
  Write("mpls_vpn/error", {});
  EXPECT_EQ(Run({"trace", "error"}), kExitOk);
  EXPECT_EQ(Out(), "");
  EXPECT_EQ(Err(), "mplsvpn: trace buffer mpls_vpn/error is empty\n");
}

TEST_F(TraceCommand, LastBoundsTheEntries) {
  Write("mpls_vpn/init", {"one", "two", "three"});
  EXPECT_EQ(Run({"--json", "trace", "init", "--last", "2"}), kExitOk) << Err();
  const Json entries = Json::parse(Out());
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0]["text"], "two");
  EXPECT_EQ(Run({"--json", "trace", "init", "--last", "9"}), kExitOk);
  EXPECT_EQ(Json::parse(Out()).size(), 3U);
  EXPECT_EQ(Run({"trace", "init", "--last", "0"}), kExitUsage);
}

TEST_F(TraceCommand, JsonHasEveryFieldOfAnEntry) {
  Write("mpls_vpn/init", {"one"}, kStatusNoMemory);
  EXPECT_EQ(Run({"--json", "trace", "init"}), kExitOk);
  Json entry = Json::parse(Out())[0];
  EXPECT_GT(entry["thread"], 0);
  entry.erase("thread");
  EXPECT_EQ(entry, (Json{{"sequence", 1},
                         {"stamp", kStamp},
                         {"time", 1767323045},
                         {"timeText", "2026-01-02T03:04:05.000006Z"},
                         {"record", 7},
                         {"code", 12},
                         {"codeText", "Cannot allocate memory"},
                         {"text", "one"}}));
}

TEST_F(TraceCommand, BufferThatIsNotThereIsNamed) {
  Write("mpls_vpn/init", {});
  EXPECT_EQ(Run({"trace", "nothing"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: unknown trace buffer \"nothing\"; expected init\n");
  EXPECT_EQ(Run({"trace", "mpls_vpn/inti"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: unknown trace buffer \"mpls_vpn/inti\"; did you mean \"mpls_vpn/init\"?\n");
  EXPECT_EQ(Run({"trace", "in"}), kExitOk) << "an abbreviation";
}

TEST_F(TraceCommand, DirectoryWithoutBuffersIsAFailure) {
  EXPECT_EQ(Run({"trace"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: there are no trace buffers in " + Directory() +
                       "; --run-dir sets the daemon's run directory\n");
}

// Runs the command as another user and returns its exit status, and what it prints to standard error.
int run_unprivileged(const std::vector<std::string>& words, std::string* printed = nullptr) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return -1;
  const pid_t child = fork();
  if (child == 0) {
    std::ostringstream out;
    std::ostringstream err;
    const bool is_other =
        setgroups(0, nullptr) == 0 && setgid(kUnprivileged) == 0 && setuid(kUnprivileged) == 0;
    const int status = is_other ? run(words, out, err) : -1;
    const bool is_written = write(ends[1], err.str().data(), err.str().size()) >= 0;
    _exit(is_written ? status : -1);
  }
  close(ends[1]);
  std::array<char, 4096> text{};
  const ssize_t length = read(ends[0], text.data(), text.size());
  close(ends[0]);
  if (printed != nullptr && length >= 0) printed->assign(text.data(), static_cast<std::size_t>(length));
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(TraceCommand, BuffersThatTheUserMayNotReadHaveAStatusOfTheirOwn) {
  if (getuid() != 0) GTEST_SKIP() << "SKIPPED: only root can become another user";
  Write("mpls_vpn/init", {"one"});
  const std::string trace = Directory() + "/trace";
  for (const std::string& path : {Directory(), trace}) ASSERT_EQ(chmod(path.c_str(), 0755), 0);
  ASSERT_EQ(chown((trace + "/mpls_vpn.init").c_str(), 0, kDaemonGroup), 0);
  std::string printed;
  EXPECT_EQ(run_unprivileged({"trace", "init"}, &printed), kExitNoRight);
  EXPECT_THAT(printed,
              HasSubstr("mpls_vpn.init: permission denied; only root and the group daemon may use it; "
                        "\"adduser USER daemon\" adds a user"));
  EXPECT_EQ(run_unprivileged({"trace"}), kExitNoRight);
  ASSERT_EQ(chmod((trace + "/mpls_vpn.init").c_str(), 0644), 0);
  EXPECT_EQ(run_unprivileged({"trace", "init"}), kExitOk);
  ASSERT_EQ(chmod(trace.c_str(), 0750), 0);
  EXPECT_EQ(run_unprivileged({"trace"}), kExitNoRight);
}

TEST_F(TraceCommand, FileThatIsNotABufferIsNotListed) {
  Write("mpls_vpn/init", {});
  std::ofstream(Directory() + "/trace/mpls_vpn.other") << "no buffer";
  EXPECT_EQ(Run({"trace", "other"}), kExitFailed);
  EXPECT_EQ(Run({"--json", "trace"}), kExitOk);
  EXPECT_EQ(Json::parse(Out()).size(), 1U);
}

}  // namespace
}  // namespace cli

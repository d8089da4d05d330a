// A daemon that started: what it restored, its debug flags, its threads, and when it reported readiness.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>

#include <cerrno>
#include <filesystem>
#include <future>

#include "mpls/vpn/mib/src/start_test_support.h"
#include "platform/core/debug/debug_client.h"

// The linker prefers this to the library's.
extern "C" void openlog(const char* identity, int options, int facility) {
  std::ofstream(run_directory() + "/opened_log") << identity << '\n' << options << '\n' << facility << '\n';
}

// So does --wrap in the build file: what the daemon asks of its event managers is noted on the way.
EventManager* real_event_manager_create(const char* name,
                                        std::uint32_t flags) __asm__("__real__Z20event_manager_createPKcj");
EventManager* noted_event_manager_create(const char* name,
                                         std::uint32_t flags) __asm__("__wrap__Z20event_manager_createPKcj");
int real_event_wait(EventContext* context) __asm__("__real__Z10event_waitP12EventContext");
int noted_event_wait(EventContext* context) __asm__("__wrap__Z10event_waitP12EventContext");

namespace {

// A file whose name is that of the manager.
void note(const char* what, const std::string& manager, std::uint64_t number) {
  std::ofstream(run_directory() + "/" + what + manager.substr(manager.rfind('/') + 1)) << number;
}

}  // namespace

EventManager* noted_event_manager_create(const char* name, std::uint32_t flags) {
  note("flags_", name, flags);
  return real_event_manager_create(name, flags);
}

int noted_event_wait(EventContext* context) {
  static thread_local pid_t noted = 0;  // the process that did: a child inherits it
  if (std::exchange(noted, getpid()) != getpid())
    note("buffer_", event_manager_name(context->manager), context->buffer_size);
  const int rc = real_event_wait(context);
  if (!event_wait_fails_without_an_error) return rc;
  errno = 0;
  return -1;
}

namespace {

using testing::Contains;
using testing::Each;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

// --- A daemon that started

TEST_F(Daemon, CompletesInitAndServesRequests) {
  StartAndWaitUntilUp();
  EXPECT_THAT(Output(), HasSubstr("Completed init"));
  kvtree::Client client(event_manager_socket("/dev/mpls/vpn/main"), std::chrono::seconds(20));
  ASSERT_EQ(client.connect(), kStatusOk);
  EXPECT_EQ(client.get("/oper/mpls_vpn/gl/scalars").status, kStatusOk);
  EXPECT_EQ(client.get("/oper/mpls_vpn/gl/interface-next//0").status, kStatusNoSuchRow);
}

TEST_F(Daemon, FirstStartDoesNotRestore) {
  StartAndWaitUntilUp();
  EXPECT_THAT(Output(), HasSubstr("Chkpt init"));
  EXPECT_THAT(Output(), Not(HasSubstr("Restoring data from chkpt...")));
}

TEST_F(Daemon, SecondStartRestoresTheTimesBeforeItCompletes) {
  RunOnce();
  StartAndWaitUntilUp();
  const std::string output = Output();
  const std::size_t restored = output.find("...Restored data from chkpt");
  ASSERT_NE(restored, std::string::npos) << output;
  EXPECT_LT(restored, output.find("Completed init"));
  EXPECT_THAT(Traced("mpls_vpn/chkpt"),
              Contains("Checkpoint found a total of 1 records. Good records = 1, stale record = 0."));
}

// A record that the restore does not find is made before anything is answered.
TEST_F(Daemon, SecondStartSavesAVrfThatHasNoRecord) {
  RunOnce();
  fault_arm("chkpt_iterate_next", kStatusIo);
  fault_arm("chkpt_mapkey", kStatusChkptKeyNotFound);
  StartAndWaitUntilUp();
  EXPECT_THAT(Traced("mpls_vpn/chkpt"),
              IsSupersetOf({HasSubstr("total of 0 records"), HasSubstr("Checkpoint save VRF red")}));
}

TEST_F(Daemon, FailedRestoreEndsItWithItsOwnCode) {
  RunOnce();
  fault_arm("chkpt_iterate_start", kStatusAccess);
  ExpectExit(static_cast<int>(kStatusAccess));
  EXPECT_THAT(Output(), HasSubstr("Error in main: mpls_vpn_mib_chkpt_restore: Permission denied"));
  EXPECT_THAT(Output(), Not(HasSubstr("Completed init")));
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("main: mpls_vpn_mib_chkpt_restore"));
}

// The system keeps eight bits of an exit status; a failed restore must not look like success.
TEST_F(Daemon, FailedRestoreWhoseCodeWouldLookLikeSuccessEndsItWithStatus1) {
  static_assert((kStatusChkptMapping & 0xff) == 0);
  RunOnce();
  fault_arm("chkpt_iterate_start", kStatusChkptMapping);
  ExpectExit(1);
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code), Contains("main: mpls_vpn_mib_chkpt_restore"));
  EXPECT_EQ(code, kStatusChkptMapping);
}

TEST_F(Daemon, OpensTheSystemLogInItsOwnName) {
  fault_arm("event_manager_create", kStatusIo);  // the log is opened before
  ExpectExit(1);
  // The process id, the console on failure, and at once (a bit of its own here); the daemons' facility.
  const std::string options = std::to_string(19 | LOG_NDELAY);
  EXPECT_EQ(read_file(run_directory() + "/opened_log"), "mpls_vpn_mib\n" + options + "\n24\n");
}

TEST_F(Daemon, CreatesBothManagersWithTheSameFlags) {
  StartAndWaitUntilUp();
  const std::string flags = std::to_string(0x70000004);
  EXPECT_EQ(read_file(run_directory() + "/flags_main"), flags);
  EXPECT_EQ(read_file(run_directory() + "/flags_debug"), flags);
}

TEST_F(Daemon, ReceivesIntoABufferOfItsOwnSizeInEachLoop) {
  StartAndWaitUntilUp();
  const auto buffer_of = [](const char* loop) {
    const std::string path = run_directory() + "/buffer_" + loop;
    EXPECT_TRUE(WaitUntil([&] { return !read_file(path).empty(); })) << loop;
    return read_file(path);
  };
  EXPECT_EQ(buffer_of("main"), "1024");
  EXPECT_EQ(buffer_of("debug"), "128");
}

TEST_F(Daemon, PrintsNothingOfItsStartWhileTheAreaIsOff) {
  ASSERT_EQ(setenv("MPLS_VPN_MIB_DEBUG", "errors", 1), 0);
  StartAndWaitUntilUp();
  EXPECT_EQ(Output(), "");
}

TEST_F(Daemon, StartsWithoutTheAsNumberFormat) {
  fault_arm("bgp_util_asn_format_init_notify", kStatusIo);
  StartAndWaitUntilUp();
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("main: bgp_util_asn_format_init_notify"));
}

// --- Debug flags of a running daemon

class DebugCommands : public Daemon {
 protected:
  // Holds the main thread up within an answer, until Release().
  void HoldMainThread() {
    ASSERT_EQ(mkfifo(hold_file().c_str(), 0600), 0);
    answer_ = std::async(std::launch::async, [] {
      kvtree::Client client(event_manager_socket("/dev/mpls/vpn/main"), kBound);
      const Status status = client.connect();
      return status != kStatusOk ? status : client.get("/oper/mpls_vpn/gl/scalars").status;
    });
    // The main thread must open the pipe before a writer can.
    ASSERT_TRUE(WaitUntil([this] {
      hold_ = open(hold_file().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
      return hold_ >= 0;
    }));
    ASSERT_EQ(unlink(hold_file().c_str()), 0);
  }
  bool IsMainThreadHeld() const {
    return answer_.wait_for(std::chrono::seconds(0)) == std::future_status::timeout;
  }
  // The status of the answer that was held up.
  Status Release() {
    close(std::exchange(hold_, -1));
    return answer_.get();
  }
  void TearDown() override {
    if (hold_ >= 0) close(hold_);
    Daemon::TearDown();
  }
  // Its areas and whether they are on, in order.
  static std::vector<std::pair<std::string, bool>> Areas(DebugClient* client) {
    std::vector<DebugFlagState> flags;
    EXPECT_EQ(client->list(&flags), kStatusOk);
    std::vector<std::pair<std::string, bool>> areas;
    for (const DebugFlagState& flag : flags) areas.emplace_back(flag.name, flag.on);
    EXPECT_THAT(flags, Each(Field(&DebugFlagState::name_space, "/debug/mpls_vpn/")));
    return areas;
  }
  static std::vector<std::pair<std::string, bool>> AreasWithProv(bool prov) {
    return {{"start", true},   {"prov", prov},        {"vtab", false},  {"rib", false},   {"dbase", false},
            {"cfgmgr", false}, {"checkpoint", false}, {"errors", true}, {"traps", false}, {"vmap", false}};
  }
  int hold_ = -1;
  std::future<Status> answer_;
};

TEST_F(DebugCommands, ListAndSwitchTheAreas) {
  StartAndWaitUntilUp();
  DebugClient client(DebugClient::default_socket(), kBound);
  ASSERT_EQ(client.connect(), kStatusOk);
  EXPECT_EQ(Areas(&client), AreasWithProv(false));
  EXPECT_EQ(client.set("prov", true), kStatusOk);
  EXPECT_EQ(Areas(&client), AreasWithProv(true));
  EXPECT_EQ(client.set("prov", false), kStatusOk);
  EXPECT_EQ(Areas(&client), AreasWithProv(false));
}

TEST_F(DebugCommands, AreHandledWhileTheMainThreadIsBusy) {
  StartAndWaitUntilUp();
  HoldMainThread();
  DebugClient client(DebugClient::default_socket(), kBound);
  ASSERT_EQ(client.connect(), kStatusOk);
  EXPECT_EQ(client.set("prov", true), kStatusOk);
  EXPECT_EQ(Areas(&client), AreasWithProv(true));
  EXPECT_TRUE(IsMainThreadHeld());
  EXPECT_EQ(Release(), kStatusOk);
}

// --- Threads

// The files /proc/PID/task/*/NAME of all threads.
std::vector<std::string> thread_files(pid_t pid, const std::string& name) {
  std::vector<std::string> texts;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    texts.push_back(read_file(task.path() / name));
  }
  return texts;
}

// The second thread names itself; that may be after start-up has ended.
class Threads : public Daemon {
 protected:
  void StartAndWaitForBothThreads() {
    StartAndWaitUntilUp();
    ASSERT_TRUE(WaitUntil([this] {
      const std::vector<std::string> names = thread_files(pid_, "comm");
      return std::find(names.begin(), names.end(), "debug and show\n") != names.end();
    }));
  }
};

TEST_F(Threads, AreNamedMainAndDebugAndShow) {
  StartAndWaitForBothThreads();
  // A sanitizer may have a thread of its own beside them.
  EXPECT_THAT(thread_files(pid_, "comm"), IsSupersetOf({"main\n", "debug and show\n"}));
}

// Bit n - 1 is signal n.
std::uint64_t blocked_signals(const std::string& status) {
  const std::string label = "SigBlk:\t";
  const std::size_t at = status.find(label);
  EXPECT_NE(at, std::string::npos);
  return std::stoull(status.substr(at + label.size(), 16), nullptr, 16);
}

TEST_F(Threads, BlockTheTwoSignalsAndNoOther) {
  const std::uint64_t inherited = blocked_signals(read_file("/proc/self/status"));
  StartAndWaitForBothThreads();
  const std::uint64_t wanted =
      inherited | std::uint64_t{1} << (SIGRTMIN + 6 - 1) | std::uint64_t{1} << (SIGRTMIN + 10 - 1);
  EXPECT_EQ(blocked_signals(read_file("/proc/" + std::to_string(pid_) + "/status")),
            wanted);  // the first thread
  int second_threads = 0;
  for (const std::string& status : thread_files(pid_, "status")) {
    if (status.rfind("Name:\tdebug and show\n", 0) != 0) continue;
    EXPECT_EQ(blocked_signals(status), wanted);
    ++second_threads;
  }
  EXPECT_EQ(second_threads, 1);
}

// --- Readiness

class Readiness : public Daemon {
 protected:
  void SetUp() override {
    Daemon::SetUp();
    const std::string path = directory_.path() + "/notify";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, path.size());
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    ASSERT_GE(socket_, 0);
    const void* generic = &address;
    ASSERT_EQ(bind(socket_, static_cast<const sockaddr*>(generic), sizeof address), 0);
    ASSERT_EQ(setenv("NOTIFY_SOCKET", path.c_str(), 1), 0);
  }
  void TearDown() override {
    Daemon::TearDown();
    close(socket_);
  }
  std::string Received() const {
    char text[64];
    const ssize_t length = recv(socket_, text, sizeof text, 0);
    return length < 0 ? "" : std::string(text, static_cast<std::size_t>(length));
  }

 private:
  int socket_ = -1;
};

TEST_F(Readiness, IsReportedBeforeTheProviderRegistration) {
  fault_arm("ifindex_initialize_evm", kStatusIo);  // its first step
  ExpectExit(1);
  EXPECT_THAT(Received(), HasSubstr("READY=1"));
}

TEST_F(Readiness, IsNotReportedBeforeTheRecordServiceIsRegistered) {
  fault_arm("vtab_reg_if_attributes", kStatusIo);  // its last step
  ExpectExit(1);
  EXPECT_THAT(Received(), IsEmpty());
}

}  // namespace

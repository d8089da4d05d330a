// Start-up step by step, each failing once, in a process of its own; and a daemon that came up.
#include "mpls/vpn/mib/src/mpls_vpn_mib_start.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "mpls/vpn/mib/src/mpls_vpn_parcel.h"
#include "platform/base/directories.h"
#include "platform/base/fault.h"
#include "platform/bgp_vpn/bgp_vpn.h"
#include "platform/chkpt/chkpt.h"
#include "platform/debug/debug_client.h"
#include "platform/evm/test_run_directory.h"
#include "platform/ifindex/ifindex.h"
#include "platform/kvtree/client.h"
#include "platform/kvtree/kvtree.h"
#include "platform/parcel/parcel.h"
#include "platform/qic/qic.h"
#include "platform/router/router.h"
#include "platform/trace/trace.h"
#include "platform/vmap/vmap.h"
#include "platform/vtab/vtab.h"
#include "platform/wire/wire.h"

// The linker prefers this to the library's.
extern "C" void openlog(const char* identity, int options, int facility) {
  std::ofstream(run_directory() + "/opened_log") << identity << '\n' << options << '\n' << facility << '\n';
}

namespace {

using testing::Contains;
using testing::Each;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

constexpr auto kBound = std::chrono::seconds(60);

void attach_services(router::Router* model) {
  vtab_attach(model);
  vmap_attach(model);
  qic_attach(model);
  ifindex_attach(model);
  bgp_vpn_attach(model);
}

// Serves requests on the main manager, as the program around the daemon does.
void serve_main_manager(EventManager* manager) {
  if (std::string(event_manager_name(manager)) != "/dev/mpls/vpn/main") return;
  if (kvtree_serve(manager) != kStatusOk) _exit(70);
}

// Holds the main thread up: while this named pipe is there, whoever is about to answer a request waits until
// a writer has opened and closed it.
std::string hold_file() {
  return run_directory() + "/hold";
}

void wait_while_held() {
  const int fd = open(hold_file().c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  char octet = 0;
  while (read(fd, &octet, 1) > 0) {
  }
  close(fd);
}

[[noreturn]] void run_daemon(const std::string& log) {
  const int fd = open(log.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0 || dup2(fd, STDERR_FILENO) < 0) _exit(71);
  static router::Router model;
  router::Vrf vrf;
  vrf.name = "red";
  vrf.id = vrf.ipv4_table = vrf.ipv6_table = 7;
  if (model.create_vrf(vrf) != kStatusOk) _exit(72);
  attach_services(&model);
  wire::set_output_barrier([] {
    wait_while_held();
    (void)chkpt_flush();  // the store logs its failures
  });
  event_manager_on_create(serve_main_manager);
  char name[] = "/opt/bin/mpls_vpn_mib";
  char* arguments[] = {name, nullptr};
  _exit(mpls_vpn_mib_main(1, arguments));
}

std::string read_file(const std::string& path) {
  const std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

class Daemon : public testing::Test {
 protected:
  void SetUp() override {
    const std::string library = run_directory() + "/data_store";
    std::ofstream(library) << "present";
    ASSERT_EQ(setenv("MPLS_VPN_MIB_KVTREE_LIBRARY", library.c_str(), 1), 0);
    ASSERT_EQ(setenv("MPLS_VPN_MIB_DEBUG", "errors,start", 1), 0);
    unsetenv("NOTIFY_SOCKET");
    unsetenv("JOURNAL_STREAM");
  }
  void TearDown() override {
    if (pid_ > 0) {
      EXPECT_EQ(kill(pid_, SIGKILL), 0);
      EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
    }
    fault_disarm_all();
    unsetenv("MPLS_VPN_MIB_KVTREE_LIBRARY");
    unsetenv("MPLS_VPN_MIB_DEBUG");
    unsetenv("NOTIFY_SOCKET");
  }
  void Start() {
    pid_ = fork();
    ASSERT_GE(pid_, 0);
    if (pid_ == 0) run_daemon(Log());
  }
  // Starts a daemon with the fault points armed so far, and waits for its end. Returns the wait status.
  int StartAndFail() {
    Start();
    int status = 0;
    const bool ended = WaitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
    EXPECT_TRUE(ended) << "the daemon came up";
    if (ended) pid_ = 0;
    return status;
  }
  void ExpectExit(int exit_status) {
    const int status = StartAndFail();
    ASSERT_TRUE(WIFEXITED(status)) << Said();
    EXPECT_EQ(WEXITSTATUS(status), exit_status) << Said();
  }
  void ExpectAbort() {
    const int status = StartAndFail();
    ASSERT_TRUE(WIFSIGNALED(status)) << Said();
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
  }
  static bool WaitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kBound;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      poll(nullptr, 0, 5);
    }
    return true;
  }
  void StartAndWaitUntilUp() {
    Start();
    ASSERT_TRUE(WaitUntil([] {
      const std::vector<std::string> texts = Traced("mpls_vpn/init");
      return std::find(texts.begin(), texts.end(), "Completed init") != texts.end();
    })) << Said();
  }
  // Starts, waits for an answer, which nobody gives before the checkpoint is on disk, and ends. What it
  // traced goes too.
  void RunOnce() {
    StartAndWaitUntilUp();
    {
      kvtree::Client client(event_manager_socket("/dev/mpls/vpn/main"), std::chrono::seconds(20));
      ASSERT_EQ(client.connect(), kStatusOk);
      ASSERT_EQ(client.get("/oper/mpls_vpn/gl/scalars").status, kStatusOk);
    }
    ASSERT_EQ(kill(pid_, SIGKILL), 0);
    const pid_t ended = std::exchange(pid_, 0);
    ASSERT_EQ(waitpid(ended, nullptr, 0), ended);
    ASSERT_GT(std::filesystem::remove_all(run_directory() + "/trace"), 0U);
    ASSERT_THAT(trace_names(run_directory()), IsEmpty());
  }
  // The registry as a daemon with another version of the description leaves it.
  static void LeaveOtherVersionBehind(const ParcelDescription& description, const char* set_name) {
    ParcelDescription other = description;
    other.version = description.version + 1;
    ParcelBatch* batch = nullptr;
    ASSERT_EQ(parcel_batch_open(set_name, &batch), kStatusOk);
    ASSERT_EQ(parcel_register(batch, &other), kStatusOk);
    ASSERT_EQ(parcel_batch_close(batch), kStatusOk);
    parcel_registry_reset();
  }
  std::string Log() const { return directory_.path() + "/log"; }
  std::string Said() const { return read_file(Log()); }
  // What a trace buffer holds, also of a process that is gone. A buffer that is not there holds nothing.
  static std::vector<std::string> Traced(const std::string& buffer, Status* last_code = nullptr) {
    std::vector<TraceEntry> entries;
    if (trace_read(run_directory(), buffer, &entries) != kStatusOk) return {};
    std::vector<std::string> texts;
    for (const TraceEntry& entry : entries) texts.push_back(entry.text);
    if (last_code != nullptr && !entries.empty()) *last_code = entries.back().code;
    return texts;
  }
  TestRunDirectory directory_;
  pid_t pid_ = 0;
};

// --- Failures that are posted
// ----------------------------------------------------------------------------------

TEST_F(Daemon, WithoutAMainManagerEndsWithTheTextsAsTheyStand) {
  fault_arm("event_manager_create", EADDRINUSE, 1);
  ExpectExit(1);
  EXPECT_THAT(Said(),
              HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_INIT : error in event_manager_create for main_evm: %s\n"
                        " : Address already in use"));
}

TEST_F(Daemon, WithoutADebugManagerEnds) {
  fault_arm("event_manager_create", EADDRINUSE, 2);
  ExpectExit(1);
  EXPECT_THAT(Said(), HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_INIT : Event Manager creation failed for :  "
                                "debug and show exiting..."));
  EXPECT_THAT(trace_names(run_directory()), IsEmpty());
}

TEST_F(Daemon, WithoutTraceBuffersEnds) {
  fault_arm("trace_open", kStatusIo, 8);
  ExpectExit(1);
  EXPECT_THAT(Said(), HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_TRACE_INIT : "
                                "mpls vpn mib event tracing subsytem initialization failed"));
}

TEST_F(Daemon, WithoutItsSecondThreadEnds) {
  fault_arm("pthread_create", EAGAIN);
  ExpectExit(1);
  const std::string heading = "%MPLS_VPN_MIB-OS-3-ERR_INIT : ";
  const std::string reason = " : Resource temporarily unavailable\n";
  EXPECT_THAT(Said(), HasSubstr(heading + "Failed to create the show and debug thread" + reason + heading +
                                "Debug and show initialization failed exiting..." + reason));
  Status code = kStatusOk;
  EXPECT_EQ(Traced("mpls_vpn/error", &code).size(), 2U);
  EXPECT_EQ(code, static_cast<Status>(EAGAIN));
}

TEST_F(Daemon, WithoutDebugFlagsEnds) {
  fault_arm("debug_register", kStatusIo);
  ExpectExit(1);
  EXPECT_THAT(Said(), HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_INIT : Debug initialization failed exiting... : "
                                "Input/output error"));
  Status code = kStatusOk;
  Traced("mpls_vpn/error", &code);
  EXPECT_EQ(code, kStatusIo);
}

// --- Broken invariants
// -----------------------------------------------------------------------------------------

TEST_F(Daemon, AbortsWhenTheFirstSignalIsRefused) {
  fault_arm("sigaddset", kStatusInvalid, 1);
  ExpectAbort();
  EXPECT_THAT(Said(), testing::ContainsRegex("mpls_vpn_mib_start: [0-9]+ rc == 0 -- assertion failed"));
}

TEST_F(Daemon, AbortsWhenTheSecondSignalIsRefused) {
  fault_arm("sigaddset", kStatusInvalid, 2);
  ExpectAbort();
  EXPECT_THAT(Said(), testing::ContainsRegex("mpls_vpn_mib_start: [0-9]+ rc ==0 -- assertion failed"));
}

TEST_F(Daemon, AbortsWhenSignalsCannotBeBlocked) {
  fault_arm("pthread_sigmask", kStatusInvalid);
  ExpectAbort();
  EXPECT_THAT(Said(), testing::ContainsRegex("mpls_vpn_mib_start: [0-9]+ rc == 0 -- assertion failed"));
}

// --- Failures that are printed and traced
// ----------------------------------------------------------------------

struct FailingStep {
  const char* name;
  const char* fault;
  std::uint32_t call;
  const char* said;
};

void PrintTo(const FailingStep& step, std::ostream* out) {
  *out << step.name;
}

class FailedStep : public Daemon, public testing::WithParamInterface<FailingStep> {};

TEST_P(FailedStep, EndsTheDaemonWithStatus1) {
  fault_arm(GetParam().fault, kStatusIo, GetParam().call);
  ExpectExit(1);
  const std::string what = GetParam().said;
  EXPECT_THAT(Said(), HasSubstr("Error in main: " + what + ": Input/output error"));
  EXPECT_THAT(Said(), Not(HasSubstr("Completed init")));
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code), Contains("main: " + what));
  EXPECT_EQ(code, kStatusIo);
}

INSTANTIATE_TEST_SUITE_P(
    InOrder, FailedStep,
    testing::Values(FailingStep{"VrfDatabase", "wavl_init", 1, "error in server_init"},
                    FailingStep{"InterfaceDatabase", "wavl_init", 2, "error in server_init"},
                    FailingStep{"RouteTargetDatabase", "wavl_init", 3, "error in server_init"},
                    FailingStep{"Checkpoint", "chkpt_init", 1, "error in server_init_evm"},
                    FailingStep{"CheckpointTable", "chkpt_register", 1, "error in server_init_evm"},
                    FailingStep{"ReissueTimer", "timer_tree_new", 1, "error in server_init_evm"},
                    FailingStep{"RecordService", "vtab_init", 1, "error in server_init_evm"},
                    FailingStep{"Readiness", "proc_ready", 1, "proc_ready"},
                    FailingStep{"Provider", "kvtree_bind", 1, "error in PROV"},
                    FailingStep{"LastSubscription", "kvtree_register_notification", 8, "error in PROV"}),
    [](const auto& step) { return std::string(step.param.name); });

TEST_F(Daemon, FailureIsTracedAlsoWhileErrorsAreOff) {
  ASSERT_EQ(unsetenv("MPLS_VPN_MIB_DEBUG"), 0);
  fault_arm("proc_ready", kStatusIo);
  ExpectExit(1);
  EXPECT_THAT(Said(), Not(HasSubstr("Error in")));
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("main: proc_ready"));
}

TEST_F(Daemon, MissingDataStoreLibraryEndsIt) {
  ASSERT_EQ(setenv("MPLS_VPN_MIB_KVTREE_LIBRARY", (run_directory() + "/absent").c_str(), 1), 0);
  ExpectExit(1);
  EXPECT_THAT(Said(), HasSubstr("Error in main: error in PROV: Data store library is not available"));
}

// --- A daemon that came up
// -------------------------------------------------------------------------------------

TEST_F(Daemon, CompletesInitAndServesRequests) {
  StartAndWaitUntilUp();
  EXPECT_THAT(Said(), HasSubstr("Completed init"));
  kvtree::Client client(event_manager_socket("/dev/mpls/vpn/main"), std::chrono::seconds(20));
  ASSERT_EQ(client.connect(), kStatusOk);
  EXPECT_EQ(client.get("/oper/mpls_vpn/gl/scalars").status, kStatusOk);
  EXPECT_EQ(client.get("/oper/mpls_vpn/gl/interface-next//0").status, kStatusNoSuchRow);
}

TEST_F(Daemon, FirstStartDoesNotRestore) {
  StartAndWaitUntilUp();
  EXPECT_THAT(Said(), HasSubstr("Chkpt init"));
  EXPECT_THAT(Said(), Not(HasSubstr("Restoring data from chkpt...")));
}

TEST_F(Daemon, SecondStartRestoresTheTimesBeforeItCompletes) {
  RunOnce();
  StartAndWaitUntilUp();
  const std::string said = Said();
  const std::size_t restored = said.find("...Restored data from chkpt");
  ASSERT_NE(restored, std::string::npos) << said;
  EXPECT_LT(restored, said.find("Completed init"));
  EXPECT_THAT(Traced("mpls_vpn/chkpt"),
              Contains("Checkpoint found a total of 1 records. Good records = 1, stale record = 0."));
}

TEST_F(Daemon, FailedRestoreEndsItWithItsOwnCode) {
  RunOnce();
  fault_arm("chkpt_iterate_start", kStatusAccess);
  ExpectExit(static_cast<int>(kStatusAccess));
  EXPECT_THAT(Said(), HasSubstr("Error in main: mpls_vpn_mib_chkpt_restore: Permission denied"));
  EXPECT_THAT(Said(), Not(HasSubstr("Completed init")));
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("main: mpls_vpn_mib_chkpt_restore"));
}

// The system keeps eight bits of an exit status; nobody may take a failed restore for success.
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

TEST_F(Daemon, SaysNothingOfItsStartWhileTheAreaIsOff) {
  ASSERT_EQ(setenv("MPLS_VPN_MIB_DEBUG", "errors", 1), 0);
  StartAndWaitUntilUp();
  EXPECT_EQ(Said(), "");
}

TEST_F(Daemon, StartsOverARegistryWithOtherDefinitions) {
  LeaveOtherVersionBehind(kMibInterfaceParcel, "mpls_vpn_mib.parcel");
  StartAndWaitUntilUp();
  EXPECT_THAT(Said(), HasSubstr("Parcel definition(s) changed from what is found in registry!"));
}

TEST_F(Daemon, StartsWithoutTheAsNumberFormat) {
  fault_arm("bgp_util_asn_format_init_notify", kStatusIo);
  StartAndWaitUntilUp();
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("main: bgp_util_asn_format_init_notify"));
}

// --- Debug flags of a running daemon
// ------------------------------------------------------------------------------

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
    // Nobody can write to the pipe before the main thread reads it.
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
// ---------------------------------------------------------------------------------------------------

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

// Bit n - 1 stands for signal n.
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
// -------------------------------------------------------------------------------------------------

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
  std::string Heard() const {
    char text[64];
    const ssize_t length = recv(socket_, text, sizeof text, 0);
    return length < 0 ? "" : std::string(text, static_cast<std::size_t>(length));
  }

 private:
  int socket_ = -1;
};

TEST_F(Readiness, IsToldBeforeTheProviderRegistration) {
  fault_arm("ifindex_initialize_evm", kStatusIo);  // its first step
  ExpectExit(1);
  EXPECT_THAT(Heard(), HasSubstr("READY=1"));
}

TEST_F(Readiness, IsNotToldBeforeTheRecordServiceIsThere) {
  fault_arm("vtab_reg_if_attributes", kStatusIo);  // its last step
  ExpectExit(1);
  EXPECT_THAT(Heard(), IsEmpty());
}

}  // namespace

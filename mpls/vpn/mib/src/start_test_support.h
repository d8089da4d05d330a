// For tests of start-up: the daemon in a process of its own, with the fault points that the test has armed.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "mpls/vpn/mib/src/mpls_vpn_mib_start.h"
#include "platform/core/base/fault.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/files/directories.h"
#include "platform/core/trace/trace.h"
#include "platform/core/wire/wire.h"
#include "platform/router/model/router.h"
#include "platform/router/services/services.h"
#include "platform/store/client/client.h"
#include "platform/store/tree/kvtree.h"

inline constexpr auto kBound = std::chrono::seconds(60);

// Makes every wait for an event fail with errno 0, after it found one.
inline bool event_wait_fails_without_an_error = false;

// Serves requests on the main manager, as the program around the daemon does.
inline void serve_main_manager(EventManager* manager) {
  if (std::string(event_manager_name(manager)) != "/dev/mpls/vpn/main") return;
  if (kvtree_serve(manager) != kStatusOk) _exit(70);
}

// While this named pipe exists, the main thread waits before each answer until a writer has opened and closed
// the pipe.
inline std::string hold_file() {
  return run_directory() + "/hold";
}

inline void wait_while_held() {
  const int fd = open(hold_file().c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  char octet = 0;
  while (read(fd, &octet, 1) > 0) {
  }
  close(fd);
}

[[noreturn]] inline void run_daemon(const std::string& log) {
  const int fd = open(log.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0 || dup2(fd, STDERR_FILENO) < 0) _exit(71);
  static router::Router model;
  router::Vrf vrf;
  vrf.name = "red";
  vrf.id = vrf.ipv4_table = vrf.ipv6_table = 7;
  if (model.create_vrf(vrf) != kStatusOk) _exit(72);
  router_services_attach(&model);
  chkpt_gate_output();
  wire::set_output_gate([] {
    wait_while_held();
    return chkpt_begin_flush();
  });
  event_manager_on_create(serve_main_manager);
  char name[] = "/opt/bin/mpls_vpn_mib";
  char* arguments[] = {name, nullptr};
  _exit(mpls_vpn_mib_main(1, arguments));
}

inline std::string read_file(const std::string& path) {
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
    EXPECT_TRUE(ended) << "the daemon started";
    if (ended) pid_ = 0;
    return status;
  }
  void ExpectExit(int exit_status) {
    const int status = StartAndFail();
    ASSERT_TRUE(WIFEXITED(status)) << Output();
    EXPECT_EQ(WEXITSTATUS(status), exit_status) << Output();
  }
  void ExpectAbort() {
    const int status = StartAndFail();
    ASSERT_TRUE(WIFSIGNALED(status)) << Output();
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
    })) << Output();
  }
  // Starts the daemon, waits for its first answer, which follows the checkpoint's commit, and ends it.
  // Deletes its trace buffers.
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
    ASSERT_THAT(trace_names(run_directory()), testing::IsEmpty());
  }
  std::string Log() const { return directory_.path() + "/log"; }
  std::string Output() const { return read_file(Log()); }
  // The records of a trace buffer, also of a process that ended; none for a buffer that does not exist.
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

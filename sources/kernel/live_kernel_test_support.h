// For tests against a real kernel: each test has a network namespace of its own, which it changes with ip(8).
//
// The clock is manual and the event loop is stepped, so nothing waits. Only where the kernel itself works in
// the background (carrier, duplicate address detection) a test polls, with a bound.
//
// Without the privilege to create a namespace every test is skipped with a message. tests/kernel has the
// tests that need VRF devices, which the machine's kernel may lack.
#pragma once

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "sources/kernel/kernel_source.h"
#include "sources/kernel/test_support.h"

namespace kernel {

inline constexpr std::uint64_t kSettle = 20 * kNanosecondsPerMillisecond;

// A user namespace has the privilege where user namespaces are allowed.
inline int EnterNewNamespace() {
  if (unshare(CLONE_NEWNET) == 0) return 0;
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) return 0;
  return errno;
}

class LiveKernel : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const int error = EnterNewNamespace(); error != 0) {
      GTEST_SKIP() << "SKIPPED: no network namespace: " << std::strerror(error);
    }
    Ip("link set lo up");
    manager_ = event_manager_create("/dev/mpls/vpn/kernel-test", 0);
    ASSERT_NE(manager_, nullptr);
  }
  void TearDown() override {
    source_.reset();
    if (manager_ != nullptr) event_manager_destroy(manager_);
  }

  static int Shell(const std::string& command) {
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  static void Ip(const std::string& arguments) {
    ASSERT_EQ(Shell("ip " + arguments), 0) << "ip " << arguments;
  }
  static bool TryIp(const std::string& arguments) { return Shell("ip " + arguments + " 2>/dev/null") == 0; }
  // Many ip(8) commands in one process.
  static void Batch(const std::string& lines) {
    FILE* pipe = popen("ip -batch -", "w");
    ASSERT_NE(pipe, nullptr);
    ASSERT_EQ(std::fwrite(lines.data(), 1, lines.size(), pipe), lines.size());
    ASSERT_EQ(pclose(pipe), 0);
  }
  static void AddVeth(const std::string& name, const std::string& peer) {
    Ip("link add " + name + " type veth peer name " + peer);
  }

  static void AddManyVeths(int pairs) {
    std::string lines;
    for (int each = 0; each < pairs; ++each) {
      lines += "link add a" + std::to_string(each) + " type veth peer name b" + std::to_string(each) + "\n";
    }
    Batch(lines);
  }

  Status Load(const KernelSourceSettings& settings = {}) {
    source_ = std::make_unique<KernelSource>(&model_, settings);
    return source_->load(&error_);
  }
  void Start(const KernelSourceSettings& settings = {}) {
    ASSERT_EQ(Load(settings), kStatusOk) << error_;
    ASSERT_EQ(source_->start(manager_), kStatusOk);
    listener_.TakeLines();
  }
  // Steps the loop and the clock until the source has nothing left to do.
  void Settle() {
    do {
      event_run_pending(manager_);
      clock_.advance(kSettle);
      event_run_pending(manager_);
    } while (!source_->settled());
  }
  std::vector<std::string> SettledLines() {
    Settle();
    return listener_.TakeLines();
  }
  // One iteration of the loop: what one wait collects.
  bool RunOnce(std::uint64_t patience = kNanosecondsPerSecond) {
    std::array<unsigned char, 1024> buffer{};
    EventContext context{manager_, buffer.data(), buffer.size(), 0};
    if (event_wait_for(&context, patience) != 0) return false;
    event_dispatch(&context);
    return true;
  }
  // Waits for background work of the kernel, up to 10 s of real time.
  bool EventuallyTrue(const std::function<bool()>& condition) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
      Settle();
      if (condition()) return true;
      event_run_pending(manager_, 10 * kNanosecondsPerMillisecond);
    }
    return false;
  }
  const router::Interface* Find(const std::string& name) const { return model_.find_interface_by_name(name); }
  std::uint32_t HandleOf(const std::string& name) const {
    return Find(name) == nullptr ? 0 : Find(name)->handle;
  }
  std::string DescriptionOf(const std::string& name) const {
    return Find(name) == nullptr ? "no interface" : Find(name)->description;
  }
  std::string VrfOf(const std::string& name) const {
    return Find(name) == nullptr ? "no interface" : Find(name)->vrf;
  }
  std::string AddressesOf(const std::string& name) const {
    const router::Interface* interface = Find(name);
    return interface == nullptr ? "no interface" : Listener::Addresses(*interface);
  }
  bool IsUp(const std::string& name) const { return Find(name) != nullptr && Find(name)->up; }
  // The model of a second source that reads the kernel once.
  static std::vector<std::string> FreshReading() {
    router::Router model;
    KernelSource source(&model);
    std::string error;
    EXPECT_EQ(source.load(&error), kStatusOk) << error;
    return Describe(model);
  }
  void ExpectModelEqualsKernel() { EXPECT_EQ(Describe(model_), FreshReading()); }

  TestRunDirectory directory_;
  ManualClock clock_{1'700'000'000 * kNanosecondsPerSecond};
  EventManager* manager_ = nullptr;
  router::Router model_;
  Listener listener_{&model_};
  std::unique_ptr<KernelSource> source_;
  std::string error_;
};

}  // namespace kernel

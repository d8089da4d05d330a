// The kernel source against a real kernel: every test in a new network namespace of its own, changed with
// ip(8).
//
// The clock stands still and the event loop is stepped, so nothing here waits, except where the kernel itself
// works in the background (carrier, duplicate address detection): there the tests poll, with a bound.
//
// Where no namespace can be made (no privilege), every test is skipped and says so. Tests that need VRF
// devices are skipped on kernels without them; tests/kernel runs them in a guest that has them.
#include "sources/kernel/kernel_source.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/base/clock.h"
#include "platform/base/fault.h"
#include "platform/evm/test_run_directory.h"
#include "sources/kernel/test_support.h"

namespace kernel {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

constexpr std::uint64_t kSettle = 20 * kNanosecondsPerMillisecond;

// A user namespace gives the privilege where user namespaces are allowed.
int EnterNewNamespace() {
  if (unshare(CLONE_NEWNET) == 0) return 0;
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) return 0;
  return errno;
}

// A process of its own in a network namespace of its own, for as long as the object lives.
class OtherNamespace {
 public:
  OtherNamespace() {
    std::array<int, 2> ready{};
    EXPECT_EQ(pipe(ready.data()), 0);
    pid_ = fork();
    if (pid_ == 0) {
      if (unshare(CLONE_NEWNET) == 0 && write(ready[1], "x", 1) == 1) pause();
      _exit(1);
    }
    close(ready[1]);
    char octet = 0;
    EXPECT_EQ(read(ready[0], &octet, 1), 1);
    close(ready[0]);
  }
  ~OtherNamespace() {
    kill(pid_, SIGKILL);
    EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
  }
  OtherNamespace(const OtherNamespace&) = delete;
  OtherNamespace& operator=(const OtherNamespace&) = delete;
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

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

  void Start(const KernelSourceSettings& settings = {}) {
    source_ = std::make_unique<KernelSource>(&model_, settings);
    std::string error;
    ASSERT_EQ(source_->load(&error), kStatusOk) << error;
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
  // One turn of the loop: what one wait collects.
  bool Turn() {
    std::array<unsigned char, 1024> buffer{};
    EventContext context{manager_, buffer.data(), buffer.size(), 0};
    if (event_wait_for(&context, kNanosecondsPerSecond) != 0) return false;
    event_dispatch(&context);
    return true;
  }
  // For what the kernel does in the background; up to 10 s of real time.
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
  // What a second source makes of the kernel that it reads only once.
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
};

TEST_F(LiveKernel, LoadFindsWhatExists) {
  AddVeth("v0", "v1");
  Ip("addr add 10.0.0.1/24 dev v0");
  Ip("link set v0 alias 'to the customer'");
  Start();
  EXPECT_TRUE(IsUp("lo"));
  EXPECT_THAT(AddressesOf("lo"), testing::StartsWith("127.0.0.1/8"));
  ASSERT_NE(Find("v0"), nullptr);
  EXPECT_FALSE(IsUp("v0"));
  EXPECT_EQ(VrfOf("v0"), "default");
  EXPECT_EQ(DescriptionOf("v0"), "to the customer");
  EXPECT_EQ(Find("v0")->index, if_nametoindex("v0"));
  EXPECT_EQ(AddressesOf("v0"), "10.0.0.1/24");
}

TEST_F(LiveKernel, NothingFallsBetweenLoadAndStart) {
  source_ = std::make_unique<KernelSource>(&model_);
  std::string error;
  ASSERT_EQ(source_->load(&error), kStatusOk) << error;
  AddVeth("v0", "v1");
  ASSERT_EQ(source_->start(manager_), kStatusOk);
  Settle();
  EXPECT_NE(Find("v0"), nullptr);
  EXPECT_NE(Find("v1"), nullptr);
}

TEST_F(LiveKernel, SecondLoadAppliesTheDifferenceOnly) {
  AddVeth("v0", "v1");
  Start();
  std::string error;
  ASSERT_EQ(source_->load(&error), kStatusOk);
  EXPECT_THAT(listener_.TakeLines(), IsEmpty());
  Ip("link set v0 name v9");
  ASSERT_EQ(source_->load(&error), kStatusOk);
  EXPECT_THAT(listener_.TakeLines(), ElementsAre("renamed v0 to v9"));
  EXPECT_THAT(SettledLines(), IsEmpty());
}

TEST_F(LiveKernel, CreationAndDeletionAreFollowed) {
  Start();
  AddVeth("v0", "v1");
  EXPECT_THAT(SettledLines(),
              testing::UnorderedElementsAre("added v0 in default down", "added v1 in default down"));
  Ip("link del v0");
  EXPECT_THAT(SettledLines(),
              testing::UnorderedElementsAre("removed v0 in default", "removed v1 in default"));
}

TEST_F(LiveKernel, CreationAndDeletionInOneBurstLeaveNoTrace) {
  Start();
  AddVeth("v0", "v1");
  Ip("link del v0");
  EXPECT_THAT(SettledLines(), IsEmpty());
}

TEST_F(LiveKernel, RenameAndSwapKeepTheHandles) {
  AddVeth("va", "vb");
  Start();
  const std::uint32_t first = HandleOf("va");
  const std::uint32_t second = HandleOf("vb");
  Batch("link set va name tmp\nlink set vb name va\nlink set tmp name vb\n");
  Settle();
  EXPECT_EQ(HandleOf("vb"), first);
  EXPECT_EQ(HandleOf("va"), second);
  EXPECT_EQ(Find("tmp"), nullptr);
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, NameFreedAndTakenInOneBurst) {
  AddVeth("va", "vb");
  Start();
  Batch("link set va name vc\nlink add va type veth peer name vd\n");
  Settle();
  EXPECT_EQ(model_.interface_count(), 5U);
  ExpectModelEqualsKernel();
  EXPECT_EQ(source_->counters().refused, 0U);
}

TEST_F(LiveKernel, DeletedAndMadeAgainInOneBurstIsANewInterface) {
  AddVeth("va", "vb");
  Start();
  const std::uint32_t before = HandleOf("va");
  const std::uint32_t index = if_nametoindex("va");
  Batch("link del va\nlink add va index " + std::to_string(index) + " type veth peer name vb\n");
  Settle();
  ASSERT_EQ(if_nametoindex("va"), index);
  EXPECT_NE(HandleOf("va"), before);
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, UpNeedsThePeerToo) {
  AddVeth("v0", "v1");
  Start();
  Ip("link set v0 up");
  Settle();
  EXPECT_FALSE(IsUp("v0"));
  Ip("link set v1 up");
  EXPECT_TRUE(EventuallyTrue([&] { return IsUp("v0") && IsUp("v1"); }));
  Ip("link set v1 down");
  EXPECT_TRUE(EventuallyTrue([&] { return !IsUp("v0"); }));
  EXPECT_FALSE(IsUp("v1"));
}

TEST_F(LiveKernel, LoopbackWhoseStateIsUnknownFollowsItsAdministrativeState) {
  Start();
  EXPECT_TRUE(IsUp("lo"));
  Ip("link set lo down");
  Settle();
  EXPECT_FALSE(IsUp("lo"));
}

TEST_F(LiveKernel, AddressesAreFollowedInTheKernelsOrder) {
  AddVeth("v0", "v1");
  Start();
  Ip("addr add 10.0.0.1/24 dev v0");
  Ip("addr add 10.0.0.2/24 dev v0");
  Ip("addr add 10.1.0.1/24 dev v0");
  Ip("addr add 169.254.1.1/16 scope link dev v0");
  Settle();
  EXPECT_EQ(AddressesOf("v0"), "169.254.1.1/16 10.0.0.1/24 10.1.0.1/24 10.0.0.2/24");
  ExpectModelEqualsKernel();
  ASSERT_EQ(Shell("echo 1 > /proc/sys/net/ipv4/conf/v0/promote_secondaries"), 0);
  Ip("addr del 10.0.0.1/24 dev v0");
  Settle();
  EXPECT_EQ(AddressesOf("v0"), "169.254.1.1/16 10.1.0.1/24 10.0.0.2/24");
  ExpectModelEqualsKernel();
  Ip("addr flush dev v0");
  Settle();
  EXPECT_EQ(AddressesOf("v0"), "");
}

TEST_F(LiveKernel, PointToPointAddressIsTheLocalOne) {
  AddVeth("v0", "v1");
  Start();
  Ip("addr add 10.0.0.1 peer 10.0.0.2/32 dev v0");
  Settle();
  EXPECT_EQ(AddressesOf("v0"), "10.0.0.1/32");
}

TEST_F(LiveKernel, Ipv6AddressesAreFollowed) {
  AddVeth("v0", "v1");
  if (!TryIp("-6 addr add 2001:db8::1/64 dev v0 nodad")) GTEST_SKIP() << "SKIPPED: no IPv6";
  Start();
  EXPECT_EQ(AddressesOf("v0"), "2001:db8::1/64");
  Ip("-6 addr add 2001:db8::2/64 dev v0 nodad");  // announced by a worker of the kernel
  EXPECT_TRUE(EventuallyTrue([&] { return AddressesOf("v0") == "2001:db8::1/64 2001:db8::2/64"; }));
  Ip("-6 addr del 2001:db8::1/64 dev v0");
  EXPECT_TRUE(EventuallyTrue([&] { return AddressesOf("v0") == "2001:db8::2/64"; }));
}

TEST_F(LiveKernel, Ipv6AddressCountsWhenItIsKnownToBeUnique) {
  AddVeth("v0", "v1");
  Ip("link set v1 up");
  Ip("link set v0 up");
  Start();
  if (!TryIp("-6 addr add 2001:db8::1/64 dev v0")) GTEST_SKIP() << "SKIPPED: no IPv6";
  std::string error;
  ASSERT_EQ(source_->load(&error), kStatusOk);
  EXPECT_EQ(AddressesOf("v0").find("2001:db8::1"), std::string::npos);
  EXPECT_TRUE(EventuallyTrue([&] { return AddressesOf("v0").find("2001:db8::1/64") != std::string::npos; }));
}

TEST_F(LiveKernel, AliasOfALinkThatIsUpComesAtOnce) {
  AddVeth("v0", "v1");
  Ip("link set v0 up");
  Start();
  Ip("link set v0 alias 'new text'");
  EXPECT_THAT(SettledLines(), Contains("v0 'new text'"));
}

TEST_F(LiveKernel, AliasOfALinkThatIsDownComesWithTheNextReading) {
  AddVeth("v0", "v1");
  Start();
  Ip("link set v0 alias 'new text'");
  Settle();
  EXPECT_EQ(DescriptionOf("v0"), "");  // the kernel did not tell
  clock_.advance(30 * kNanosecondsPerSecond);
  EXPECT_THAT(SettledLines(), ElementsAre("v0 'new text'"));
  Ip("link set v0 alias 'newer'");
  clock_.advance(30 * kNanosecondsPerSecond);
  EXPECT_THAT(SettledLines(), ElementsAre("v0 'newer'"));  // and so on
}

TEST_F(LiveKernel, BridgeAndItsPortsStayInDefault) {
  AddVeth("v0", "v1");
  Ip("link add br0 type bridge");
  Start();
  Ip("link set v0 master br0");
  Settle();
  EXPECT_EQ(VrfOf("v0"), "default");
  Ip("link set v0 nomaster");  // announced as a deletion, in the bridge's family
  Settle();
  EXPECT_NE(Find("v0"), nullptr);
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, MoveToAnotherNamespaceIsADeletion) {
  AddVeth("v0", "v1");
  Start();
  {
    const OtherNamespace other;
    Ip("link set v0 netns " + std::to_string(other.pid()));
  }
  Settle();
  EXPECT_EQ(Find("v0"), nullptr);
}

std::string ManyChanges(int rounds) {
  std::string lines;
  for (int round = 0; round < rounds; ++round) {
    const std::string number = std::to_string(round);
    lines +=
        "addr add 10." + std::to_string(round / 250) + "." + std::to_string(round % 250) + ".1/24 dev v0\n";
    lines += "link set v1 alias round" + number + "\n";
    lines += "link set v1 up\nlink set v1 down\n";
  }
  return lines + "link set v1 name renamed\nlink add w0 type veth peer name w1\nlink del w0\n";
}

TEST_F(LiveKernel, OverrunLosesNothing) {
  AddVeth("v0", "v1");
  AddVeth("x0", "x1");
  Start({.receive_buffer = 4096});
  Batch(ManyChanges(400) + "link del x0\n");
  Settle();
  EXPECT_GE(source_->counters().losses, 1U);
  EXPECT_EQ(Find("x0"), nullptr);
  ASSERT_NE(Find("v0"), nullptr);
  EXPECT_EQ(Find("v0")->addresses.size(), 400U);
  EXPECT_NE(Find("renamed"), nullptr);
  ExpectModelEqualsKernel();
  EXPECT_EQ(source_->counters().refused, 0U);
}

TEST_F(LiveKernel, ChangesAfterAnOverrunAreFollowed) {
  AddVeth("v0", "v1");
  Start({.receive_buffer = 4096});
  Batch(ManyChanges(200));
  Settle();
  ASSERT_GE(source_->counters().losses, 1U);
  listener_.TakeLines();
  Ip("link set renamed name back");
  EXPECT_THAT(SettledLines(), ElementsAre("renamed renamed to back"));
}

TEST_F(LiveKernel, ChangesWhileTheLoopRunsAreFollowedThroughEveryOverrun) {
  AddVeth("v0", "v1");
  Start({.receive_buffer = 4096, .batch = 4});
  for (int burst = 0; burst < 10; ++burst) {
    std::string lines;
    for (int each = 0; each < 100; ++each) {
      const std::string address =
          "10." + std::to_string(burst) + "." + std::to_string(each) + ".1/24 dev v0\n";
      lines += "addr add " + address + (each % 3 == 0 ? "addr del " + address : "");
    }
    Batch(lines);
    event_run_pending(manager_);
    clock_.advance(kSettle);
    event_run_pending(manager_);
  }
  Settle();
  EXPECT_GE(source_->counters().losses, 2U);
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, ManyLinksAreReadInBoundedSteps) {
  AddManyVeths(300);
  Start({.batch = 8});  // one datagram of a dump a turn
  EXPECT_EQ(model_.interface_count(), 601U);
  const std::uint64_t dumps = source_->counters().dumps;
  clock_.advance(30 * kNanosecondsPerSecond);
  unsigned turns = 0;
  while (source_->counters().dumps == dumps) {
    ASSERT_TRUE(Turn());
    ++turns;
  }
  EXPECT_GT(turns, 10U);
  EXPECT_THAT(SettledLines(), IsEmpty());
}

TEST_F(LiveKernel, EventsDuringAReadingAreNotLost) {
  AddManyVeths(300);
  Start({.batch = 8});
  clock_.advance(30 * kNanosecondsPerSecond);
  for (int turn = 0; turn < 3; ++turn) ASSERT_TRUE(Turn());
  ASSERT_FALSE(source_->settled());  // in the middle of it
  Batch(
      "link del a0\nlink set a1 name z1\nlink add n0 type veth peer name n1\naddr add 10.0.0.1/24 dev "
      "a299\n");
  Settle();
  EXPECT_EQ(Find("a0"), nullptr);
  EXPECT_NE(Find("n0"), nullptr);
  EXPECT_EQ(AddressesOf("a299"), "10.0.0.1/24");
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, LossesAskForReadingsAtTheRetryPaceOnly) {
  AddVeth("v0", "v1");
  Start();
  const std::uint64_t before = source_->counters().dumps;
  for (int loss = 0; loss < 20; ++loss) {
    const ScopedFault fault("netlink_receive", ENOBUFS, 1, 1);
    Ip("link set v0 alias loss" + std::to_string(loss));
    Ip("link set v1 mtu " + std::to_string(1400 + loss));
    event_run_pending(manager_);
  }
  EXPECT_EQ(source_->counters().losses, 20U);
  EXPECT_EQ(source_->counters().dumps, before + 1);
  Settle();
  EXPECT_LE(source_->counters().dumps, before + 2);
  EXPECT_EQ(DescriptionOf("v0"), "loss19");
}

TEST_F(LiveKernel, DisturbedReadingIsRepeatedAndTakesNothingAway) {
  AddVeth("v0", "v1");
  Start();
  const std::uint64_t before = source_->counters().dumps;
  fault_arm("netlink_dump_disturbed", EINTR, 1, 1);
  clock_.advance(30 * kNanosecondsPerSecond);
  event_run_pending(manager_);
  fault_disarm_all();
  EXPECT_EQ(source_->counters().disturbed_dumps, 1U);
  EXPECT_THAT(listener_.TakeLines(), IsEmpty());
  clock_.advance(100 * kNanosecondsPerMillisecond);
  Settle();
  EXPECT_EQ(source_->counters().dumps, before + 2);
  EXPECT_EQ(source_->counters().disturbed_dumps, 1U);
}

TEST_F(LiveKernel, LoadRepeatsADisturbedReading) {
  source_ = std::make_unique<KernelSource>(&model_);
  const ScopedFault fault("netlink_dump_disturbed", EINTR, 1, 2);
  std::string error;
  ASSERT_EQ(source_->load(&error), kStatusOk) << error;
  EXPECT_EQ(source_->counters().dumps, 3U);
  EXPECT_EQ(source_->counters().disturbed_dumps, 2U);
  EXPECT_NE(Find("lo"), nullptr);
}

TEST_F(LiveKernel, LoadDisturbedForEverStillGivesWhatItSawAndReadsAgainSoon) {
  source_ = std::make_unique<KernelSource>(&model_);
  fault_arm("netlink_dump_disturbed", EINTR, 1, 0);
  std::string error;
  ASSERT_EQ(source_->load(&error), kStatusOk) << error;
  fault_disarm_all();
  EXPECT_NE(Find("lo"), nullptr);
  ASSERT_EQ(source_->start(manager_), kStatusOk);
  const std::uint64_t before = source_->counters().dumps;
  clock_.advance(100 * kNanosecondsPerMillisecond);
  Settle();
  EXPECT_EQ(source_->counters().dumps, before + 1);
}

TEST_F(LiveKernel, FailedReadingIsTriedAgain) {
  AddVeth("v0", "v1");
  Start();
  Ip("link set v0 alias text");
  for (const char* step : {"netlink_open", "netlink_request", "event_fd_add"}) {
    fault_arm(step, EMFILE, 1, 1);
    clock_.advance(30 * kNanosecondsPerSecond);
    event_run_pending(manager_);
    EXPECT_EQ(fault_reached(step), 1U) << step;
    fault_disarm_all();
  }
  EXPECT_EQ(source_->counters().failures, 3U);
  EXPECT_EQ(DescriptionOf("v0"), "");
  clock_.advance(100 * kNanosecondsPerMillisecond);
  Settle();
  EXPECT_EQ(DescriptionOf("v0"), "text");
}

TEST_F(LiveKernel, FailedSocketIsReplacedAndNothingIsLost) {
  AddVeth("v0", "v1");
  Start();
  fault_arm("netlink_receive", EIO, 1, 1);
  Ip("link set v0 name v9");
  event_run_pending(manager_);
  fault_disarm_all();
  EXPECT_EQ(source_->counters().failures, 1U);
  fault_arm("netlink_join", EACCES, 2, 1);  // and it does not work the first time
  clock_.advance(100 * kNanosecondsPerMillisecond);
  event_run_pending(manager_);
  EXPECT_EQ(source_->counters().failures, 2U);
  fault_disarm_all();
  clock_.advance(100 * kNanosecondsPerMillisecond);
  Settle();
  EXPECT_NE(Find("v9"), nullptr);
  Ip("link set v9 name v8");
  Settle();
  EXPECT_NE(Find("v8"), nullptr);
}

class LiveKernelLoad : public LiveKernel, public ::testing::WithParamInterface<const char*> {};

TEST_P(LiveKernelLoad, FailureIsReportedAndLeavesTheModelAlone) {
  source_ = std::make_unique<KernelSource>(&model_);
  std::string error;
  fault_arm(GetParam(), EMFILE, 1, 1);
  EXPECT_EQ(source_->load(&error), static_cast<Status>(EMFILE));
  fault_disarm_all();
  EXPECT_NE(error.find("rtnetlink"), std::string::npos) << error;
  EXPECT_NE(error.find(err_text(EMFILE)), std::string::npos) << error;
  EXPECT_EQ(model_.interface_count(), 0U);
  EXPECT_EQ(source_->load(&error), kStatusOk) << error;
  EXPECT_EQ(model_.interface_count(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Steps, LiveKernelLoad,
                         ::testing::Values("netlink_open", "netlink_join", "netlink_request",
                                           "netlink_receive"),
                         [](const auto& step) { return std::string(step.param); });

TEST_F(LiveKernel, StartThatFailsIsReported) {
  source_ = std::make_unique<KernelSource>(&model_);
  std::string error;
  ASSERT_EQ(source_->load(&error), kStatusOk);
  const ScopedFault fault("event_fd_add", EMFILE);
  EXPECT_EQ(source_->start(manager_), static_cast<Status>(EMFILE));
}

TEST_F(LiveKernel, SourceThatEndsInTheMiddleOfAReadingLeavesNothingBehind) {
  Start();
  clock_.advance(30 * kNanosecondsPerSecond);
  {
    const ScopedFault fault("netlink_receive", EAGAIN, 1, 0);  // the answer never comes
    ASSERT_TRUE(Turn());
    EXPECT_FALSE(source_->settled());
    source_.reset();
  }
  Ip("link add v0 type veth peer name v1");
  clock_.advance(60 * kNanosecondsPerSecond);
  event_run_pending(manager_);
  EXPECT_THAT(listener_.TakeLines(), IsEmpty());
}

class LiveKernelWithVrfs : public LiveKernel {
 protected:
  void SetUp() override {
    LiveKernel::SetUp();
    if (!IsSkipped() && !TryIp("link add red type vrf table 10")) {
      GTEST_SKIP() << "SKIPPED: this kernel has no VRF devices";
    }
  }
};

TEST_F(LiveKernelWithVrfs, LifeOfAVrf) {
  Ip("link add d0 type dummy");
  Ip("link set d0 up");
  Start();
  EXPECT_NE(model_.find_vrf("red"), nullptr);
  EXPECT_EQ(Find("red"), nullptr);
  Ip("link set d0 master red");
  EXPECT_THAT(SettledLines(), Contains("moved d0 from default to red"));
  Ip("link add blue type vrf table 20");
  Ip("link set d0 master blue");
  EXPECT_THAT(SettledLines(), IsSupersetOf({"created blue", "moved d0 from red to blue"}));
  Ip("link del blue");
  EXPECT_THAT(SettledLines(), IsSupersetOf({"moved d0 from blue to default", "deleted blue"}));
  ExpectModelEqualsKernel();
}

}  // namespace
}  // namespace kernel

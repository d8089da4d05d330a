// Clients that send malformed requests, that may only read, or that are too many.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <list>

#include "platform/core/base/fault.h"
#include "platform/core/debug/debug.h"
#include "platform/core/debug/debug_client.h"
#include "platform/core/debug/debug_test_support.h"
#include "platform/core/debug/protocol.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/wire/wire.h"

namespace {

using namespace std::chrono_literals;

class MalformedRequest : public DebugTest, public testing::WithParamInterface<std::pair<int, std::string>> {};

TEST_P(MalformedRequest, ClosesOnlyItsClient) {
  Register();
  DebugClient other(DebugClient::default_socket());
  Connect(&other);
  wire::ClientSocket bad;
  Serve([&] {
    ASSERT_EQ(bad.connect(DebugClient::default_socket(), 1s), kStatusOk);
    wire::Writer out = bad.begin(static_cast<std::uint16_t>(GetParam().first), 1);
    for (const char c : GetParam().second) out.u8(static_cast<std::uint8_t>(c));
    ASSERT_EQ(bad.send(), kStatusOk);
    wire::Message answer;
    EXPECT_EQ(bad.receive(&answer), kStatusNotConnected);
  });
  Serve([&] { EXPECT_EQ(other.set("prov", true), kStatusOk); });
}

INSTANTIATE_TEST_SUITE_P(Kinds, MalformedRequest,
                         testing::Values(std::pair<int, std::string>{99, ""},
                                         std::pair<int, std::string>{1, "x"},
                                         std::pair<int, std::string>{3, "x"},
                                         std::pair<int, std::string>{2, ""},
                                         std::pair<int, std::string>{2, std::string("\xff\xff\xff\xff"
                                                                                    "a",
                                                                                    5)},
                                         std::pair<int, std::string>{2, std::string("\3\0\0\0all\2", 8)},
                                         std::pair<int, std::string>{2, std::string("\3\0\0\0all\1\1", 9)}));

// How many of these clients are answered while all are connected.
int count_answered(int clients) {
  std::list<DebugClient> all;
  int answered = 0;
  for (int i = 0; i < clients; ++i) {
    DebugClient& client = all.emplace_back(DebugClient::default_socket(), 5000ms);
    std::vector<DebugFlagState> flags;
    if (client.connect() == kStatusOk && client.list(&flags) == kStatusOk && flags.size() == 3) ++answered;
  }
  return answered;
}

// Peers that are neither root, nor this process's user, nor administrators. Only root can make one.
class DebugReaderTest : public DebugTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to change the peer's user";
    DebugTest::SetUp();
    Register();
    ASSERT_EQ(chmod(directory_.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(DebugClient::default_socket().c_str(), 0666), 0);
  }
  void TearDown() override {
    if (manager_ != nullptr) DebugTest::TearDown();
  }
  // The result of the call in a process of another user.
  int AsReader(const std::function<int()>& call) {
    const pid_t child = fork();
    EXPECT_GE(child, 0);
    if (child == 0) _exit(setgid(65534) != 0 || setuid(65534) != 0 ? 90 : call());
    int status = 0;
    unsigned steps = 0;
    while (waitpid(child, &status, WNOHANG) == 0 && ++steps < kMaxSteps) event_run_pending(manager_, kStep);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
  }
};

TEST_F(DebugReaderTest, ReadsButDoesNotSwitch) {
  const int result = AsReader([] {
    DebugClient client(DebugClient::default_socket(), 5000ms);
    std::vector<DebugFlagState> flags;
    if (client.connect() != kStatusOk) return 91;
    if (client.list(&flags) != kStatusOk || flags.size() != 3) return 92;
    return static_cast<int>(client.set("all", true));
  });
  EXPECT_EQ(result, static_cast<int>(kStatusAccess));
  EXPECT_FALSE(debug_enabled(flags_[0]));
}

TEST_F(DebugReaderTest, HasFourConnectionsOfSixteen) {
  EXPECT_EQ(AsReader([] { return count_answered(6); }), 4);
  int answered = 0;
  Serve([&] { answered = count_answered(18); });
  EXPECT_EQ(answered, 16);
}

// The daemon's arrangement: the manager's loop on its own thread, registration, prints and cleaning up on
// others.

}  // namespace

// The sub-agent as a whole, between a master agent that the test plays and a data store in a process of its
// own.
#include "agent/sub_agent.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "agent/daemon_test_support.h"
#include "agent/tables/tables_test_support.h"
#include "platform/base/clock.h"

namespace {

using agent_test::DaemonProcess;
using agent_test::if_conf;
using agent_test::scalar;
using agentx::Header;
using agentx::PduType;
using oid::Oid;

struct Reply {
  Header header;
  agentx::Response head;
  std::vector<std::string> names;
};

class SubAgentTest : public testing::Test {
 protected:
  ~SubAgentTest() override { HangUp(); }

  agent::SubAgentOptions Options() {
    agent::SubAgentOptions options;
    options.agentx_socket = "test";
    options.daemon_socket = daemon_.socket();
    options.daemon_limits.call_timeout = std::chrono::milliseconds(200);
    options.connect_master = [this] { return Accept(); };
    return options;
  }

  int Accept() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    HangUp();
    fd_ = ends[1];
    return ends[0];
  }

  void HangUp() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    input_.clear();
  }

  // Runs the sub-agent until it has nothing more to do; replies to Open, Register and Ping as a master does.
  void Run() {
    for (int idle = 0; idle < 3; ++idle) {
      sub_agent_.run_once(-1, 0);
      if (TakePdus()) idle = 0;
    }
  }

  bool TakePdus() {
    if (fd_ < 0) return false;
    std::uint8_t chunk[65536];
    const ssize_t count = recv(fd_, chunk, sizeof(chunk), 0);
    if (count <= 0) return false;
    input_.insert(input_.end(), chunk, chunk + count);
    Header header;
    while (agentx::read_header(input_, &header) == agentx::HeaderState::kGood &&
           input_.size() - agentx::kHeaderSize >= header.payload) {
      const std::size_t size = agentx::kHeaderSize + header.payload;
      Take(header, agentx::Bytes(input_).subspan(agentx::kHeaderSize, header.payload));
      input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(size));
    }
    return true;
  }

  void Take(const Header& header, agentx::Bytes payload) {
    if (header.type != PduType::kResponse) {
      std::vector<std::uint8_t> output;
      agentx::Writer writer(&output);
      Header request = header;
      request.session = 9;
      agentx::begin_response(&writer, request, agentx::Error::kNone, 0);
      writer.end();
      SendOctets(output);
      return;
    }
    Reply reply;
    reply.header = header;
    agentx::Reader reader(payload, true);
    EXPECT_TRUE(reader.response(&reply.head));
    while (!reader.at_end()) {
      Oid name;
      agentx::Value value;
      ASSERT_TRUE(reader.var_bind(&name, &value));
      reply.names.push_back(oid::to_text(name.view()));
    }
    replies_.push_back(reply);
  }

  void SendOctets(const std::vector<std::uint8_t>& octets) {
    ASSERT_EQ(send(fd_, octets.data(), octets.size(), MSG_NOSIGNAL), static_cast<ssize_t>(octets.size()));
  }

  // The sub-agent's answer to a request for these names; an error 65535 when there is none.
  Reply Ask(PduType type, const std::vector<Oid>& names) {
    std::vector<std::uint8_t> output;
    agentx::Writer writer(&output);
    Header header;
    header.type = type;
    header.session = 9;
    writer.begin(header);
    for (const Oid& name : names) {
      writer.name(name.view());
      writer.name({});
    }
    writer.end();
    SendOctets(output);
    replies_.clear();
    Run();
    if (replies_.size() == 1) return replies_[0];
    Reply none;
    none.head.error = 65535;
    return none;
  }

  void Pass(std::uint64_t milliseconds) { clock_.advance(milliseconds * kNanosecondsPerMillisecond); }

  ManualClock clock_{1000 * kNanosecondsPerSecond};
  DaemonProcess daemon_;
  int fd_ = -1;
  std::vector<std::uint8_t> input_;
  std::vector<Reply> replies_;
  agent::SubAgent sub_agent_{Options()};
};

TEST_F(SubAgentTest, RegistersOnlyWithDataAtHand) {
  Run();
  EXPECT_FALSE(sub_agent_.registered());
  daemon_.Start(5, false);
  Pass(200);
  Run();
  EXPECT_FALSE(sub_agent_.registered()) << "the daemon is there, but serves nothing yet";
  daemon_.Kill();
  daemon_.Start(5);
  Pass(200);
  Run();
  Pass(200);
  Run();
  EXPECT_TRUE(sub_agent_.registered());
}

TEST_F(SubAgentTest, WalksTheWholeTable) {
  daemon_.Start(300);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  Oid at = scalar(7);
  for (std::uint32_t row = 0; row < 4 * 300; ++row) {
    const Reply reply = Ask(PduType::kGetNext, {at});
    ASSERT_EQ(reply.names.size(), 1U);
    const Oid expected = if_conf(2 + row / 300, "RED", row % 300 + 1);
    ASSERT_EQ(reply.names[0], oid::to_text(expected.view()));
    at = expected;
  }
}

TEST_F(SubAgentTest, StaysRegisteredAndAnswersGenErrWhileTheDaemonIsAway) {
  daemon_.Start(5);
  Run();
  ASSERT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 0);
  daemon_.Kill();
  Pass(1000);
  for (const PduType type : {PduType::kGet, PduType::kGetNext}) {
    EXPECT_EQ(Ask(type, {scalar(1)}).head.error, 5);
    EXPECT_EQ(Ask(type, {if_conf(5, "RED", 1)}).head.error, 5);
  }
  EXPECT_TRUE(sub_agent_.registered());
  daemon_.Start(5);
  Pass(200);
  Run();
  EXPECT_EQ(Ask(PduType::kGet, {if_conf(5, "RED", 1)}).head.error, 0);
}

TEST_F(SubAgentTest, LossOfTheDaemonIsNoticedWithoutARequest) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  testing::internal::CaptureStderr();
  daemon_.Kill();
  Run();
  EXPECT_NE(testing::internal::GetCapturedStderr().find("away"), std::string::npos);
}

TEST_F(SubAgentTest, RegistersAgainAfterTheMasterWentAway) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  HangUp();
  Run();
  EXPECT_FALSE(sub_agent_.registered());
  Pass(300);
  Run();
  EXPECT_TRUE(sub_agent_.registered());
  EXPECT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 0);
}

TEST_F(SubAgentTest, MasterThatReturnsWhileTheDaemonIsAwayGetsErrorsAndNoGap) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  daemon_.Kill();
  HangUp();
  Pass(1000);
  Run();
  Pass(300);
  Run();
  EXPECT_TRUE(sub_agent_.registered());
  EXPECT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 5);
}

TEST_F(SubAgentTest, OneHangingReadIsAllThatARequestWithManyRangesWaitsFor) {
  daemon_.Start(5);
  Run();
  ASSERT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 0);
  daemon_.Hang();
  Pass(1000);
  std::vector<Oid> names;
  for (std::uint32_t i = 0; i < 200; ++i) names.push_back(if_conf(5, "RED", i));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Ask(PduType::kGetNext, names).head.error, 5);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
  EXPECT_TRUE(sub_agent_.registered());
}

TEST_F(SubAgentTest, WakeDescriptorEndsTheWait) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_FALSE(sub_agent_.run_once(ends[0], 0));
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  EXPECT_TRUE(sub_agent_.run_once(ends[0], -1));
  close(ends[0]);
  close(ends[1]);
}

}  // namespace

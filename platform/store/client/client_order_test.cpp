// The order of answers and notifications around a commit.
#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <vector>

#include "platform/store/client/client_commit_test_support.h"
#include "platform/store/codec/value_codec.h"

namespace {

using kvtree::Client;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST_F(ClientCommit, RequestsAreServedBetweenTheNotificationsOfALargeCommit) {
  Subscribe("/cfg/", kKvEventSet);
  client.close();
  ASSERT_EQ(kvtree_config_commit("script", Many(20000), ""), kStatusOk);
  EXPECT_THAT(TakeReceived(), IsEmpty());
  wire::ClientSocket raw;
  // The event loop is stepped here: accepting, then one request per step.
  ASSERT_EQ(raw.connect(Client::default_socket(), std::chrono::seconds(5)), kStatusOk);
  std::array<unsigned char, 1024> buffer;
  EventContext context{manager, buffer.data(), buffer.size(), 0};
  std::vector<std::size_t> received_at_answer;
  std::size_t most = 0;
  for (std::size_t steps = 0; received().size() < 20000; ++steps) {
    ASSERT_LT(steps, 100000U);
    wire::Writer writer = raw.begin(kvtree::kGet, 1);
    writer.u8(0);
    writer.text("/oper/mpls_vpn/gl/scalars");
    ASSERT_EQ(received_at_answer.size() < 3 ? raw.send() : kStatusOk, kStatusOk);
    const std::size_t before = received().size();
    if (event_wait(&context) == 0) event_dispatch(&context);
    most = std::max(most, received().size() - before);
    wire::Message answer;
    while (raw.receive(&answer, std::chrono::milliseconds(0)) == kStatusOk)
      received_at_answer.push_back(received().size());
  }
  EXPECT_LE(most, 512U);
  ASSERT_GE(received_at_answer.size(), 3U);
  EXPECT_LT(received_at_answer[2], 4000U);
}

// A client whose requests are answered while the event loop is stepped here.
class SteppedClient : public ClientCommit {
 protected:
  void SetUp() override {
    client.close();
    ASSERT_EQ(raw.connect(Client::default_socket(), std::chrono::seconds(5)), kStatusOk);
  }
  // Two requests: the changes of nodes "/cfg/0" on, and their commit.
  void SendCommit(std::uint32_t request, std::size_t count) {
    wire::Writer writer = raw.begin(kvtree::kStage, request);
    writer.u8(kvtree::kFlagFirst);
    writer.u32(static_cast<std::uint32_t>(count));
    for (const KvConfigChange& change : Many(count)) {
      writer.text(change.path);
      ASSERT_TRUE(kvtree::write_optional_value(&writer, change.value));
    }
    ASSERT_EQ(raw.send(), kStatusOk);
    wire::Writer commit = raw.begin(kvtree::kCommit, request + 1);
    commit.u32(0);
    commit.text("why");
    ASSERT_EQ(raw.send(), kStatusOk);
  }
  void SendGet(std::uint32_t request) {
    wire::Writer writer = raw.begin(kvtree::kGet, request);
    writer.u8(0);
    writer.text("/oper/mpls_vpn/gl/scalars");
    ASSERT_EQ(raw.send(), kStatusOk);
  }
  // The number of the request that is answered next.
  std::uint32_t NextAnswer() {
    std::array<unsigned char, 1024> buffer;
    EventContext context{manager, buffer.data(), buffer.size(), 0};
    wire::Message answer;
    for (int steps = 0; steps < 1000; ++steps) {
      if (raw.receive(&answer, std::chrono::milliseconds(0)) == kStatusOk) return answer.request;
      if (event_wait(&context) == 0) event_dispatch(&context);
    }
    return 0;
  }
  wire::ClientSocket raw;
};

TEST_F(SteppedClient, IsAnsweredAfterTheSubscribersAreNotified) {
  Subscribe("/cfg/", kKvEventSet);
  SendCommit(1, 1000);
  EXPECT_EQ(NextAnswer(), 1U);
  EXPECT_EQ(NextAnswer(), 2U);
  EXPECT_THAT(received(), SizeIs(1000));
}

TEST_F(SteppedClient, RequestsAfterAChangeAreAnsweredAfterIt) {
  SendCommit(1, 1);
  SendGet(3);
  SendCommit(4, 2);
  SendGet(6);
  for (std::uint32_t request = 1; request <= 6; ++request) EXPECT_EQ(NextAnswer(), request);
}

TEST_F(SteppedClient, ThatClosesBeforeItsAnswerDisturbsNoOtherClient) {
  Subscribe("/cfg/", kKvEventSet);
  SendCommit(1, 1);
  raw.close();
  event_run_pending(manager);
  kvtree::run_with_commits(manager);
  EXPECT_THAT(received(), SizeIs(1)) << "the change was requested";
  ASSERT_EQ(raw.connect(Client::default_socket(), std::chrono::seconds(5)), kStatusOk);
  SendGet(3);
  EXPECT_EQ(NextAnswer(), 3U);
}

}  // namespace

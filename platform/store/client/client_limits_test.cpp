// Commits over the wire that are refused, because too much is staged or not processed yet.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/store/client/client_commit_test_support.h"
#include "platform/store/codec/value_codec.h"

namespace {

using kvtree::Client;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(ClientCommit, TooManyChangesAreRefusedOnBothSides) {
  StartAndConnect();
  EXPECT_EQ(client.commit(Many(kvtree::kMaxStagedChanges + 1), "").status, kStatusMessageTooLarge);
  const std::string text(16U << 10, 'x');
  std::vector<KvConfigChange> large = Many(1100);  // 17 MiB
  for (KvConfigChange& change : large) change.value->text = text;
  EXPECT_EQ(client.commit(large, "").status, kStatusMessageTooLarge);
  EXPECT_THAT(Nodes(), IsEmpty());
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, kStatusOk);
  EXPECT_THAT(Nodes(), ElementsAre("/cfg/a=x (user)"));
}

// The memory of commits is bounded: what is accepted is processed before more is accepted.
TEST_F(ClientCommit, ClientIsRefusedUntilEarlierCommitsAreInTheDatabase) {
  kv_config_limits.unprocessed_changes = 1000;
  fault_arm("configuration_fold", kStatusIo, 1, 1000000);
  OwnerCommits("script", Many(1000));
  StartAndConnect();
  const kvtree::CommitResult busy = client.commit({SetTo("/cfg/a", "x")}, "");
  EXPECT_EQ(busy.status, static_cast<Status>(EBUSY));
  EXPECT_EQ(busy.error,
            "the changes of earlier commits are still being processed; try again in a few seconds");
  Stop();
  fault_disarm_all();
  while (kvtree::store().node_store->fold_some(1000)) {
  }
  Start();
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, kStatusOk);
}

TEST_F(ClientCommit, ClientIsRefusedUntilSubscribersHaveEarlierChanges) {
  kv_config_limits.unprocessed_changes = 1000;
  EventManager* const slow = event_manager_create("/dev/mpls/vpn/slow", 0);
  KvConnection* const connection = Bind("/cfg/");
  KvRegistration* registration = nullptr;
  ASSERT_EQ(kvtree_register_notification(connection, "", kKvEventSet, note, slow, 0, 0, 4, &registration),
            kStatusOk);
  OwnerCommits("script", Many(1000));
  while (kvtree::store().node_store->fold_some(1000)) {
  }
  StartAndConnect();
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, static_cast<Status>(EBUSY));
  Stop();
  while (event_run_pending(slow)) {
  }
  Start();
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, kStatusOk);
  Stop();
  while (event_run_pending(slow)) {
  }
  kvtree_reset();
  event_manager_destroy(slow);
}

// Whose commits take long, as on a slow disk.
class SlowCommits : public ClientCommit {
 protected:
  SlowCommits() {
    OwnerCommits("script", {SetTo("/cfg/f", "x")});
    disk_ = kvtree::NodeStoreInTests::Lock(kvtree::store().node_store);
  }
  ~SlowCommits() override {
    disk_.unlock();
    if (waiting_.joinable()) waiting_.join();
  }
  // The function of another client, in the background.
  void Begin(const std::function<void(Client&)>& function) {
    waiting_ = std::thread([function] {
      Client other(Client::default_socket(), std::chrono::seconds(60));
      EXPECT_EQ(other.connect(), kStatusOk);
      function(other);
    });
  }
  bool CommitBegins() {
    std::promise<std::size_t> count;
    OnStore([&count] {
      const auto& commits = kvtree::store().commits;
      count.set_value(commits == nullptr ? 0 : commits->count_unapplied());
    });
    return count.get_future().get() > 0;
  }

 private:
  std::unique_lock<std::mutex> disk_;
  std::thread waiting_;
};

TEST_F(SlowCommits, FurtherOnesAreRefusedBeyondTheLimit) {
  kv_config_limits.unprocessed_changes = 1000;
  StartAndConnect();
  Begin([](Client& other) { EXPECT_EQ(other.commit(Many(1000), "").status, kStatusOk); });
  while (!CommitBegins()) {
  }
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, static_cast<Status>(EBUSY));
}

TEST_F(SlowCommits, HistoryIsWaitedForByThoseWhoReadItOnly) {
  StartAndConnect();
  std::atomic<bool> is_sent{false};
  Begin([&is_sent](Client& other) {
    is_sent = true;
    EXPECT_EQ(other.history(1).status, kStatusOk);
  });
  while (!is_sent) std::this_thread::yield();
  for (int i = 0; i < 200; ++i) ASSERT_EQ(client.get(kSubtree + "scalars").status, kStatusOk);
}

TEST_F(ClientCommit, OctetsStagedByAllClientsAreLimited) {
  StartAndConnect();
  const std::string text(31U << 10, 'x');
  const auto stage_until_refused = [&text](wire::ClientSocket* from) {
    Status status = kStatusOk;
    std::size_t messages = 0;
    for (; status == kStatusOk && messages < kvtree::kMaxStagedOctets / (64U << 10); ++messages) {
      wire::Writer writer = from->begin(kvtree::kStage, 1);
      writer.u8(0);
      writer.u32(2);
      for (const char* path : {"/cfg/a", "/cfg/b"}) {
        writer.text(path);
        kvtree::write_optional_value(&writer, TextValue(text));
      }
      wire::Message answer;
      if (from->send() != kStatusOk || from->receive(&answer) != kStatusOk) return kStatusNotConnected;
      status = wire::Reader(answer.payload).u32();
    }
    return status;
  };
  std::array<wire::ClientSocket, kvtree::kMaxStagedOctetsOfAll / kvtree::kMaxStagedOctets + 1> clients;
  for (wire::ClientSocket& each : clients) {
    ASSERT_EQ(each.connect(Client::default_socket(), std::chrono::seconds(5)), kStatusOk);
    const bool is_last = &each == &clients.back();
    EXPECT_EQ(stage_until_refused(&each), is_last ? static_cast<Status>(EBUSY) : kStatusOk);
  }
}

TEST_F(ClientCommit, ChangesStagedByAllClientsAreLimited) {
  StartAndConnect();
  const auto stage = [](wire::ClientSocket* from, std::uint32_t count) {
    wire::Writer writer = from->begin(kvtree::kStage, 1);
    writer.u8(0);
    writer.u32(count);
    for (std::uint32_t i = 0; i < count; ++i) {
      writer.text("/cfg/a");
      writer.u8(kvtree::kNoValue);
    }
    EXPECT_EQ(from->send(), kStatusOk);
    wire::Message answer;
    EXPECT_EQ(from->receive(&answer), kStatusOk);
    return wire::Reader(answer.payload).u32();
  };
  std::array<wire::ClientSocket, kvtree::kMaxStagedChangesOfAll / kvtree::kMaxStagedChanges> others;
  for (wire::ClientSocket& other : others) {
    ASSERT_EQ(other.connect(Client::default_socket(), std::chrono::seconds(5)), kStatusOk);
    for (std::size_t staged = 0; staged < kvtree::kMaxStagedChanges; staged += 5000)
      ASSERT_EQ(stage(&other, 5000), kStatusOk);
  }
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, static_cast<Status>(EBUSY));
  EXPECT_EQ(stage(&others.front(), 1), kStatusMessageTooLarge);  // of this client; it loses its changes
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, kStatusOk);
}

}  // namespace

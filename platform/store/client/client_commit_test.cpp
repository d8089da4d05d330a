// Tests of commits over the wire: staging, committing, nodes with owners, the history, and requests between
// the notifications of a large commit.
#include <atomic>
#include <ctime>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "platform/store/codec/value_codec.h"
#include "platform/store/configuration/test_configuration.h"
#include "platform/store/server/test_served_store.h"

namespace {

using kvtree::Client;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ClientCommit : public ServedStore {
 protected:
  ~ClientCommit() override { kv_config_limits = {}; }
  void OwnerCommits(std::string_view owner, const std::vector<KvConfigChange>& changes) {
    ASSERT_FALSE(thread.joinable());
    ASSERT_EQ(kvtree_config_commit(owner, changes, ""), kStatusOk);
  }
  // "path=value (owner)".
  std::vector<std::string> Nodes(std::string_view path = "/", std::string_view owner = {}) {
    std::vector<std::string> all;
    const kvtree::NodesResult result = client.nodes(path, 1000, {}, owner);
    EXPECT_EQ(result.status, kStatusOk);
    for (const kvtree::Node& node : result.nodes)
      all.push_back(node.path + "=" + Describe(node.value) + " (" + node.owner + ")");
    return all;
  }
  static std::vector<KvConfigChange> Many(std::size_t count) {
    std::vector<KvConfigChange> changes;
    for (std::size_t i = 0; i < count; ++i) changes.push_back(SetTo("/cfg/" + std::to_string(i), "x"));
    return changes;
  }
};

TEST_F(ClientCommit, ChangesAreOneCommitOfTheCommandLine) {
  OwnerCommits("script", {SetTo("/cfg/f", "script")});
  StartAndConnect();
  const kvtree::CommitResult result = client.commit({{"/cfg/t", TupleValue({1, -2})},
                                                     {"/cfg/n", NumberValue(5)},
                                                     {"/cfg/e", KvValue{}},
                                                     SetTo("/cfg/x", "")},
                                                    "why");
  EXPECT_EQ(result.status, kStatusOk);
  EXPECT_EQ(result.id, "2");
  EXPECT_EQ(result.error, "");
  EXPECT_THAT(Nodes(), ElementsAre("/cfg/e=. (user)", "/cfg/f=script (script)", "/cfg/n=#5 (user)",
                                   "/cfg/t=(1 -2) (user)", "/cfg/x= (user)"));
  EXPECT_EQ(client.commit({Withdraw("/cfg/t")}, "").status, kStatusOk);
  EXPECT_THAT(Nodes("/cfg/t"), IsEmpty());
}

// The effective value does not change while its owner changes, in both directions.
TEST_F(ClientCommit, OwnerOfTheSameValueIsTheEffectiveOne) {
  OwnerCommits("script", {SetTo("/cfg/a", "x")});
  StartAndConnect();
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, kStatusOk);
  EXPECT_THAT(Nodes(), ElementsAre("/cfg/a=x (user)"));
  EXPECT_EQ(client.commit({Withdraw("/cfg/a")}, "").status, kStatusOk);
  EXPECT_THAT(Nodes(), ElementsAre("/cfg/a=x (script)"));
}

TEST_F(ClientCommit, ErrorIsReportedAndNothingChanges) {
  StartAndConnect();
  const kvtree::CommitResult result = client.commit({SetTo("/cfg/a", "x"), Withdraw("/cfg/b")}, "");
  EXPECT_EQ(result.status, kStatusNoSuchRow);
  EXPECT_EQ(result.error, "/cfg/b: user does not set it");
  EXPECT_EQ(result.id, "");
  EXPECT_THAT(Nodes(), IsEmpty());
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, kStatusOk);
  EXPECT_THAT(Nodes(), SizeIs(1));
}

TEST_F(ClientCommit, CommitOfManyMessagesIsOneCommit) {
  StartAndConnect();
  const kvtree::CommitResult result = client.commit(Many(5000), "many");
  EXPECT_EQ(result.status, kStatusOk);
  const kvtree::HistoryResult history = client.history(10);
  ASSERT_THAT(history.commits, SizeIs(1));
  EXPECT_EQ(history.commits[0].changes, 5000U);
}

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

TEST_F(ClientCommit, ClientRefusesARecordAsAValue) {
  StartAndConnect();
  KvValue record;
  record.type = KvValueType::kRecord;
  EXPECT_EQ(client.commit({{"/cfg/a", record}}, "").status, kStatusInvalid);
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, kStatusOk);
}

TEST_F(ClientCommit, LongestChangesFitIntoMessages) {
  StartAndConnect();
  std::vector<KvConfigChange> changes = Many(4);
  for (KvConfigChange& change : changes) {
    change.path += std::string(kKvMaxPath - change.path.size(), 'p');
    change.value->text.assign(kMaxConfigText, 't');
  }
  EXPECT_EQ(client.commit(changes, std::string(kMaxCommitComment, 'c')).status, kStatusOk);
  EXPECT_EQ(client.nodes("/cfg/", 10).nodes.size(), 4U);
}

// A commit contains neither changes that another client staged nor those that this client staged earlier.
TEST_F(ClientCommit, StagedChangesEndWithTheConnectionAndWithTheNextFirstMessage) {
  StartAndConnect();
  wire::ClientSocket raw;
  ASSERT_EQ(raw.connect(Client::default_socket(), std::chrono::seconds(5)), kStatusOk);
  const auto stage = [&](std::uint8_t flags, const char* path) {
    wire::Writer writer = raw.begin(kvtree::kStage, 1);
    writer.u8(flags);
    writer.u32(1);
    writer.text(path);
    ASSERT_TRUE(kvtree::write_value(&writer, NumberValue(1)));
    ASSERT_EQ(raw.send(), kStatusOk);
    wire::Message answer;
    ASSERT_EQ(raw.receive(&answer), kStatusOk);
    EXPECT_EQ(wire::Reader(answer.payload).u32(), kStatusOk);
  };
  stage(kvtree::kFlagFirst, "/cfg/left");
  stage(kvtree::kFlagFirst, "/cfg/a");
  stage(0, "/cfg/b");
  EXPECT_EQ(client.commit({SetTo("/cfg/own", "x")}, "").status, kStatusOk);
  EXPECT_THAT(Nodes(), ElementsAre("/cfg/own=x (user)"));
  wire::Writer commit = raw.begin(kvtree::kCommit, 2);
  commit.u32(0);
  commit.text("");
  ASSERT_EQ(raw.send(), kStatusOk);
  wire::Message answer;
  ASSERT_EQ(raw.receive(&answer), kStatusOk);
  EXPECT_THAT(Nodes(), ElementsAre("/cfg/a=#1 (user)", "/cfg/b=#1 (user)", "/cfg/own=x (user)"));
}

// A request without a connection has no peer who could have the right.
TEST_F(ClientCommit, PeerWithoutTheRightNeitherStagesNorCommits) {
  wire::Octets staged;
  wire::Writer writer(&staged);
  writer.u8(kvtree::kFlagFirst);
  writer.u32(0);
  wire::Octets commit;
  wire::Writer commit_writer(&commit);
  commit_writer.u32(0);
  commit_writer.text("");
  for (const auto& [type, payload] : {std::pair(kvtree::kStage, staged), std::pair(kvtree::kCommit, commit),
                                      std::pair(kvtree::kConfirm, wire::Octets())}) {
    wire::Octets answer;
    ASSERT_TRUE(kvtree::answer_message(nullptr, {type, 1, payload}, &answer));
    EXPECT_EQ(wire::Reader(answer).u32(), kStatusAccess);
  }
}

TEST_F(ClientCommit, MalformedMessagesAreReported) {
  const auto refused = [](std::uint16_t type, const std::function<void(wire::Writer*)>& write) {
    wire::Octets payload;
    wire::Writer writer(&payload);
    write(&writer);
    wire::Octets answer;
    return !kvtree::answer_message(nullptr, {type, 1, payload}, &answer);
  };
  EXPECT_TRUE(refused(kvtree::kStage, [](wire::Writer* w) {
    w->u8(2);
    w->u32(0);
  }));
  EXPECT_TRUE(refused(kvtree::kStage, [](wire::Writer* w) {
    w->u8(0);
    w->u32(1);
  }));
  EXPECT_TRUE(refused(kvtree::kStage, [](wire::Writer* w) {
    w->u8(0);
    w->u32(0);
    w->u8(0);
  }));
  EXPECT_TRUE(refused(kvtree::kStage, [](wire::Writer* w) {
    w->u8(0);
    w->u32(1);
    w->text("/cfg/a");
    w->u8(4);
  }));
  EXPECT_TRUE(refused(kvtree::kStage, [](wire::Writer* w) {
    w->u8(0);
    w->u32(1);
    w->text("/cfg/a");
    w->u8(kvtree::kTupleValue);
    w->u16(kMaxConfigTuple + 1);
  }));
  EXPECT_TRUE(refused(kvtree::kCommit, [](wire::Writer* w) { w->u32(1); }));
  EXPECT_TRUE(refused(kvtree::kCommit, [](wire::Writer* w) {
    w->u32(kLongestConfirmation + 1);
    w->text("");
  }));
  EXPECT_TRUE(refused(kvtree::kConfirmation, [](wire::Writer* w) { w->u8(0); }));
  EXPECT_TRUE(refused(kvtree::kHistory, [](wire::Writer* w) { w->u32(1); }));
  EXPECT_TRUE(refused(kvtree::kCommitChanges, [](wire::Writer* w) {
    w->text("1");
    w->u32(1);
  }));
  EXPECT_TRUE(refused(kvtree::kNodes, [](wire::Writer* w) {
    w->u32(1);
    w->text("/");
    w->text("");
  }));
}

TEST_F(ClientCommit, NodesOfAnOwnerAreListed) {
  OwnerCommits("script", {SetTo("/cfg/a", "script"), SetTo("/cfg/b", "script"), SetTo("/cfg/c", "script")});
  ASSERT_EQ(SetText("/cfg/own", "process"), kStatusOk);
  StartAndConnect();
  ASSERT_EQ(client.commit({SetTo("/cfg/b", "user")}, "").status, kStatusOk);
  EXPECT_THAT(Nodes("/cfg/"), ElementsAre("/cfg/a=script (script)", "/cfg/b=user (user)",
                                          "/cfg/c=script (script)", "/cfg/own=process ()"));
  EXPECT_THAT(Nodes("/cfg/", "script"),
              ElementsAre("/cfg/a=script (script)", "/cfg/b=script (script)", "/cfg/c=script (script)"));
  EXPECT_THAT(Nodes("/cfg/b", "user"), ElementsAre("/cfg/b=user (user)"));
  EXPECT_THAT(Nodes("/", "peer"), IsEmpty());
  EXPECT_EQ(client.nodes("/", 1, {}, "unknown").status, kStatusInvalid);
  const kvtree::NodesResult rest = client.nodes("/cfg/", 1, "/cfg/a", "script");
  ASSERT_THAT(rest.nodes, SizeIs(1));
  EXPECT_EQ(rest.nodes[0].path, "/cfg/b");
}

TEST_F(ClientCommit, NodesOfAnOwnerAreLookedForInSteps) {
  OwnerCommits("script", Many(20000));
  OwnerCommits("peer", {SetTo("/cfg/0", "first"), SetTo("/cfg/9999", "last")});
  ManualClock clock(7'000'000'000);
  clock.tick(100'000);  // twenty readings in a slice of the loop
  kvtree::NodesResult result;
  const unsigned iterations = IterationsOf([&] {
    EXPECT_EQ(client.connect(), kStatusOk);
    result = client.nodes("/cfg/", 1000, {}, "peer");
  });
  ASSERT_THAT(result.nodes, SizeIs(2));
  EXPECT_EQ(result.nodes[0].path, "/cfg/0");
  EXPECT_EQ(result.nodes[1].path, "/cfg/9999");
  EXPECT_GE(iterations, 10U);
}

TEST_F(ClientCommit, HistoryAndChangesAreReadInParts) {
  ManualClock clock(7'000'000'000);
  StartAndConnect();
  ASSERT_EQ(client.commit({SetTo("/cfg/a", "1"), SetTo("/cfg/b", "1"), SetTo("/cfg/c", "1")}, "one").status,
            kStatusOk);
  ASSERT_EQ(client.commit({SetTo("/cfg/a", "2"), Withdraw("/cfg/c")}, "two").status, kStatusOk);
  kvtree::HistoryResult history = client.history(1);
  ASSERT_THAT(history.commits, SizeIs(1));
  EXPECT_EQ(history.commits[0].id, "2");
  EXPECT_EQ(history.commits[0].time, 7'000'000'000U);
  EXPECT_EQ(history.commits[0].owner, "user");
  EXPECT_EQ(history.commits[0].comment, "two");
  EXPECT_EQ(history.commits[0].changes, 2U);
  history = client.history(5, "2");
  ASSERT_THAT(history.commits, SizeIs(1));
  EXPECT_EQ(history.commits[0].id, "1");
  kvtree::CommitChangesResult changes = client.commit_changes("2", 10);
  ASSERT_THAT(changes.changes, SizeIs(2));
  EXPECT_EQ(changes.changes[0].path, "/cfg/c");
  EXPECT_EQ(changes.changes[0].after, std::nullopt);
  EXPECT_EQ(changes.changes[1].owner_before, "user");
  EXPECT_EQ(Describe(changes.changes[1].before) + Describe(changes.changes[1].after), "12");
  changes = client.commit_changes("1", 1, 1);
  ASSERT_THAT(changes.changes, SizeIs(1));
  EXPECT_EQ(changes.changes[0].path, "/cfg/b");
  EXPECT_THAT(client.commit_changes("1", 1, 3).changes, IsEmpty());
  EXPECT_EQ(client.commit_changes("3", 1).status, kStatusNoSuchRow);
  EXPECT_EQ(client.history(1, "3").status, kStatusNoSuchRow);
}

// Small parts of two commits in turn: the processor time of all of them is that of reading a commit a few
// times, not once for each part.
TEST_F(ClientCommit, PartOfALargeCommitIsReadWithoutTheRest) {
  constexpr std::uint32_t kParts = 60;
  std::vector<KvConfigChange> changes = Many(20000);
  OwnerCommits("script", changes);
  changes.front().value.reset();
  changes.back().value.reset();
  for (std::size_t i = 1; i + 1 < changes.size(); ++i) changes[i].value->text = "y";
  OwnerCommits("script", changes);
  const std::clock_t start = std::clock();
  std::vector<KvConfigCommitChange> all[2];
  for (std::size_t commit = 0; commit < 2; ++commit)
    ASSERT_EQ(kvtree_config_changes(std::to_string(commit + 1), &all[commit]), kStatusOk);
  const std::clock_t whole = std::clock() - start;
  StartAndConnect();
  const std::clock_t parts = std::clock();
  for (std::uint32_t part = 0; part < kParts; ++part) {
    const std::uint32_t first = part * 333;
    const auto result = client.commit_changes(std::to_string(part % 2 + 1), 1, first);
    ASSERT_THAT(result.changes, SizeIs(1));
    EXPECT_EQ(result.changes[0].path, all[part % 2][first].path);
  }
  EXPECT_LT(std::clock() - parts, 8 * whole);
  EXPECT_EQ(all[1][0].path, "/cfg/0");
  EXPECT_EQ(all[1][1].path, "/cfg/19999");
}

// The parts of an answer are small, however much the client asks for.
TEST_F(ClientCommit, AnswerOfTheHistoryIsBoundedInChangesAndOctets) {
  std::vector<KvConfigChange> changes = Many(3000);
  OwnerCommits("script", changes);
  for (KvConfigChange& change : changes) change.value->text.assign(kMaxConfigText, 't');
  changes.resize(500);
  OwnerCommits("script", changes);
  StartAndConnect();
  EXPECT_EQ(client.commit_changes("1", 10000).changes.size(), kKvMaxListItems);
  const std::size_t large = client.commit_changes("2", 10000).changes.size();
  EXPECT_GT(large, 60U);
  EXPECT_LT(large, 70U);
}

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

TEST_F(ClientCommit, ClosedClientReportsIt) {
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, kStatusNotConnected);
  EXPECT_EQ(client.history(1).status, kStatusNotConnected);
  EXPECT_EQ(client.commit_changes("1", 1).status, kStatusNotConnected);
}

}  // namespace

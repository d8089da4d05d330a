// Commits over the wire: staging, committing, rights and malformed messages.
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/store/client/client_commit_test_support.h"
#include "platform/store/codec/value_codec.h"

namespace {

using kvtree::Client;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

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

TEST_F(ClientCommit, ClosedClientReportsIt) {
  EXPECT_EQ(client.commit({SetTo("/cfg/a", "x")}, "").status, kStatusNotConnected);
  EXPECT_EQ(client.history(1).status, kStatusNotConnected);
  EXPECT_EQ(client.commit_changes("1", 1).status, kStatusNotConnected);
}

}  // namespace

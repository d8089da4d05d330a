// Tests of the server: every request over a socket, clients that misbehave.
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "platform/core/wire/wire.h"
#include "platform/store/client/client.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"
#include "platform/store/server/store.h"
#include "platform/store/server/test_served_store.h"
#include "platform/store/tree/actions.h"

namespace {

using kvtree::Client;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

TEST_F(ServedStore, GetAnswersTheRecord) {
  StartAndConnect();
  const kvtree::GetResult result = client.get(kSubtree + "interface/red/7");
  EXPECT_EQ(result.status, kStatusOk);
  EXPECT_EQ(Text(result.record), "get/0 'red' 7");
  EXPECT_EQ(Text(client.get(kSubtree + "interface-next/red/7", true).record), "get/3 'red' 7");
}

TEST_F(ServedStore, FailuresAreAnsweredAndTheConnectionStaysOpen) {
  StartAndConnect();
  EXPECT_EQ(client.get(kSubtree + "nowhere").status, kStatusUnknownPath);
  EXPECT_EQ(client.get(kSubtree + "interface/red/x").status, kStatusBadKey);
  EXPECT_EQ(client.get(kSubtree + "vrf-detail/red").status, kStatusNoHandler);
  EXPECT_EQ(client.get("/" + std::string(kKvMaxPath, 'a')).status, kStatusMessageTooLarge);
  EXPECT_EQ(client.walk(kSubtree + "scalars", 1).status, kStatusNoHandler);
  EXPECT_EQ(client.list(kSubtree + "scalars", 1).status, kStatusNoHandler);
  EXPECT_EQ(client.datalist(kSubtree + "scalars", 1).status, kStatusNoHandler);
  EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusOk);
  EXPECT_TRUE(client.connected());
}

TEST_F(ServedStore, ListsAndDatalistsCarryKeysKindsAndRecords) {
  StartAndConnect();
  const kvtree::ListResult list = client.list(kSubtree + "vrf-detail/red", 10);
  ASSERT_EQ(list.status, kStatusOk);
  ASSERT_EQ(list.items.size(), 2U);
  EXPECT_EQ(list.items[1].key, "vrf1");
  EXPECT_EQ(list.items[1].kind, 3U);
  EXPECT_THAT(list.items[1].record, IsEmpty());
  const kvtree::ListResult datalist = client.datalist(kSubtree + "vrf-detail/red", 10);
  ASSERT_EQ(datalist.status, kStatusOk);
  ASSERT_EQ(datalist.items.size(), 2U);
  EXPECT_EQ(datalist.items[0].key, "vrf0");
  EXPECT_EQ(datalist.items[0].kind, 7U);
  EXPECT_EQ(Text(datalist.items[0].record), "vvv");
}

TEST_F(ServedStore, MaximumOfAListIsBounded) {
  StartAndConnect();
  EXPECT_EQ(client.list(kSubtree + "vrf-detail/red", 0).status, kStatusOk);
  EXPECT_EQ(TestProvider::last_max_items, 0U);
  EXPECT_EQ(client.datalist(kSubtree + "vrf-detail/red", 0xffffffff).status, kStatusOk);
  EXPECT_EQ(TestProvider::last_max_items, kKvMaxListItems);
}

TEST_F(ServedStore, ListsThatAreTooLongOrTooLargeAreRefused) {
  TestProvider::items_to_list = kKvMaxListItems;
  StartAndConnect();
  EXPECT_EQ(client.list(kSubtree + "vrf-detail/red", 5000).items.size(), kKvMaxListItems);
  TestProvider::items_to_list = kKvMaxListItems + 1;
  EXPECT_EQ(client.list(kSubtree + "vrf-detail/red", 5000).status, kStatusMessageTooLarge);
  TestProvider::items_to_list = 5;
  TestProvider::value_size = 1U << 20;
  EXPECT_EQ(client.datalist(kSubtree + "vrf-detail/red", 5000).status, kStatusMessageTooLarge);
  TestProvider::items_to_list = 3;
  EXPECT_EQ(client.datalist(kSubtree + "vrf-detail/red", 5000).items.size(), 3U);
}

TEST_F(ServedStore, DatalistInStepsHasTheItemsOfAllSteps) {
  TestProvider::steps_of_datalist = 7;
  StartAndConnect();
  EXPECT_EQ(client.datalist(kSubtree + "vrf-detail/red", 100).items.size(), 14U);
  EXPECT_EQ(TestProvider::steps_taken, 7U);
  EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusOk) << "the next request is answered";
}

TEST_F(ServedStore, DatalistInStepsIsRefusedOnceItIsTooLarge) {
  TestProvider::steps_of_datalist = 1000;
  TestProvider::items_to_list = 1;
  TestProvider::value_size = 1U << 20;
  StartAndConnect();
  EXPECT_EQ(client.datalist(kSubtree + "vrf-detail/red", 100).status, kStatusMessageTooLarge);
  EXPECT_EQ(TestProvider::steps_taken, 4U);
}

TEST_F(ServedStore, DatalistInStepsEndsWithItsProvider) {
  TestProvider::steps_of_datalist = 1'000'000'000;
  TestProvider::items_to_list = 0;
  StartAndConnect();
  std::thread unregister([this] { OnStore(kvtree_reset); });
  EXPECT_EQ(client.datalist(kSubtree + "vrf-detail/red", 100).status, kStatusUnknownPath);
  unregister.join();
}

TEST_F(ServedStore, ListCreationThatFailsIsAnswered) {
  fault_arm("kvtree_list_create", kStatusNoMemory);
  StartAndConnect();
  EXPECT_EQ(client.list(kSubtree + "vrf-detail/red", 1).status, kStatusNoMemory);
}

TEST_F(ServedStore, WalkFetchesRowsInBatchesToTheEnd) {
  StartAndConnect();
  std::uint32_t next = 1;
  for (bool end = false; !end;) {
    const kvtree::WalkResult result = client.walk(kSubtree + "rows-next/" + std::to_string(next), 999);
    ASSERT_EQ(result.status, kStatusOk);
    ASSERT_FALSE(result.rows.empty());
    for (const kvtree::Octets& row : result.rows) ASSERT_EQ(Text(row), std::to_string(next++));
    end = result.end;
  }
  EXPECT_EQ(next, kRowCount + 1);
}

TEST_F(ServedStore, WalkStopsBeforeARowThatDoesNotFit) {
  TestProvider::row_size = 1U << 20;
  StartAndConnect();
  const kvtree::WalkResult result = client.walk(kSubtree + "rows-next/1", 100);
  EXPECT_EQ(result.status, kStatusOk);
  EXPECT_EQ(result.rows.size(), 3U);
  EXPECT_FALSE(result.end);
}

TEST_F(ServedStore, RecordThatFitsNoAnswerIsRefused) {
  TestProvider::row_size = kvtree::kMaxAnswer;
  StartAndConnect();
  EXPECT_EQ(client.walk(kSubtree + "rows-next/1", 100).status, kStatusMessageTooLarge);
  EXPECT_EQ(client.get(kSubtree + "rows-next/1").status, kStatusMessageTooLarge);
  EXPECT_TRUE(client.connected());
}

TEST_F(ServedStore, WalkThatFailsMidwayHasNoRows) {
  TestProvider::failing_row = 3;
  StartAndConnect();
  const kvtree::WalkResult result = client.walk(kSubtree + "rows-next/1", 100);
  EXPECT_EQ(result.status, kStatusIo);
  EXPECT_THAT(result.rows, IsEmpty());
  EXPECT_FALSE(result.end);
}

TEST_F(ServedStore, ActionsSeeThePeersRightsAndAnswerTextWithEveryStatus) {
  StartAndConnect();
  const kvtree::ActionResult done = client.action({"act", "", "go"});
  EXPECT_EQ(done.status, kStatusOk);
  EXPECT_EQ(done.text, "may:go");
  const kvtree::ActionResult refused = client.action({"act", "fail"});
  EXPECT_EQ(refused.status, kStatusAccess);
  EXPECT_EQ(refused.text, "may:fail");
  EXPECT_EQ(client.action({"unknown"}).status, kStatusUnknownPath);
  EXPECT_EQ(client.action({}).status, kStatusInvalid);
  EXPECT_EQ(client.action({"long"}).status, kStatusMessageTooLarge);
}

TEST_F(ServedStore, BufferOfALargeAnswerIsFreed) {
  constexpr std::size_t kSize = 3U << 20;
  const auto large = [](const KvActionContext&, const std::vector<std::string>&, std::string* text, void*) {
    text->assign(kSize, 'x');
    return kStatusOk;
  };
  ASSERT_EQ(kvtree_register_action("large", large, nullptr), kStatusOk);
  StartAndConnect();
  EXPECT_EQ(client.action({"large"}).text.size(), kSize);
  Stop();
  EXPECT_LT(kvtree::the_server()->answer.capacity(), kSize / 2);
}

TEST_F(ServedStore, ActionInStepsIsAnsweredAfterTheLast) {
  StartAndConnect();
  for (int i = 0; i < 2; ++i) {
    const kvtree::ActionResult done = client.action({"stepping"});
    EXPECT_EQ(done.status, kStatusOk);
    EXPECT_EQ(done.text, "step 3");
  }
  EXPECT_EQ(client.action({"act", "go"}).text, "may:go");
}

// A client whose action has begun and has not ended.
class OpenAction : public ServedStore {
 protected:
  OpenAction() {
    Start();
    EXPECT_EQ(user.connect(kvtree::Client::default_socket(), 5000ms), kStatusOk);
    Send(kvtree::kAction, 1, [](wire::Writer* to) { to->u16(1), to->text("open"); });
    EXPECT_EQ(client.connect(), kStatusOk);
    while (Begun() == 0) EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusOk);
  }
  void Send(std::uint16_t type, std::uint32_t request, const std::function<void(wire::Writer*)>& write) {
    wire::Writer to = user.begin(type, request);
    write(&to);
    ASSERT_EQ(user.send(), kStatusOk);
  }
  template <typename Read>
  auto OnStoreAndWait(Read read) {
    std::promise<decltype(read())> result;
    OnStore([&] { result.set_value(read()); });
    return result.get_future().get();
  }
  std::size_t Begun() {
    return OnStoreAndWait([] { return open_actions.size(); });
  }
  std::size_t Clients() {
    return OnStoreAndWait([] { return kvtree::the_server()->server.client_count(); });
  }
  void End() {
    OnStore([] { open_actions.front()(kStatusAccess, "the end"); });
  }
  wire::ClientSocket user;
};

TEST_F(OpenAction, HoldsItsClientAndNoOther) {
  Send(kvtree::kGet, 2, [](wire::Writer* to) { to->u8(0), to->text(kSubtree + "scalars"); });
  wire::Message message;
  EXPECT_EQ(user.receive(&message, 0ms), kStatusTimedOut);
  EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusOk);
  EXPECT_EQ(user.receive(&message, 0ms), kStatusTimedOut);
  End();
  ASSERT_EQ(user.receive(&message), kStatusOk);
  EXPECT_EQ(message.request, 1U);
  wire::Reader answer(message.payload);
  EXPECT_EQ(answer.u32(), kStatusAccess);
  EXPECT_EQ(answer.text(), "the end");
  EXPECT_TRUE(answer.finished());
  ASSERT_EQ(user.receive(&message), kStatusOk);
  EXPECT_EQ(message.request, 2U);
}

TEST_F(OpenAction, EndsWithoutItsClient) {
  user.close();
  while (Clients() > 1) std::this_thread::yield();
  End();
  EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusOk);
}

TEST_F(OpenAction, MayEndWithinItsCall) {
  const kvtree::ActionResult result = client.action({"open", "now"});
  EXPECT_EQ(result.status, kStatusExists);
  EXPECT_EQ(result.text, "ended within the call");
  EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusOk);
}

TEST_F(ServedStore, OversizedRequestIsNotSent) {
  StartAndConnect();
  EXPECT_EQ(client.action({"act", std::string(70000, 'x')}).status, kStatusMessageTooLarge);
  EXPECT_EQ(client.action(std::vector<std::string>(257, "x")).status, kStatusMessageTooLarge);
  EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusOk);
}

// A payload for a message of this type.
struct MalformedRequest {
  const char* name;
  std::uint16_t type;
  wire::Octets payload;
};

std::vector<MalformedRequest> malformed_requests() {
  wire::Octets left_over;
  wire::Writer writer(&left_over);
  writer.u8(0);
  writer.text("/a");
  writer.u8(0);
  wire::Octets unknown_flag;
  writer = wire::Writer(&unknown_flag);
  writer.u8(2);
  writer.text("/a");
  wire::Octets too_many_words;
  writer = wire::Writer(&too_many_words);
  writer.u16(kvtree::kMaxActionWords + 1);
  for (std::size_t i = 0; i <= kvtree::kMaxActionWords; ++i) writer.text("");
  wire::Octets too_many_columns;
  writer = wire::Writer(&too_many_columns);
  writer.u32(1);
  writer.text("/a");
  writer.octets(wire::Octets(kvtree::kMaxColumns + 1));
  return {
      {"unknown type", 99, {}},
      {"empty get", kvtree::kGet, {}},
      {"get with a length beyond its end", kvtree::kGet, {0, 0xff, 0xff, 0xff, 0xff, 'x'}},
      {"get with octets left over", kvtree::kGet, left_over},
      {"get with an unknown flag", kvtree::kGet, unknown_flag},
      {"empty list", kvtree::kList, {}},
      {"empty datalist", kvtree::kDatalist, {0}},
      {"walk without a path", kvtree::kWalk, {0, 1, 0, 0, 0}},
      {"columns without their numbers", kvtree::kColumns, {1, 0, 0, 0, 0, 0, 0, 0}},
      {"too many columns", kvtree::kColumns, too_many_columns},
      {"action with fewer words than it says", kvtree::kAction, {2, 0, 1, 0, 0, 0, 'a'}},
      {"action with too many words", kvtree::kAction, too_many_words},
      {"empty subscription", kvtree::kSubscribe, {}},
      {"subscription with half a version",
       kvtree::kSubscribe,
       {1, 0, 0, 0, '/', 0, 0, 0, 0, 9, 0, 0, 0, '1'}},
      {"acknowledgement of nothing", kvtree::kAcknowledge, {1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}},
      {"empty acknowledgement", kvtree::kAcknowledge, {}},
      {"empty nodes", kvtree::kNodes, {0, 0}},
  };
}

TEST_F(ServedStore, MalformedRequestsCloseOnlyTheirClient) {
  StartAndConnect();
  for (const MalformedRequest& bad : malformed_requests()) {
    SCOPED_TRACE(bad.name);
    wire::ClientSocket socket;
    ASSERT_EQ(socket.connect(Client::default_socket(), 5000ms), kStatusOk);
    wire::Octets frame;
    wire::begin_frame(&frame, bad.type, 1);
    frame.insert(frame.end(), bad.payload.begin(), bad.payload.end());
    wire::finish_frame(&frame, 0);
    testing::internal::CaptureStderr();
    ASSERT_EQ(write(socket.fd(), frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
    wire::Message message;
    EXPECT_EQ(socket.receive(&message), kStatusNotConnected);
    EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusOk);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex("(.|\n)*kvtree: client [0-9]+ closed: a malformed request(.|\n)*"));
  }
}

TEST_F(ServedStore, ServingTwiceOnOneManagerIsRefused) {
  EXPECT_EQ(kvtree_serve(manager), kStatusExists);
  EXPECT_EQ(kvtree_serve(nullptr), kStatusInvalid);
  fault_arm("kvtree_serve", kStatusIo);
  EXPECT_EQ(kvtree_serve(manager), kStatusIo);
}

}  // namespace

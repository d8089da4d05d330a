// The client that never waits: requests under way, answers in order, and a daemon that hangs or sends what no
// daemon sends.
#include "platform/store/client/async_client.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/store/server/protocol.h"
#include "platform/store/server/test_served_store.h"

namespace kvtree {
namespace {

using Arrived = AsyncClient::Arrived;
using namespace std::chrono_literals;

constexpr std::uint8_t kColumn[] = {0};

class AsyncClientTest : public ServedStore {
 protected:
  // The next arrival, for which a test may wait.
  AsyncClient::Arrival Await() {
    AsyncClient::Arrival arrival;
    const auto until = std::chrono::steady_clock::now() + 10s;
    while (arrival.what == Arrived::kNothing && std::chrono::steady_clock::now() < until) {
      if (async_.receive(&arrival) != kStatusOk) break;
    }
    return arrival;
  }
  AsyncClient async_{Client::default_socket()};
};

TEST_F(AsyncClientTest, AnswersArriveInTheOrderOfTheRequests) {
  Start();
  ASSERT_EQ(async_.connect(), kStatusOk);
  ASSERT_EQ(async_.ask_columns("/nowhere", 1, kColumn), kStatusOk);
  ASSERT_EQ(async_.ask_columns(kSubtree + "scalars", 1, kColumn), kStatusOk);
  ASSERT_EQ(async_.ask_subscription("/oper/", "unknown"), kStatusOk);
  EXPECT_EQ(Await().columns.status, kStatusUnknownPath);
  EXPECT_EQ(Await().columns.status, kStatusNoHandler) << "a path without columns";
  const AsyncClient::Arrival third = Await();
  EXPECT_EQ(third.what, Arrived::kSubscribed);
  EXPECT_EQ(third.subscription.status, kStatusNoSuchRow);
  EXPECT_TRUE(async_.connected());
}

TEST_F(AsyncClientTest, ServerThatDoesNotAnswerIsNotWaitedFor) {
  ASSERT_EQ(async_.connect(), kStatusOk);  // the loop does not run
  Status status = kStatusOk;
  int asked = 0;
  for (; status == kStatusOk && asked < 1'000'000; ++asked) status = async_.ask_columns("/a", 1, kColumn);
  EXPECT_EQ(status, kStatusTimedOut) << "when the socket is full, and not before";
  EXPECT_GT(asked, 100);
  EXPECT_FALSE(async_.connected());
}

TEST_F(AsyncClientTest, ServerThatAcceptsNoConnectionIsNotWaitedFor) {
  std::vector<std::unique_ptr<AsyncClient>> clients;
  Status status = kStatusOk;
  while (status == kStatusOk && clients.size() < 10'000) {
    clients.push_back(std::make_unique<AsyncClient>(Client::default_socket()));
    status = clients.back()->connect();
  }
  EXPECT_EQ(status, kStatusTimedOut);
}

TEST_F(AsyncClientTest, NothingHasArrivedWithoutARequest) {
  AsyncClient::Arrival arrival;
  EXPECT_EQ(async_.receive(&arrival), kStatusNotConnected);
  ASSERT_EQ(async_.connect(), kStatusOk);
  EXPECT_EQ(async_.receive(&arrival), kStatusOk);
  EXPECT_EQ(arrival.what, Arrived::kNothing);
}

class AsyncClientOfALiar : public StoreTest {
 protected:
  // What the client finds when the server sends this to the client's first request.
  Status Find(std::uint16_t type, std::uint32_t request, const wire::Octets& payload) {
    wire::Octets frame;
    wire::begin_frame(&frame, type, request);
    frame.insert(frame.end(), payload.begin(), payload.end());
    wire::finish_frame(&frame, 0);
    event_set_acceptor(manager, [frame](int fd) {
      EXPECT_EQ(write(fd, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
      close(fd);
    });
    AsyncClient client(Client::default_socket());
    EXPECT_EQ(client.connect(), kStatusOk);
    EXPECT_EQ(client.ask_columns("/a", 1, kColumn), kStatusOk);
    Run();
    AsyncClient::Arrival arrival;
    const Status status = client.receive(&arrival);
    EXPECT_EQ(client.connected(), status == kStatusOk);
    return status;
  }
};

TEST_F(AsyncClientOfALiar, WhatIsNotAnAnswerClosesTheConnection) {
  const std::uint16_t batch = kColumns | kAnswer;
  EXPECT_EQ(Find(batch, 1, {0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}), kStatusOk);
  EXPECT_EQ(Find(batch, 2, {0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}), kStatusBadMessage)
      << "of another request";
  EXPECT_EQ(Find(batch, 1, {0, 0, 0, 0, 1, 0, 0, 0, 0, 9, 0, 0, 0}), kStatusBadMessage) << "octets missing";
  EXPECT_EQ(Find(batch, 1, {0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}), kStatusBadMessage)
      << "octets left over";
  EXPECT_EQ(Find(batch, 1, {5, 0, 0, 0, 1}), kStatusBadMessage) << "a failure with more than its status";
  EXPECT_EQ(Find(kGet | kAnswer, 1, {0, 0, 0, 0}), kStatusBadMessage) << "of another type";
  EXPECT_EQ(Find(kNotification, 0, {1}), kStatusBadMessage);
}

}  // namespace
}  // namespace kvtree

// The client without a server, with one that stops, and with one that answers wrongly.
#include <unistd.h>

#include <chrono>
#include <vector>

#include "platform/core/wire/wire.h"
#include "platform/store/client/client.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/test_served_store.h"

namespace {

using kvtree::Client;
using namespace std::chrono_literals;

TEST_F(ServedStore, ClientWithoutAConnectionReportsIt) {
  EXPECT_FALSE(client.connected());
  EXPECT_EQ(client.fd(), -1);
  EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusNotConnected);
  EXPECT_EQ(client.list(kSubtree, 1).status, kStatusNotConnected);
  EXPECT_EQ(client.walk(kSubtree, 1).status, kStatusNotConnected);
  EXPECT_EQ(client.action({"act"}).status, kStatusNotConnected);
  EXPECT_EQ(client.subscribe(kSubtree).status, kStatusNotConnected);
  EXPECT_EQ(client.acknowledge(1, 1), kStatusNotConnected);
  EXPECT_EQ(client.nodes("/cfg/", 1).status, kStatusNotConnected);
  EXPECT_EQ(client.next_notification(1ms).status, kStatusNotConnected);
  Client unserved(directory.path() + "/absent");
  EXPECT_EQ(unserved.connect(), kStatusNotConnected);
}

TEST_F(ServedStore, TimeoutClosesTheClientAndItConnectsAgain) {
  Client hasty(Client::default_socket(), 20ms);
  ASSERT_EQ(hasty.connect(), kStatusOk);
  EXPECT_EQ(hasty.get(kSubtree + "scalars").status, kStatusTimedOut);  // the loop does not run
  EXPECT_FALSE(hasty.connected());
  Start();
  Client patient(Client::default_socket(), 5000ms);
  ASSERT_EQ(patient.connect(), kStatusOk);
  EXPECT_EQ(patient.get(kSubtree + "scalars").status, kStatusOk);
}

TEST_F(ServedStore, ServerThatStopsIsNotConnected) {
  ASSERT_EQ(client.connect(), kStatusOk);
  Run();
  kvtree_stop_serving(manager);
  EXPECT_EQ(client.get(kSubtree + "scalars").status, kStatusNotConnected);
  EXPECT_FALSE(client.connected());
}

// A server that answers every connection with these octets.
class LyingServer : public StoreTest {
 protected:
  // An answer to the first request of a client.
  static wire::Octets Answer(std::uint16_t type, const wire::Octets& payload, std::uint32_t request = 1) {
    wire::Octets frame;
    wire::begin_frame(&frame, type, request);
    frame.insert(frame.end(), payload.begin(), payload.end());
    wire::finish_frame(&frame, 0);
    return frame;
  }
  void ConnectTo(const wire::Octets& octets) {
    event_set_acceptor(manager, [octets](int fd) {
      EXPECT_EQ(write(fd, octets.data(), octets.size()), static_cast<ssize_t>(octets.size()));
      fds().push_back(fd);
    });
    ASSERT_EQ(client.connect(), kStatusOk);
    Run();
  }
  ~LyingServer() override {
    for (const int fd : fds()) close(fd);
    fds().clear();
  }
  static std::vector<int>& fds() {
    static std::vector<int> all;
    return all;
  }
  Client client{Client::default_socket(), 5000ms};
};

TEST_F(LyingServer, MalformedAnswersCloseTheClient) {
  const wire::Octets ok{0, 0, 0, 0};
  const auto with = [&](wire::Octets rest) {
    rest.insert(rest.begin(), ok.begin(), ok.end());
    return rest;
  };
  ConnectTo(Answer(kvtree::kGet | kvtree::kAnswer, ok));
  EXPECT_EQ(client.get("/a").status, kStatusBadMessage);
  EXPECT_FALSE(client.connected());
  ConnectTo(Answer(kvtree::kGet | kvtree::kAnswer, {0, 0}, 2));
  EXPECT_EQ(client.get("/a").status, kStatusBadMessage);
  ConnectTo(Answer(kvtree::kList | kvtree::kAnswer, with({0xff, 0xff, 0xff, 0xff}), 3));
  EXPECT_EQ(client.list("/a", 1).status, kStatusBadMessage);
  ConnectTo(Answer(kvtree::kWalk | kvtree::kAnswer, with({1, 0xff, 0xff, 0xff, 0xff}), 4));
  const kvtree::WalkResult walk = client.walk("/a", 1);
  EXPECT_EQ(walk.status, kStatusBadMessage);
  EXPECT_FALSE(walk.end);
  ConnectTo(Answer(kvtree::kAction | kvtree::kAnswer, ok, 5));
  EXPECT_EQ(client.action({"a"}).status, kStatusBadMessage);
  ConnectTo(Answer(kvtree::kNotification, {1}, 0));
  EXPECT_EQ(client.get("/a").status, kStatusBadMessage);
  EXPECT_FALSE(client.connected());
}

TEST_F(LyingServer, AnswerToAnotherRequestClosesTheClient) {
  ConnectTo(Answer(kvtree::kGet | kvtree::kAnswer, {0, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0}, 9));
  EXPECT_EQ(client.get("/a").status, kStatusBadMessage);
  EXPECT_FALSE(client.connected());
  ConnectTo(Answer(kvtree::kList | kvtree::kAnswer, {0, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0}, 2));
  EXPECT_EQ(client.get("/a").status, kStatusBadMessage);
}

}  // namespace

#include "platform/core/http/server.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>
#include <set>
#include <vector>

#include "platform/core/http/listening_socket.h"
#include "platform/core/http/test_http_client.h"

namespace http {
namespace {

class HttpServer : public EventManagerTest {
 protected:
  void SetUp() override { Serve("hello\n"); }
  void TearDown() override { server_.reset(); }

  // A page of these parts.
  void Serve(const std::string& part, int count = 1) {
    server_.reset();
    std::string error;
    const int socket = open_listening_socket({"127.0.0.1", 0, {}}, &error);
    ASSERT_GE(socket, 0) << error;
    port_ = PortOf(socket);
    const auto begin = [this, part, count]() -> Parts {
      return [this, part, left = count](std::string* text) mutable {
        *text += part;
        part_steps_.push_back(event_step(manager).number);
        return --left > 0;
      };
    };
    server_ = std::make_unique<Server>(manager, socket, Page{"/page", "text/plain", begin});
    ASSERT_EQ(server_->start(), kStatusOk);
  }
  std::string Ask(const std::string& path, const std::string& method = "GET") {
    return HttpClient(manager, port_).Ask(path, method);
  }

  std::vector<std::unique_ptr<HttpClient>> Connect(unsigned count) {
    std::vector<std::unique_ptr<HttpClient>> clients;
    for (unsigned i = 0; i < count; ++i) {
      clients.push_back(std::make_unique<HttpClient>(manager, port_));
      event_run_pending(manager);
    }
    return clients;
  }
  void Pass(ManualClock* clock, unsigned seconds) const {
    clock->advance(seconds * kNanosecondsPerSecond);
    event_run_pending(manager, kMillisecond);
  }

  std::uint16_t port_ = 0;
  std::unique_ptr<Server> server_;
  std::vector<std::uint64_t> part_steps_;  // in which each part was made
};

TEST_F(HttpServer, PageIsAnsweredWithItsTypeAndItsParts) {
  const std::string answer = Ask("/page");
  EXPECT_EQ(answer.substr(0, 17), "HTTP/1.1 200 OK\r\n") << answer;
  EXPECT_NE(answer.find("Content-Type: text/plain\r\n"), std::string::npos);
  EXPECT_EQ(BodyOf(answer), "hello\n");
}

TEST_F(HttpServer, OtherPathsAndMethodsAreRefused) {
  EXPECT_NE(Ask("/other").find(" 404 "), std::string::npos);
  EXPECT_NE(Ask("/page", "DELETE").find(" 405 "), std::string::npos);
  EXPECT_TRUE(part_steps_.empty());
}

TEST_F(HttpServer, HeadHasNoBody) {
  const std::string answer = Ask("/page", "HEAD");
  EXPECT_NE(answer.find(" 200 "), std::string::npos);
  EXPECT_EQ(BodyOf(answer), "");
}

TEST_F(HttpServer, PartsOfALongAnswerAreStepsOfTheirOwn) {
  const std::string part(kPartSize, 'x');
  Serve(part, 100);
  EXPECT_EQ(BodyOf(Ask("/page")).size(), 100 * kPartSize);
  ASSERT_EQ(part_steps_.size(), 100U);
  const std::set<std::uint64_t> steps(part_steps_.begin(), part_steps_.end());
  EXPECT_EQ(steps.size(), 100U) << "more than one part in a step of the loop";
}

// The library asks twice when it is run and has nothing to send.
TEST_F(HttpServer, AStepMakesAtMostTwoEmptyParts) {
  Serve("", 100);
  EXPECT_EQ(BodyOf(Ask("/page")), "");
  ASSERT_EQ(part_steps_.size(), 100U);
  const std::set<std::uint64_t> steps(part_steps_.begin(), part_steps_.end());
  EXPECT_GE(steps.size(), 50U);
}

TEST_F(HttpServer, ClientThatDoesNotReadStopsTheParts) {
  Serve(std::string(kPartSize, 'x'), 10000);
  HttpClient client(manager, port_);
  client.Send("GET /page HTTP/1.0\r\n\r\n");
  event_run_pending(manager, 100 * kMillisecond);
  EXPECT_GT(part_steps_.size(), 0U);
  EXPECT_LT(part_steps_.size(), 1000U);
}

TEST_F(HttpServer, ClientThatClosesDuringAnAnswerChangesNothingForTheNext) {
  Serve(std::string(kPartSize, 'x'), 1000);
  {
    HttpClient client(manager, port_);
    client.Send("GET /page HTTP/1.0\r\n\r\n");
    event_run_pending(manager, 10 * kMillisecond);
  }
  event_run_pending(manager, 10 * kMillisecond);
  EXPECT_EQ(BodyOf(Ask("/page")).size(), 1000 * kPartSize);
}

TEST_F(HttpServer, NextClientTakesThePlaceOfTheOldestWithoutARequest) {
  std::vector<std::unique_ptr<HttpClient>> clients = Connect(kMostClients);
  for (const auto& client : clients) client->Send("G");
  HttpClient one_more(manager, port_);
  EXPECT_EQ(BodyOf(one_more.Ask("/page")), "hello\n");
  EXPECT_TRUE(clients.front()->IsClosed());
  for (unsigned i = 1; i < kMostClients; ++i) EXPECT_FALSE(clients[i]->IsClosed()) << i;
}

TEST_F(HttpServer, IdleConnectionGivesItsPlaceToTheNextClient) {
  std::vector<std::unique_ptr<HttpClient>> clients = Connect(kMostClients);
  for (const auto& client : clients) client->Send("GET /page HTTP/1.1\r\nHost: x\r\n\r\n");
  event_run_pending(manager, 10 * kMillisecond);
  ASSERT_EQ(part_steps_.size(), kMostClients);
  EXPECT_EQ(BodyOf(Ask("/page")), "hello\n");
}

TEST_F(HttpServer, NextClientIsClosedWhileAllReadTheirAnswers) {
  Serve(std::string(kPartSize, 'x'), 10000);
  std::vector<std::unique_ptr<HttpClient>> clients = Connect(kMostClients);
  for (const auto& client : clients) client->Send("GET /page HTTP/1.0\r\n\r\n");
  event_run_pending(manager, 10 * kMillisecond);
  HttpClient one_more(manager, port_);
  EXPECT_TRUE(one_more.IsClosed());
  clients.front().reset();
  event_run_pending(manager, 10 * kMillisecond);
  HttpClient next(manager, port_);
  EXPECT_FALSE(next.IsClosed()) << "one has left";
}

TEST_F(HttpServer, ClientWhoseRequestArrivesOctetByOctetIsClosedAtItsDeadline) {
  ManualClock clock(kNanosecondsPerSecond);
  HttpClient client(manager, port_);
  event_run_pending(manager);
  for (unsigned second = 1; second < kRequestSeconds; ++second) {
    client.Send("G");
    Pass(&clock, 1);
    ASSERT_FALSE(client.IsClosed()) << second;
  }
  Pass(&clock, 1);
  EXPECT_TRUE(client.IsClosed());
}

TEST_F(HttpServer, ClientWhoseBodyArrivesOctetByOctetIsClosedAtItsDeadline) {
  ManualClock clock(kNanosecondsPerSecond);
  HttpClient client(manager, port_);
  client.Send("GET /page HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\n");
  event_run_pending(manager);
  client.Send("x");
  Pass(&clock, kRequestSeconds);
  EXPECT_TRUE(client.IsClosed());
}

TEST_F(HttpServer, EachRequestOfAConnectionHasADeadlineOfItsOwn) {
  ManualClock clock(kNanosecondsPerSecond);
  HttpClient client(manager, port_);
  for (int i = 0; i < 5; ++i) {
    client.Send("GET /page HTTP/1.1\r\nHost: x\r\n\r\n");
    event_run_pending(manager, kMillisecond);
    Pass(&clock, kRequestSeconds - 1);
    ASSERT_FALSE(client.IsClosed()) << i;
  }
  Pass(&clock, 1);
  EXPECT_TRUE(client.IsClosed());
}

TEST_F(HttpServer, ClientThatReadsAnAnswerSlowlyIsClosedAtItsDeadline) {
  Serve(std::string(kPartSize, 'x'), 10000);
  ManualClock clock(kNanosecondsPerSecond);
  HttpClient client(manager, port_);
  client.Send("GET /page HTTP/1.0\r\n\r\n");
  event_run_pending(manager, 10 * kMillisecond);
  for (unsigned second = 1; second < kAnswerSeconds; ++second) {
    EXPECT_GT(client.Read(1000), 0);
    Pass(&clock, 1);
  }
  const std::size_t parts = part_steps_.size();
  Pass(&clock, 1);
  EXPECT_TRUE(client.IsClosed());
  EXPECT_EQ(part_steps_.size(), parts);
}

// The library alone would try again for ever, at once.
TEST_F(HttpServer, ClientWaitsWhileTheProcessHasNoDescriptorLeft) {
  HttpClient client(manager, port_);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{3, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  event_run_pending(manager, 10 * kMillisecond);
  EXPECT_FALSE(event_run_pending(manager, 10 * kMillisecond)) << "the loop is busy";
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(BodyOf(client.Ask("/page")), "hello\n");
}

}  // namespace
}  // namespace http

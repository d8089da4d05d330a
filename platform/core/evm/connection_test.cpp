// Tests of managed connections: opening, noticing the end, back-off.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/test_fault.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"

namespace {

constexpr std::uint64_t kMillisecond = kNanosecondsPerMillisecond;

// A service that a managed connection is made to: a socket pair per open.
struct Service {
  bool refuses = false;
  int opens = 0;
  int closes = 0;
  int client = -1;
  int server = -1;

  static int Open(void* handle, EventManager*) {
    auto* service = static_cast<Service*>(handle);
    ++service->opens;
    if (service->refuses) return -1;
    std::array<int, 2> pair{-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair.data()), 0);
    service->client = pair[0];
    service->server = pair[1];
    return service->client;
  }
  static Status Close(void* handle) {
    auto* service = static_cast<Service*>(handle);
    ++service->closes;
    close(service->client);
    service->client = -1;
    return kStatusOk;
  }
  void HangUp() {
    close(server);
    server = -1;
  }
};

class ManagedConnectionTest : public ::testing::Test {
 protected:
  ManagedConnectionTest() {
    manager = event_manager_create("/dev/main", 0);
    EXPECT_EQ(event_conn_create(manager, Service::Open, &service, kEventConnRetries, &connection), kStatusOk);
    EXPECT_EQ(event_conn_notify(connection, 0x6000, Service::Close), kStatusOk);
  }
  ~ManagedConnectionTest() override {
    event_conn_destroy(connection);
    event_manager_destroy(manager);
    fault_disarm_all();
    if (service.client >= 0) close(service.client);
    if (service.server >= 0) close(service.server);
  }
  void Advance(std::uint64_t nanoseconds) {
    clock.advance(nanoseconds);
    event_run_pending(manager);
  }

  TestRunDirectory directory;
  ManualClock clock{kNanosecondsPerSecond};
  EventManager* manager = nullptr;
  EventConn* connection = nullptr;
  Service service;
};

TEST_F(ManagedConnectionTest, OpenCallsTheHandlerAtOnce) {
  EXPECT_FALSE(event_conn_is_open(connection));
  EXPECT_EQ(event_conn_open(connection), kStatusOk);
  EXPECT_EQ(service.opens, 1);
  EXPECT_TRUE(event_conn_is_open(connection));
  EXPECT_EQ(event_conn_open(connection), kStatusOk);
  EXPECT_EQ(service.opens, 1) << "it is open";
}

TEST_F(ManagedConnectionTest, FailedOpenIsRetriedWithBackOffUpToFiveSeconds) {
  service.refuses = true;
  EXPECT_EQ(event_conn_open(connection), kStatusConnectionRetry);
  int opens = 1;
  for (const std::uint64_t delay : {100U, 200U, 400U, 800U, 1600U, 3200U, 5000U, 5000U}) {
    Advance(delay * kMillisecond - 1);
    EXPECT_EQ(service.opens, opens) << delay;
    Advance(1);
    EXPECT_EQ(service.opens, ++opens) << delay;
  }
  service.refuses = false;
  Advance(5000 * kMillisecond);
  EXPECT_TRUE(event_conn_is_open(connection));
  Advance(60 * kNanosecondsPerSecond);
  EXPECT_EQ(service.opens, opens + 1);
}

TEST_F(ManagedConnectionTest, BackOffRestartsAfterASuccess) {
  service.refuses = true;
  EXPECT_EQ(event_conn_open(connection), kStatusConnectionRetry);
  Advance(100 * kMillisecond);
  service.refuses = false;
  Advance(200 * kMillisecond);
  ASSERT_TRUE(event_conn_is_open(connection));
  service.HangUp();
  event_run_pending(manager);
  const int opens = service.opens;
  Advance(100 * kMillisecond);
  EXPECT_EQ(service.opens, opens + 1);
}

TEST_F(ManagedConnectionTest, HangUpCallsTheCloseHandlerOnceAndOpensAgain) {
  ASSERT_EQ(event_conn_open(connection), kStatusOk);
  service.HangUp();
  event_run_pending(manager);
  EXPECT_EQ(service.closes, 1);
  EXPECT_FALSE(event_conn_is_open(connection));
  event_run_pending(manager);
  EXPECT_EQ(service.closes, 1);
  EXPECT_EQ(service.opens, 1);
  Advance(100 * kMillisecond);
  EXPECT_EQ(service.opens, 2);
  EXPECT_TRUE(event_conn_is_open(connection));
}

TEST_F(ManagedConnectionTest, PeerSeesTheCloseHandlersClose) {
  ASSERT_EQ(event_conn_open(connection), kStatusOk);
  ASSERT_EQ(shutdown(service.server, SHUT_WR), 0);  // half closed: an end too
  event_run_pending(manager);
  ASSERT_EQ(service.closes, 1);
  char octet = 0;
  EXPECT_EQ(read(service.server, &octet, 1), 0);
}

TEST_F(ManagedConnectionTest, DataIsNotTheManagersConcern) {
  ASSERT_EQ(event_conn_open(connection), kStatusOk);
  ASSERT_EQ(write(service.server, "x", 1), 1);
  EXPECT_FALSE(event_run_pending(manager));
  // The owner may watch the same descriptor for it on the same manager.
  int readable = 0;
  ASSERT_EQ(event_fd_add(manager, service.client, EPOLLIN,
                         [&](int fd, std::uint32_t) {
                           ++readable;
                           event_fd_remove(manager, fd);
                         }),
            kStatusOk);
  event_run_pending(manager);
  EXPECT_EQ(readable, 1);
  EXPECT_TRUE(event_conn_is_open(connection));
}

TEST_F(ManagedConnectionTest, InvalidArgumentsAreRefused) {
  EXPECT_EQ(event_conn_notify(connection, 0x4000, Service::Close), kStatusInvalid);
  EXPECT_EQ(event_conn_notify(connection, kEventConnBoth, nullptr), kStatusInvalid);
  EventConn* other = nullptr;
  EXPECT_EQ(event_conn_create(manager, Service::Open, &service, 0, &other), kStatusInvalid);
  EXPECT_EQ(event_conn_create(nullptr, Service::Open, &service, kEventConnRetries, &other), kStatusInvalid);
  EXPECT_EQ(event_conn_create(manager, nullptr, &service, kEventConnRetries, &other), kStatusInvalid);
  EXPECT_EQ(other, nullptr);
}

TEST_F(ManagedConnectionTest, DestroyEndsRetryingAndWatching) {
  service.refuses = true;
  EXPECT_EQ(event_conn_open(connection), kStatusConnectionRetry);
  event_conn_destroy(connection);
  connection = nullptr;
  Advance(60 * kNanosecondsPerSecond);
  EXPECT_EQ(service.opens, 1);
  EXPECT_EQ(service.closes, 0);
}

TEST_F(ManagedConnectionTest, CloseHandlerMayDestroyTheConnection) {
  struct SelfDestroying {
    EventConn* connection = nullptr;
    Service service;
    static int Open(void* handle, EventManager* manager) {
      return Service::Open(&static_cast<SelfDestroying*>(handle)->service, manager);
    }
    static Status Close(void* handle) {
      auto* self = static_cast<SelfDestroying*>(handle);
      event_conn_destroy(self->connection);
      self->connection = nullptr;
      return Service::Close(&self->service);
    }
  };
  SelfDestroying self;
  ASSERT_EQ(event_conn_create(manager, SelfDestroying::Open, &self, kEventConnRetries, &self.connection),
            kStatusOk);
  ASSERT_EQ(event_conn_notify(self.connection, 0x6000, SelfDestroying::Close), kStatusOk);
  ASSERT_EQ(event_conn_open(self.connection), kStatusOk);
  self.service.HangUp();
  event_run_pending(manager);
  EXPECT_EQ(self.connection, nullptr);
  Advance(60 * kNanosecondsPerSecond);
  EXPECT_EQ(self.service.opens, 1);
}

TEST_F(ManagedConnectionTest, HandlersDescriptorThatCannotBeWatchedIsClosedAndRetried) {
  struct BadDescriptor {
    static int Open(void*, EventManager*) { return 9999; }
  };
  EventConn* bad = nullptr;
  int closes = 0;
  ASSERT_EQ(event_conn_create(manager, BadDescriptor::Open, &closes, kEventConnRetries, &bad), kStatusOk);
  ASSERT_EQ(event_conn_notify(bad, 0x6000,
                              [](void* handle) {
                                ++*static_cast<int*>(handle);
                                return kStatusOk;
                              }),
            kStatusOk);
  EXPECT_EQ(event_conn_open(bad), kStatusConnectionRetry);
  EXPECT_EQ(closes, 1);
  event_conn_destroy(bad);
}

TEST_F(ManagedConnectionTest, EachOperationFailsAtItsFaultPoint) {
  EventConn* other = nullptr;
  ExpectFault("event_conn_create",
              [&] { return event_conn_create(manager, Service::Open, &service, 2, &other); });
  ExpectFault("event_conn_notify", [&] { return event_conn_notify(connection, 0x6000, Service::Close); });
  ExpectFault("event_conn_open", [&] { return event_conn_open(connection); });
  Advance(60 * kNanosecondsPerSecond);
  EXPECT_EQ(service.opens, 0);
}

TEST_F(ManagedConnectionTest, OpenWithAnInjectedRetryIsRetried) {
  {
    const ScopedFault fault("event_conn_open", kStatusConnectionRetry);
    EXPECT_EQ(event_conn_open(connection), kStatusConnectionRetry);
  }
  EXPECT_EQ(service.opens, 0);
  Advance(100 * kMillisecond);
  EXPECT_EQ(service.opens, 1);
}

}  // namespace

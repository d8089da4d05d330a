// Provider notifications: subscribers with and without a name.
#include <poll.h>

#include <chrono>
#include <future>
#include <string>

#include "platform/core/base/clock.h"
#include "platform/store/client/async_client.h"
#include "platform/store/queue/notification_queue.h"
#include "platform/store/server/test_served_store.h"

namespace {

using kvtree::AsyncClient;
using kvtree::Client;
using kvtree::kNotificationWindow;
using kvtree::kPlainQueue;
using kvtree::NotificationResult;
using kvtree::SubscribeResult;
using namespace std::chrono_literals;

class Subscribers : public ServedStore {
 protected:
  void Notify(const std::string& record) {
    OnStore([this, record] {
      const KvProviderNotification notification{
          "trap_msg", 2, 7, {}, reinterpret_cast<const std::uint8_t*>(record.data()), record.size()};
      EXPECT_EQ(kvtree_prov_notify(provider, &notification), kStatusOk);
    });
  }
  void NotifyNumbers(std::size_t first, std::size_t last) {
    for (std::size_t i = first; i <= last; ++i) Notify(std::to_string(i));
    Settle();
  }
  // Waits until everything posted before has run.
  void Settle() {
    std::promise<void> done;
    OnStore([&] { done.set_value(); });
    done.get_future().wait();
  }
  void Retain(std::size_t limit = 4096) {
    EXPECT_EQ(kvtree_retain_notifications(kSubtree, "snmp", limit), kStatusOk);
  }
  static std::string Next(Client& from) {
    const NotificationResult next = from.next_notification(5000ms);
    return next.status == kStatusOk ? Text(next.record) : err_text(next.status);
  }
  static AsyncClient::Arrival Arrival(AsyncClient& at) {
    AsyncClient::Arrival arrival;
    pollfd readable{at.fd(), POLLIN, 0};
    EXPECT_EQ(at.receive(&arrival), kStatusOk);
    while (arrival.what == AsyncClient::Arrived::kNothing && !HasFailure()) {
      EXPECT_EQ(poll(&readable, 1, 5000), 1);
      EXPECT_EQ(at.receive(&arrival), kStatusOk);
    }
    return arrival;
  }
  static bool HasNothing(Client& from) { return from.next_notification(1ms).status == kStatusTimedOut; }
};

TEST_F(Subscribers, ReceiveWhatTheProviderNotifies) {
  StartAndConnect();
  const SubscribeResult subscribed = client.subscribe("/oper/mpls_vpn/");
  ASSERT_EQ(subscribed.status, kStatusOk);
  Notify("one");
  const NotificationResult received = client.next_notification(5000ms);
  ASSERT_EQ(received.status, kStatusOk);
  EXPECT_EQ(received.subscription, subscribed.subscription);
  EXPECT_EQ(received.sequence, 1U);
  EXPECT_EQ(received.lost_before, 0U);
  EXPECT_EQ(received.path, kSubtree);
  EXPECT_EQ(received.item_name, "trap_msg");
  EXPECT_EQ(received.values[0], 2U);
  EXPECT_EQ(received.values[1], 7U);
  EXPECT_EQ(Text(received.record), "one");
}

TEST_F(Subscribers, QueueWhatArrivesWhileACallWaits) {
  StartAndConnect();
  ASSERT_EQ(client.subscribe(kSubtree).status, kStatusOk);
  Notify("one");
  Notify("two");
  Settle();
  EXPECT_EQ(Text(client.get(kSubtree + "scalars").record), "get/0");
  EXPECT_EQ(Next(client), "one");
  EXPECT_EQ(Next(client), "two");
  EXPECT_TRUE(HasNothing(client));
}

TEST_F(Subscribers, TakeLongSequencesInOrder) {
  StartAndConnect();
  ASSERT_EQ(client.subscribe(kSubtree).status, kStatusOk);
  NotifyNumbers(1, kPlainQueue);
  for (std::size_t i = 1; i <= kPlainQueue; ++i) ASSERT_EQ(Next(client), std::to_string(i));
  EXPECT_TRUE(HasNothing(client));
}

TEST_F(Subscribers, ThatAreSlowLoseTheOldestAndReceiveTheirNumber) {
  StartAndConnect();
  ASSERT_EQ(client.subscribe(kSubtree).status, kStatusOk);
  NotifyNumbers(1, kPlainQueue + 10);
  for (std::size_t i = 1; i <= kNotificationWindow; ++i) ASSERT_EQ(Next(client), std::to_string(i));
  const NotificationResult after_loss = client.next_notification(5000ms);
  EXPECT_EQ(Text(after_loss.record), std::to_string(kNotificationWindow + 11));
  EXPECT_EQ(after_loss.lost_before, 10U);
}

TEST_F(Subscribers, OfOtherPathsAndUnsubscribedClientsReceiveNothing) {
  StartAndConnect();
  Client other(Client::default_socket(), 5000ms);
  ASSERT_EQ(other.connect(), kStatusOk);
  ASSERT_EQ(other.subscribe("/oper/mpls_vpn/gl/below").status, kStatusOk);
  NotifyNumbers(1, 1);
  EXPECT_TRUE(HasNothing(client));
  EXPECT_TRUE(HasNothing(other));
  EXPECT_TRUE(other.connected());
}

TEST_F(Subscribers, AreBoundedAndTheirPathsChecked) {
  StartAndConnect();
  EXPECT_EQ(client.subscribe("nowhere").status, kStatusUnknownPath);
  for (std::size_t i = 0; i < kvtree::kMaxSubscriptions; ++i)
    ASSERT_EQ(client.subscribe("/other/").status, kStatusOk);
  EXPECT_EQ(client.subscribe("/other/").status, kStatusTooManyRequests);
}

TEST_F(Subscribers, BadNotificationsAreRefused) {
  const KvProviderNotification nameless{};
  KvProviderNotification without_data{};
  without_data.item_name = "trap_msg";
  without_data.length = 1;
  EXPECT_EQ(kvtree_prov_notify(nullptr, &without_data), kStatusInvalid);
  EXPECT_EQ(kvtree_prov_notify(Bind("/cfg/"), &without_data), kStatusInvalid);
  EXPECT_EQ(kvtree_prov_notify(provider, nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_prov_notify(provider, &nameless), kStatusInvalid);
  EXPECT_EQ(kvtree_prov_notify(provider, &without_data), kStatusInvalid);
}

// --- Subscribers with a name

TEST_F(Subscribers, WithANameReceiveWhatArrivedWhileTheyWereAway) {
  Retain();
  StartAndConnect();
  NotifyNumbers(1, 3);
  ASSERT_EQ(client.subscribe(kSubtree, "snmp").status, kStatusOk);
  for (const char* expected : {"1", "2", "3"}) EXPECT_EQ(Next(client), expected);
  NotifyNumbers(4, 4);
  EXPECT_EQ(Next(client), "4");
}

TEST_F(Subscribers, WithANameAreStatedWithTheirQueue) {
  EXPECT_FALSE(kvtree_retained_notifications(kSubtree, "snmp").has_value());
  Retain(4);
  StartAndConnect();
  NotifyNumbers(1, 6);
  const auto read = [this] {
    std::promise<KvRetained> stated;
    OnStore([&] { stated.set_value(*kvtree_retained_notifications(kSubtree, "snmp")); });
    return stated.get_future().get();
  };
  const KvRetained before = read();
  EXPECT_EQ(before.waiting, 4U);
  EXPECT_EQ(before.limit, 4U);
  EXPECT_EQ(before.lost, 2U);
  EXPECT_EQ(before.subscriber, 0U);
  const SubscribeResult subscribed = client.subscribe(kSubtree, "snmp");
  ASSERT_EQ(subscribed.status, kStatusOk);
  EXPECT_NE(read().subscriber, 0U);
  const NotificationResult next = client.next_notification(5000ms);
  ASSERT_EQ(client.acknowledge(subscribed.subscription, next.sequence), kStatusOk);
  Next(client);  // is sent after the acknowledgement has been read
  Next(client);
  EXPECT_EQ(read().waiting, 3U);
  EXPECT_EQ(read().lost, 0U);
  EXPECT_FALSE(kvtree_retained_notifications(kSubtree, "other").has_value());
}

TEST_F(Subscribers, WithANameGetAgainWhatTheyDidNotAcknowledge) {
  Retain();
  StartAndConnect();
  const SubscribeResult first = client.subscribe(kSubtree, "snmp");
  NotifyNumbers(1, 3);
  EXPECT_EQ(Next(client), "1");
  EXPECT_EQ(Next(client), "2");
  ASSERT_EQ(client.acknowledge(first.subscription, 1), kStatusOk);
  ASSERT_EQ(client.get(kSubtree + "scalars").status, kStatusOk);  // the acknowledgement has come before it
  client.close();
  ASSERT_EQ(client.connect(), kStatusOk);
  const SubscribeResult second = client.subscribe(kSubtree, "snmp");
  EXPECT_EQ(second.instance, first.instance);
  const NotificationResult again = client.next_notification(5000ms);
  EXPECT_EQ(Text(again.record), "2");
  EXPECT_EQ(again.sequence, 2U);
  EXPECT_EQ(Next(client), "3");
}

TEST_F(Subscribers, WithANameGetNoMoreThanTheWindowUnacknowledged) {
  Retain();
  StartAndConnect();
  NotifyNumbers(1, kNotificationWindow + 1);
  const SubscribeResult subscribed = client.subscribe(kSubtree, "snmp");
  for (std::size_t i = 1; i <= kNotificationWindow; ++i) ASSERT_EQ(Next(client), std::to_string(i));
  EXPECT_TRUE(HasNothing(client));
  ASSERT_EQ(client.acknowledge(subscribed.subscription, 1), kStatusOk);
  EXPECT_EQ(Next(client), std::to_string(kNotificationWindow + 1));
}

TEST_F(Subscribers, WithANameReceiveTheNumberThatTheirQueueLost) {
  Retain(4);
  StartAndConnect();
  NotifyNumbers(1, 7);
  ASSERT_EQ(client.subscribe(kSubtree, "snmp").status, kStatusOk);
  const NotificationResult first = client.next_notification(5000ms);
  EXPECT_EQ(Text(first.record), "4");
  EXPECT_EQ(first.lost_before, 3U);
}

TEST_F(Subscribers, SecondOfOneNameTakesThePlaceOfTheFirst) {
  Retain();
  StartAndConnect();
  ASSERT_EQ(client.subscribe(kSubtree, "snmp").status, kStatusOk);
  NotifyNumbers(1, 1);
  EXPECT_EQ(Next(client), "1");
  Client second(Client::default_socket(), 5000ms);
  ASSERT_EQ(second.connect(), kStatusOk);
  ASSERT_EQ(second.subscribe(kSubtree, "snmp").status, kStatusOk);
  EXPECT_EQ(client.next_notification(5000ms).status, kStatusNotConnected);
  EXPECT_EQ(Next(second), "1");
}

// The former one has acknowledged it before it is replaced, even if the server has not read that yet.
TEST_F(Subscribers, SecondOfOneNameGetsNothingThatTheFirstHasAcknowledged) {
  Retain();
  StartAndConnect();
  const SubscribeResult first = client.subscribe(kSubtree, "snmp");
  NotifyNumbers(1, 3);
  for (const char* expected : {"1", "2", "3"}) ASSERT_EQ(Next(client), expected);
  AsyncClient second(Client::default_socket());
  ASSERT_EQ(second.connect(), kStatusOk);
  ASSERT_EQ(second.ask_subscription("/other/", ""), kStatusOk);
  EXPECT_EQ(Arrival(second).what, AsyncClient::Arrived::kSubscribed);
  std::promise<void> both_sent;
  OnStore([&] { both_sent.get_future().wait(); });
  ASSERT_EQ(second.ask_subscription(kSubtree, "snmp"), kStatusOk);
  ASSERT_EQ(client.acknowledge(first.subscription, 1), kStatusOk);
  ASSERT_EQ(client.acknowledge(first.subscription, 2), kStatusOk);
  both_sent.set_value();
  EXPECT_EQ(Arrival(second).what, AsyncClient::Arrived::kSubscribed);
  EXPECT_EQ(Text(Arrival(second).notification.record), "3");
  EXPECT_EQ(client.next_notification(5000ms).status, kStatusNotConnected);
}

TEST_F(Subscribers, TwiceByOneNameFromOneClientIsRefused) {
  Retain();
  StartAndConnect();
  ASSERT_EQ(client.subscribe(kSubtree, "snmp").status, kStatusOk);
  EXPECT_EQ(client.subscribe(kSubtree, "snmp").status, kStatusExists);
}

TEST_F(Subscribers, OfUnknownNamesAndPathsAreRefused) {
  Retain();
  StartAndConnect();
  EXPECT_EQ(client.subscribe(kSubtree, "other").status, kStatusNoSuchRow);
  EXPECT_EQ(client.subscribe("/oper/", "snmp").status, kStatusNoSuchRow);
}

TEST_F(Subscribers, WithANameAndWithoutEachGetEverything) {
  Retain();
  StartAndConnect();
  Client watcher(Client::default_socket(), 5000ms);
  ASSERT_EQ(watcher.connect(), kStatusOk);
  ASSERT_EQ(client.subscribe(kSubtree, "snmp").status, kStatusOk);
  ASSERT_EQ(watcher.subscribe(kSubtree).status, kStatusOk);
  NotifyNumbers(1, 2);
  for (Client* each : {&client, &watcher}) {
    EXPECT_EQ(Next(*each), "1");
    EXPECT_EQ(Next(*each), "2");
    EXPECT_TRUE(HasNothing(*each));
  }
}

TEST_F(Subscribers, InstanceChangesWithTheProcess) {
  ManualClock clock(1000);
  Retain();
  const std::uint64_t before = kvtree::store().retained.back().queue->instance();
  kvtree_reset();
  clock.advance(1);
  Retain();
  EXPECT_NE(kvtree::store().retained.back().queue->instance(), before);
}

TEST_F(Subscribers, BadRetentionsAreRefused) {
  Retain();
  EXPECT_EQ(kvtree_retain_notifications(kSubtree, "snmp", 5), kStatusExists);
  EXPECT_EQ(kvtree_retain_notifications(kSubtree, "", 5), kStatusInvalid);
  EXPECT_EQ(kvtree_retain_notifications("oper", "snmp", 5), kStatusInvalid);
  EXPECT_EQ(kvtree_retain_notifications(kSubtree, "other", 1), kStatusInvalid);
  fault_arm("kvtree_retain_notifications", kStatusIo);
  EXPECT_EQ(kvtree_retain_notifications(kSubtree, "other", 5), kStatusIo);
}

}  // namespace

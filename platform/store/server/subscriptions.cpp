// Provider notifications: from kvtree_prov_notify through a queue for each subscriber to the subscribers.
//
// A subscription has a queue (notification_queue.h). A plain subscription's queue lives as long as its
// client; kvtree_retain_notifications creates those of named subscribers, which live in the store whether or
// not the subscriber is connected. A client is sent as much as its queues' windows allow, on arrival of a
// notification and on acknowledgement, so that waiting notifications are always in a queue, where they are
// counted, and never in a socket's buffer.
//
// Sending may close a client, and with it its subscriptions: they are looked up again after every message.
#include <algorithm>

#include "platform/core/base/fault.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

// The client that is subscribed to this queue, or 0.
std::uint64_t find_subscriber(const NotificationQueue* queue) {
  for (const auto& [client, subscriptions] : the_server()->subscriptions) {
    if (std::ranges::any_of(subscriptions, [queue](const auto& each) { return each.queue.get() == queue; }))
      return client;
  }
  return 0;
}

const RetainedQueue* find_retained(std::string_view path, std::string_view name) {
  for (const RetainedQueue& retained : store().retained) {
    if (retained.path == path && retained.name == name) return &retained;
  }
  return nullptr;
}

// What the former subscriber has acknowledged is not sent to the one that takes its place. It may not have
// been handled yet: the order in which clients are handled is not that in which they have sent.
void replace_subscriber(wire::Connection* former) {
  const std::shared_ptr<wire::Connection> held = former->shared_from_this();  // reading may end it
  former->drain([former](const wire::Message& message) {
    return message.type == kAcknowledge && take_acknowledgement(the_server().get(), *former, message);
  });
  former->close("another client subscribed by the same name");
}

// The queue for a new subscription; a former subscriber of the same name is closed.
Status find_queue(const wire::Connection& from, std::string_view path, std::string_view name,
                  std::shared_ptr<NotificationQueue>* queue) {
  if (name.empty()) {
    *queue = std::make_shared<NotificationQueue>(
        "a subscriber of " + std::string(path) + " (client " + std::to_string(from.id()) + ")", kPlainQueue);
    return kStatusOk;
  }
  if (from.role() == wire::Role::kRead) return kStatusAccess;
  const RetainedQueue* retained = find_retained(path, name);
  if (retained == nullptr) return kStatusNoSuchRow;
  *queue = retained->queue;
  wire::Connection* connection = the_server()->server.find(find_subscriber(queue->get()));
  if (connection == &from) return kStatusExists;
  if (connection != nullptr) replace_subscriber(connection);
  return kStatusOk;
}

struct SubscriptionRequest {
  std::string_view path;
  std::string_view name;
  std::string_view version;
};

Status subscribe(wire::Connection* from, const SubscriptionRequest& request,
                 const Subscription** subscription) {
  if (from == nullptr) return kStatusNotConnected;
  if (const Status status = check_path(request.path)) return status;
  std::vector<Subscription>& all = the_server()->subscriptions[from->id()];
  if (all.size() >= kMaxSubscriptions) return kStatusTooManyRequests;
  std::shared_ptr<NotificationQueue> queue;
  if (const Status status = find_queue(*from, request.path, request.name, &queue)) return status;
  all.push_back({static_cast<std::uint32_t>(all.size() + 1), std::string(request.path), std::move(queue),
                 std::string(request.version)});
  *subscription = &all.back();
  return kStatusOk;
}

void send_one(wire::Connection* client, const Subscription& subscription,
              const QueuedNotification& notification) {
  wire::Octets payload;
  Writer writer(&payload);
  writer.u32(subscription.number);
  writer.u64(notification.sequence);
  writer.u64(notification.lost_before);
  payload.insert(payload.end(), notification.content->begin(), notification.content->end());
  client->send(kNotification, 0, payload);
}

// Sends a message of the first subscription that has one; false if none has.
bool send_next(StoreServer* server, std::uint64_t client) {
  const auto found = server->subscriptions.find(client);
  wire::Connection* connection = server->server.find(client);
  if (found == server->subscriptions.end() || connection == nullptr) return false;
  for (const Subscription& subscription : found->second) {
    const QueuedNotification* notification = subscription.queue->next();
    if (notification == nullptr) continue;
    send_one(connection, subscription, *notification);
    return true;
  }
  return false;
}

std::shared_ptr<const wire::Octets> make_content(const KvConnection& provider,
                                                 const KvProviderNotification& notification) {
  auto content = std::make_shared<wire::Octets>();
  Writer writer(content.get());
  writer.text(provider.path);
  writer.text(notification.item_name);
  writer.u32(notification.first);
  writer.u32(notification.second);
  writer.octets({notification.data, notification.length});
  return content;
}

bool is_retained(const std::shared_ptr<NotificationQueue>& queue) {
  return std::ranges::find(store().retained, queue, &RetainedQueue::queue) != store().retained.end();
}

void push_to_queues(const std::string& provider, const std::shared_ptr<const wire::Octets>& content) {
  for (const RetainedQueue& retained : store().retained) {
    if (provider.starts_with(retained.path)) retained.queue->push(content);
  }
  if (the_server() == nullptr) return;
  for (const auto& [client, subscriptions] : the_server()->subscriptions) {
    for (const Subscription& subscription : subscriptions) {
      if (provider.starts_with(subscription.path) && !is_retained(subscription.queue))
        subscription.queue->push(content);
    }
  }
}

void notify_observers(const std::string& provider, const KvProviderNotification& notification) {
  auto& observers = store().notification_observers;
  std::erase_if(observers, [](const auto& each) { return each.expired(); });
  for (const auto& each : observers) {
    const auto observer = each.lock();
    if (observer != nullptr && provider.starts_with(observer->path)) observer->function(notification);
  }
}

void send_to_all() {
  if (the_server() == nullptr) return;
  std::vector<std::uint64_t> clients;
  for (const auto& [client, subscriptions] : the_server()->subscriptions) clients.push_back(client);
  for (const std::uint64_t client : clients) send_notifications(the_server().get(), client);
}

}  // namespace

void StoreServer::forget(std::uint64_t client) {
  staged.erase(client);
  unfinished.erase(client);
  const auto found = subscriptions.find(client);
  if (found == subscriptions.end()) return;
  for (const Subscription& subscription : found->second) subscription.queue->rewind();
  subscriptions.erase(found);
}

bool answer_subscribe(wire::Connection* from, Reader* request, wire::Octets* answer) {
  SubscriptionRequest asked{request->text(), request->text(), {}};
  if (request->left() > 0) asked.version = request->text();
  if (!request->finished() || asked.version.size() > kMaxVersion) return false;
  const Subscription* subscription = nullptr;
  const Status status = subscribe(from, asked, &subscription);
  Writer writer(answer);
  writer.u32(status);
  if (status != kStatusOk) return true;
  writer.u32(subscription->number);
  writer.u64(subscription->queue->instance());
  return true;
}

bool take_acknowledgement(StoreServer* server, const wire::Connection& from, const wire::Message& message) {
  Reader reader(message.payload);
  const std::uint32_t number = reader.u32();
  const std::uint64_t sequence = reader.u64();
  if (!reader.finished()) return false;
  const auto found = server->subscriptions.find(from.id());
  if (found == server->subscriptions.end() || number == 0 || number > found->second.size()) return false;
  found->second[number - 1].queue->acknowledge(sequence);
  return true;
}

void send_notifications(StoreServer* server, std::uint64_t client) {
  while (send_next(server, client)) {
  }
}

}  // namespace kvtree

Status kvtree_retain_notifications(std::string_view path, std::string_view name, std::size_t limit,
                                   const std::string& file) {
  if (const Status status = fault_check("kvtree_retain_notifications")) return status;
  if (kvtree::check_path(path) != kStatusOk || name.empty() || limit < 2) return kStatusInvalid;
  if (kvtree::find_retained(path, name) != nullptr) return kStatusExists;
  const std::string subscriber = "\"" + std::string(name) + "\" of " + std::string(path);
  const auto queue = std::make_shared<kvtree::NotificationQueue>(subscriber, limit);
  // A queue without its file, which is logged and stated, is better than none.
  if (!file.empty()) static_cast<void>(queue->store_in(file));
  if (kvtree::the_server() != nullptr) queue->use_thread(kvtree::the_server()->manager);
  kvtree::store().retained.push_back({std::string(path), std::string(name), queue});
  return kStatusOk;
}

std::size_t kvtree_waiting_notifications(std::string_view path, std::string_view name) {
  const kvtree::RetainedQueue* retained = kvtree::find_retained(path, name);
  return retained == nullptr ? 0 : retained->queue->size();
}

std::shared_ptr<const void> kvtree_observe_notifications(std::string_view path,
                                                         KvNotificationObserver observer) {
  const auto added = std::make_shared<const kvtree::NotificationObserver>(
      kvtree::NotificationObserver{std::string(path), std::move(observer)});
  kvtree::store().notification_observers.push_back(added);
  return added;
}

std::optional<KvRetained> kvtree_retained_notifications(std::string_view path, std::string_view name) {
  const kvtree::RetainedQueue* const retained = kvtree::find_retained(path, name);
  if (retained == nullptr) return std::nullopt;
  const kvtree::NotificationQueue& queue = *retained->queue;
  const std::uint64_t subscriber = kvtree::the_server() != nullptr ? kvtree::find_subscriber(&queue) : 0;
  const std::uint64_t alone_for = subscriber != 0 ? 0 : clock_monotonic() - queue.left_at();
  return KvRetained{queue.size(), queue.limit(), queue.lost(), subscriber, alone_for, queue.problem()};
}

Status kvtree_prov_notify(KvConnection* connection, const KvProviderNotification* notification) {
  if (const Status status = fault_check("kvtree_prov_notify")) return status;
  if (!kvtree::is_bound(connection) || connection->mode != kKvBindProvider) return kStatusInvalid;
  if (notification == nullptr || notification->item_name == nullptr) return kStatusInvalid;
  if (notification->data == nullptr && notification->length != 0) return kStatusInvalid;
  kvtree::notify_observers(connection->path, *notification);
  kvtree::push_to_queues(connection->path, kvtree::make_content(*connection, *notification));
  kvtree::send_to_all();
  return kStatusOk;
}

// Shared by the source files of the data store. Only for this folder.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/compact/shared_text.h"
#include "platform/core/wire/wire.h"
#include "platform/store/configuration/config_tree.h"
#include "platform/store/configuration/node_store.h"
#include "platform/store/queue/notification_queue.h"
#include "platform/store/tree/actions.h"
#include "platform/store/tree/key_text.h"
#include "platform/store/tree/kvtree.h"

// One request, below the provider's bind point.
struct KvRequest {
  std::string_view path;
  bool structured;
};

// One change, below the subscriber's bind point. The texts are valid during the call.
struct KvNotification {
  std::string_view path;
  KvNotifyInfo info;
};

struct KvConnection {
  std::string path;  // ends in '/'
  std::uint32_t mode;
};

// A change that has not been delivered to a subscriber yet.
struct KvPendingChange {
  std::uint64_t number;  // in the order of the changes
  SharedText path;
  std::shared_ptr<const KvValue> value;  // null for a deletion
  std::uint32_t events;
};

struct KvRegistration {
  const KvConnection* connection;
  std::string prefix;  // ends in '/'
  std::uint32_t events;
  std::function<void(const KvNotification*)> entry;  // none: a missing handler
  EventManager* manager;
  std::deque<KvPendingChange> pending = {};
};

namespace kvtree {

class Application;
class CommitQueue;

struct Provider {
  const KvConnection* connection;
  std::string prefix;  // ends in '/'
  KvProviderFunctions functions;
};

struct Action {
  KvAction function;
  void* argument;
};

// The notifications retained for a named subscriber.
struct RetainedQueue {
  std::string path;
  std::string name;
  std::shared_ptr<NotificationQueue> queue;
};

// An observer of commits.
struct ConfigObserver {
  std::string path;
  KvConfigObserver function;
};

// An observer of providers' notifications.
struct NotificationObserver {
  std::string path;
  KvNotificationObserver function;
};

struct StoredNode {
  std::shared_ptr<const KvValue> value;
  std::uint64_t set_number = 0;  // of its last set, counted by Store::sets
};

using Nodes = std::map<SharedText, StoredNode, std::less<>>;

// One change for one subscriber.
struct Delivery {
  std::weak_ptr<KvRegistration> to;
  std::uint64_t number;
};

// While it exists, what is queued for subscribers is posted a few notifications at a time, in the same order.
// Nothing else may be posted meanwhile.
class DeliveryRun {
 public:
  DeliveryRun();
  ~DeliveryRun();
  DeliveryRun(const DeliveryRun&) = delete;
  DeliveryRun& operator=(const DeliveryRun&) = delete;
  void add(const std::shared_ptr<KvRegistration>& to, std::uint64_t number);

 private:
  void post();
  EventManager* manager_ = nullptr;  // of the deliveries
  std::vector<Delivery> deliveries_;
};

// The state of the process's data store. Pending deliveries have weak references to registrations.
struct Store {
  std::vector<std::unique_ptr<KvConnection>> connections;
  std::vector<std::shared_ptr<KvRegistration>> registrations;
  std::vector<Provider> providers;
  Nodes nodes;
  std::uint64_t sets = 0;      // how many times a node was set
  std::uint64_t changes = 0;   // how many were queued for subscribers
  DeliveryRun* run = nullptr;  // the one that exists
  std::vector<std::weak_ptr<const ConfigObserver>> observers;
  ConfigTree configuration;               // its effective values are in `nodes`, too
  std::int64_t configuration_octets = 0;  // of its paths and values
  std::map<std::string, Action, std::less<>> actions;
  std::map<std::string, Status (*)(), std::less<>> guards;  // by the beginning of the paths
  std::vector<RetainedQueue> retained;
  std::vector<std::weak_ptr<const NotificationObserver>> notification_observers;
  std::shared_ptr<NodeStore> node_store;         // null until it is needed
  bool folding = false;                          // a step of folding is posted, runs, or waits for its timer
  std::shared_ptr<Application> application;      // the commit that is being applied
  std::vector<std::function<void()>> replays{};  // which wait for its end
  std::shared_ptr<CommitQueue> commits;          // last: its thread uses the others
};

Store& store();

// Sets a node and notifies its subscribers, unless it `is_quiet`. `place` is a hint: the node is inserted
// right before it if that preserves the order.
Nodes::iterator put_node(const SharedText& path, std::shared_ptr<const KvValue> value,
                         Nodes::const_iterator place, bool is_quiet = false);
// Deletes an existing node and notifies its subscribers.
void erase_node(const SharedText& path);
// Posts a change (no value: a deletion) to the subscribers of one of these events of this path.
void notify_subscribers(const SharedText& path, const std::shared_ptr<const KvValue>& value,
                        std::uint32_t events);

// kvtree_register_notification for any function, and its fault point.
[[nodiscard]] Status register_notification(KvConnection* connection, const char* path, std::uint32_t events,
                                           std::function<void(const KvNotification*)> entry,
                                           EventManager* manager, KvRegistration** registration);

// The provider of this path (the longest prefix), or null; *relative is the rest of the path.
const Provider* find_provider(std::string_view path, std::string_view* relative);

// A batched walk.
struct RowWalk {
  KvSteps* steps = nullptr;  // null: the walk has to be complete
  bool has_begun = false;
  std::string next;        // the path of the row to be read, below the provider
  unsigned redirects = 0;  // before that row
  std::uint32_t rows = 0;  // so far
};

// The walk, row by row. The sink returns false if it has no room for the row. kStatusUnfinished after a step:
// to be called again with equal arguments.
using RowSink = bool (*)(void* argument, const KvReply& row);
Status walk_rows(RowWalk* walk, std::string_view path, bool structured, std::uint32_t max_rows, RowSink sink,
                 void* argument, bool* end);

// A batch of columns, in the same way. The columns may be elsewhere in every step.
struct ColumnReading {
  RowWalk walk;  // for rows that are read one after the other
  KvColumnBatch batch;
};
Status read_columns(ColumnReading* reading, std::string_view path);

void forget_compiled_tables();

bool is_bound(const KvConnection* connection);

// Appends the payload of the answer to a client's message. False for a malformed request. Without a
// connection (null) nothing may be changed or subscribed to.
bool answer_message(wire::Connection* from, const wire::Message& message, wire::Octets* answer);

}  // namespace kvtree

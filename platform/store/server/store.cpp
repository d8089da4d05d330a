// Connections, providers, subscriptions and nodes.
//
// A set or a deletion changes the tree at once and is queued for each subscriber; a function posted on their
// event manager delivers it, so that subscribers receive changes one after the other and never inside the
// call that makes one. The changes of a commit are posted in runs (DeliveryRun). kvtree_deliver empties the
// queues earlier; the posted functions then find nothing to deliver. Posted functions refer to registrations
// weakly: after an unbind nothing is delivered. Existing nodes are delivered inside the registering call, in
// the order in which they were last set, so that of two nodes that exclude each other the later one is
// delivered last; and from a copy of the list, because an entry may change the tree.
#include "platform/store/server/store.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"

namespace kvtree {

namespace {

constexpr std::size_t kDeliveriesOfRun = 8;
constexpr std::uint64_t kRunTime = kNanosecondsPerMillisecond;  // then other work of the loop is next

std::string with_slash(std::string_view path) {
  std::string text(path);
  if (!text.ends_with('/')) text.push_back('/');
  return text;
}

// The registrations' path is relative to the connection's.
std::string registered_prefix(const KvConnection& connection, const char* path) {
  return path == nullptr || *path == '\0' ? connection.path : with_slash(connection.path + path);
}

void deliver(const KvRegistration& registration, const KvPendingChange& change) {
  const std::string_view path = change.path;
  const std::size_t item = path.rfind('/') + 1;
  const KvNotification notification{path.substr(registration.prefix.size()),
                                    {change.path.c_str() + item, change.events, change.value.get()}};
  if (registration.entry) registration.entry(&notification);
}

// Delivers the subscriber's queue up to the change of this number; an entry may end the subscription
// meanwhile.
void deliver_up_to(std::uint64_t number, const std::weak_ptr<KvRegistration>& to) {
  for (;;) {
    const std::shared_ptr<KvRegistration> still = to.lock();
    if (still == nullptr || still->pending.empty() || still->pending.front().number > number) return;
    const KvPendingChange change = std::move(still->pending.front());
    still->pending.pop_front();
    deliver(*still, change);
  }
}

// From delivery number `next` on. After a slow one the others follow before anything that was posted later.
void deliver_run(EventManager* manager, const std::vector<Delivery>& run, std::size_t next) {
  const std::uint64_t end = clock_monotonic() + kRunTime;
  do {
    deliver_up_to(run[next].number, run[next].to);
    if (++next == run.size()) return;
  } while (clock_monotonic() < end);
  event_post_first(manager, [manager, run, next] { deliver_run(manager, run, next); });
}

void replay(const KvRegistration& registration) {
  const std::uint32_t events = (kKvEventCreated | kKvEventSet) & registration.events;
  if (events == 0) return;
  std::vector<KvPendingChange> existing;
  const auto& nodes = store().nodes;
  for (auto node = nodes.lower_bound(registration.prefix);
       node != nodes.end() && node->first.view().starts_with(registration.prefix); ++node) {
    existing.push_back({node->second.set_number, node->first, node->second.value, events});
  }
  std::ranges::sort(existing, {}, &KvPendingChange::number);
  for (const KvPendingChange& change : existing) deliver(registration, change);
}

Status check_node_path(std::string_view path) {
  if (path.size() < 2 || check_path(path) != kStatusOk) return kStatusInvalid;
  return kStatusOk;
}

}  // namespace

void notify_subscribers(const SharedText& path, const std::shared_ptr<const KvValue>& value,
                        std::uint32_t events) {
  const std::uint64_t number = ++store().changes;
  for (const std::shared_ptr<KvRegistration>& registration : store().registrations) {
    const std::uint32_t wanted = events & registration->events;
    if (wanted == 0 || !path.view().starts_with(registration->prefix)) continue;
    registration->pending.push_back({number, path, value, wanted});
    if (store().run != nullptr) {
      store().run->add(registration, number);
    } else {
      event_post(registration->manager,
                 [number, to = std::weak_ptr(registration)] { deliver_up_to(number, to); });
    }
  }
}

DeliveryRun::DeliveryRun() {
  store().run = this;
}

DeliveryRun::~DeliveryRun() {
  store().run = nullptr;
  post();
}

void DeliveryRun::add(const std::shared_ptr<KvRegistration>& to, std::uint64_t number) {
  if (manager_ != to->manager || deliveries_.size() == kDeliveriesOfRun) post();
  manager_ = to->manager;
  if (deliveries_.empty()) deliveries_.reserve(kDeliveriesOfRun);
  deliveries_.push_back({to, number});
}

void DeliveryRun::post() {
  if (deliveries_.empty()) return;
  event_post(manager_, [manager = manager_, run = std::move(deliveries_)] { deliver_run(manager, run, 0); });
  deliveries_.clear();
}

Nodes::iterator put_node(const SharedText& path, std::shared_ptr<const KvValue> value,
                         Nodes::const_iterator place, bool is_quiet) {
  const std::size_t before = store().nodes.size();
  const auto node = store().nodes.insert_or_assign(place, path, StoredNode{std::move(value), ++store().sets});
  const bool created = store().nodes.size() > before;
  if (!is_quiet)
    notify_subscribers(path, node->second.value, created ? kKvEventCreated | kKvEventSet : kKvEventSet);
  return node;
}

void erase_node(const SharedText& path) {
  if (store().nodes.erase(path) > 0) notify_subscribers(path, nullptr, kKvEventDeleted);
}

Store& store() {
  static Store the_store;
  return the_store;
}

bool is_bound(const KvConnection* connection) {
  const auto& all = store().connections;
  return connection != nullptr &&
         std::any_of(all.begin(), all.end(), [&](const auto& each) { return each.get() == connection; });
}

Status register_notification(KvConnection* connection, const char* path, std::uint32_t events,
                             std::function<void(const KvNotification*)> entry, EventManager* manager,
                             KvRegistration** registration) {
  if (const Status status = fault_check("kvtree_register_notification")) return status;
  if (!is_bound(connection) || manager == nullptr) return kStatusInvalid;
  const auto made = std::make_shared<KvRegistration>(
      KvRegistration{connection, registered_prefix(*connection, path), events, std::move(entry), manager});
  if (registration != nullptr) *registration = made.get();
  store().registrations.push_back(made);
  replay(*made);
  return kStatusOk;
}

const Provider* find_provider(std::string_view path, std::string_view* relative) {
  const Provider* best = nullptr;
  for (const Provider& provider : store().providers) {
    if (!path.starts_with(provider.prefix)) continue;
    if (best == nullptr || provider.prefix.size() > best->prefix.size()) best = &provider;
  }
  if (best != nullptr) *relative = path.substr(best->prefix.size());
  return best;
}

}  // namespace kvtree

using kvtree::store;

// The store is linked into the program that runs.
const char* kvtree_library_path() {
  const char* overridden = std::getenv("MPLS_VPN_MIB_KVTREE_LIBRARY");
  return overridden != nullptr && *overridden != '\0' ? overridden : "/proc/self/exe";
}

Status kvtree_bind(KvConnection** connection, const char* path, std::uint32_t mode) {
  if (const Status status = fault_check("kvtree_bind")) return status;
  if (connection == nullptr || path == nullptr || mode > kKvBindProvider) return kStatusInvalid;
  if (kvtree::check_path(path) != kStatusOk) return kStatusInvalid;
  auto made = std::make_unique<KvConnection>(KvConnection{kvtree::with_slash(path), mode});
  *connection = made.get();
  store().connections.push_back(std::move(made));
  return kStatusOk;
}

Status kvtree_unbind(KvConnection* connection) {
  if (const Status status = fault_check("kvtree_unbind")) return status;
  if (!kvtree::is_bound(connection)) return kStatusInvalid;
  const auto of_connection = [&](const auto& each) { return each.connection == connection; };
  std::erase_if(store().registrations, [&](const auto& each) { return of_connection(*each); });
  std::erase_if(store().providers, of_connection);
  std::erase_if(store().connections, [&](const auto& each) { return each.get() == connection; });
  return kStatusOk;
}

Status kvtree_init_prov_functions(KvProviderFunctions* functions) {
  if (const Status status = fault_check("kvtree_init_prov_functions")) return status;
  if (functions == nullptr) return kStatusInvalid;
  *functions = {};
  return kStatusOk;
}

Status kvtree_register_prov2(KvConnection* connection, const char* path, EventManager* manager,
                             const KvProviderFunctions* functions, std::uint32_t /*first*/,
                             std::uint32_t /*second*/) {
  if (const Status status = fault_check("kvtree_register_prov2")) return status;
  if (!kvtree::is_bound(connection) || connection->mode != kKvBindProvider) return kStatusInvalid;
  if (manager == nullptr || functions == nullptr) return kStatusInvalid;
  kvtree::Provider provider{connection, kvtree::registered_prefix(*connection, path), *functions};
  for (const kvtree::Provider& other : store().providers) {
    if (other.prefix == provider.prefix) return kStatusExists;
  }
  store().providers.push_back(std::move(provider));
  return kStatusOk;
}

Status kvtree_register_notification(KvConnection* connection, const char* path, std::uint32_t events,
                                    KvNotificationEntry entry, EventManager* manager, std::uint32_t /*first*/,
                                    std::uint32_t /*second*/, std::uint32_t /*third*/,
                                    KvRegistration** registration) {
  return kvtree::register_notification(connection, path, events, entry, manager, registration);
}

Status kvtree_set(std::string_view path, KvValue value) {
  if (const Status status = fault_check("kvtree_set")) return status;
  if (const Status status = kvtree::check_node_path(path)) return status;
  kvtree::put_node(path, std::make_shared<const KvValue>(std::move(value)), store().nodes.end());
  return kStatusOk;
}

Status kvtree_delete(std::string_view path) {
  if (const Status status = fault_check("kvtree_delete")) return status;
  if (const Status status = kvtree::check_node_path(path)) return status;
  if (!store().nodes.contains(path)) return kStatusNoSuchRow;
  kvtree::erase_node(path);
  return kStatusOk;
}

void kvtree_deliver(std::string_view path) {
  std::vector<std::weak_ptr<KvRegistration>> below;
  for (const std::shared_ptr<KvRegistration>& registration : store().registrations) {
    if (registration->prefix.starts_with(path)) below.emplace_back(registration);
  }
  for (const auto& subscriber : below) kvtree::deliver_up_to(store().changes, subscriber);
}

void kvtree_reset() {
  store().commits = nullptr;
  store() = {};
  kvtree::forget_compiled_tables();
}

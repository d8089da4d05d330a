#include "platform/store/history/history.h"

#include <memory>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/text/numbers.h"
#include "platform/core/wire/client_summary.h"
#include "platform/store/history/notification_history.h"
#include "platform/store/history/records.h"

namespace notification_history {

namespace {

using wire::saturated;

struct Provided {
  explicit Provided(NotificationSource given)
      : source(std::move(given)), history(kMostListed, source.types) {}

  NotificationSource source;
  History history;
  std::shared_ptr<const void> observation;
  KvConnection* connection = nullptr;
};

std::unique_ptr<Provided>& provided() {
  static auto* const instance = new std::unique_ptr<Provided>;  // never destroyed: a handler may still run
  return *instance;
}

// Borrows the record.
PastNotification answer_of(Past* past) {
  return {saturated(past->number),
          saturated(past->time / kNanosecondsPerSecond),
          static_cast<std::uint32_t>(past->time % kNanosecondsPerSecond / kNanosecondsPerMillisecond),
          past->type,
          {past->record.size(), past->record.data()}};
}

Status encode(const NotificationFigures& figures, std::vector<Past> latest, KvReply* reply) {
  std::vector<NotificationCount> counts;
  for (const std::uint64_t count : figures.counts) counts.push_back({saturated(count)});
  std::vector<PastNotification> notifications;
  for (Past& past : latest) notifications.push_back(answer_of(&past));
  const LatestNotifications answer{{counts.size(), counts.data()},
                                   saturated(figures.waiting),
                                   {notifications.size(), notifications.data()}};
  reply->kind = kKvKindRecord;
  return parcel_encode(&kLatestNotificationsParcel, &answer, &reply->data, &reply->length);
}

Status get_latest(const KvRequest* request, KvReply* reply) {
  const std::string_view path = kvtree_request_path(request);
  const std::string item = std::string(kItemName) + '/';
  if (provided() == nullptr || !path.starts_with(item)) return kStatusUnknownPath;
  const auto most = text::parse_number<std::uint32_t>(path.substr(item.size()));
  if (!most || *most > kMostListed) return kStatusInvalid;
  return encode(notification_figures(), provided()->history.latest(*most), reply);
}

void take(const KvProviderNotification& notification) {
  Provided& current = *provided();
  const std::optional<std::uint32_t> type = current.source.type_of(notification);
  if (type) current.history.add(*type, {notification.data, notification.length});
}

void open_file(EventManager* manager, Provided* process) {
  if (process->source.file.empty()) return;
  static_cast<void>(process->history.store_in(process->source.file));  // logged, and stated as a problem
  process->history.use_thread(manager);
}

Status provide(EventManager* manager, Provided* process) {
  if (const Status status = kvtree_bind(&process->connection, kProviderPath, kKvBindProvider)) return status;
  KvProviderFunctions functions;
  if (const Status status = kvtree_init_prov_functions(&functions)) return status;
  functions.get = get_latest;
  process->observation = kvtree_observe_notifications(process->source.path, take);
  return kvtree_register_prov2(process->connection, "", manager, &functions, 0, 0);
}

}  // namespace

}  // namespace notification_history

Status notification_history_start(EventManager* manager, NotificationSource source) {
  auto& provided = notification_history::provided();
  if (provided != nullptr) return kStatusExists;
  provided = std::make_unique<notification_history::Provided>(std::move(source));
  notification_history::open_file(manager, provided.get());
  const Status status = notification_history::provide(manager, provided.get());
  if (status != kStatusOk) notification_history_stop();
  return status;
}

void notification_history_stop() {
  auto& provided = notification_history::provided();
  if (provided == nullptr) return;
  if (provided->connection != nullptr) {
    if (const Status status = kvtree_unbind(provided->connection))
      log_error("kvtree", "%s is still provided: %s", notification_history::kProviderPath, err_text(status));
  }
  provided.reset();
}

NotificationFigures notification_figures() {
  const auto& provided = notification_history::provided();
  if (provided == nullptr) return {};
  return {provided->history.counts(),
          kvtree_waiting_notifications(provided->source.path, provided->source.subscriber),
          provided->history.problem()};
}

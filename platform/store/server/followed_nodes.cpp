// See followed_nodes.h. A registration knows its function weakly: when its connection cannot be ended, which
// is logged, it tells nobody.
#include "platform/store/server/followed_nodes.h"

#include <utility>

#include "platform/core/base/log.h"
#include "platform/store/server/store.h"

namespace {

constexpr std::uint32_t kAllEvents = kKvEventCreated | kKvEventSet | kKvEventDeleted;

}  // namespace

Status FollowedNodes::follow(std::string_view path, EventManager* manager, Told told) {
  Followed added{std::string(path), nullptr, std::make_shared<const Told>(std::move(told))};
  if (const Status status = kvtree_bind(&added.connection, added.path.c_str(), kKvBindConfiguration)) {
    return status;
  }
  const auto tell = [weak = std::weak_ptr(added.told)](const KvNotification* notification) {
    if (const std::shared_ptr<const Told> still = weak.lock()) (*still)(notification);
  };
  const Status status =
      kvtree::register_notification(added.connection, "", kAllEvents, tell, manager, nullptr);
  if (status == kStatusOk) {
    followed_.push_back(std::move(added));
  } else {
    end(added);
  }
  return status;
}

void FollowedNodes::stop() {
  for (const Followed& followed : std::exchange(followed_, {})) end(followed);
}

void FollowedNodes::end(const Followed& followed) {
  if (const Status status = kvtree_unbind(followed.connection)) {
    log_line("%s is still followed: %s", followed.path.c_str(), err_text(status));
  }
}

// A registration refers to its function weakly: if its connection cannot be ended, which is logged, the
// function is no longer called.
#include "platform/store/server/followed_nodes.h"

#include <utility>

#include "platform/core/base/log.h"
#include "platform/store/server/store.h"

namespace {

constexpr std::uint32_t kAllEvents = kKvEventCreated | kKvEventSet | kKvEventDeleted;

}  // namespace

Status FollowedNodes::follow(std::string_view path, EventManager* manager, Handler handler) {
  Followed added{std::string(path), nullptr, std::make_shared<const Handler>(std::move(handler))};
  if (const Status status = kvtree_bind(&added.connection, added.path.c_str(), kKvBindConfiguration)) {
    return status;
  }
  const auto notify = [weak = std::weak_ptr(added.handler)](const KvNotification* notification) {
    if (const std::shared_ptr<const Handler> live = weak.lock()) (*live)(notification);
  };
  const Status status =
      kvtree::register_notification(added.connection, "", kAllEvents, notify, manager, nullptr);
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
    log_error("kvtree", "%s is still followed: %s", followed.path.c_str(), err_text(status));
  }
}

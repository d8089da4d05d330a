// Nodes of the data store that an object follows during its lifetime: a connection and a registration for
// each path, which end together.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/store/tree/kvtree.h"

// Main thread; the manager must outlive it.
class FollowedNodes {
 public:
  using Handler = std::function<void(const KvNotification* notification)>;

  FollowedNodes() = default;
  ~FollowedNodes() { stop(); }
  FollowedNodes(const FollowedNodes&) = delete;
  FollowedNodes& operator=(const FollowedNodes&) = delete;

  // Also follows the nodes below the path. The handler is called for each existing node before this returns,
  // and from then on, on the manager's loop, for every creation, set and deletion, with paths below this one
  // (kvtree_notify_path). On failure returns the status of kvtree_bind or kvtree_register_notification; the
  // path is then not followed.
  [[nodiscard]] Status follow(std::string_view path, EventManager* manager, Handler handler);
  // The handlers are no longer called. May be called from within a handler.
  void stop();

 private:
  struct Followed {
    std::string path;
    KvConnection* connection;
    std::shared_ptr<const Handler> handler;
  };
  static void end(const Followed& followed);

  std::vector<Followed> followed_;
};

// Nodes of the data store that somebody follows for as long as it lives: a connection and a registration for
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
  using Told = std::function<void(const KvNotification* notification)>;

  FollowedNodes() = default;
  ~FollowedNodes() { stop(); }
  FollowedNodes(const FollowedNodes&) = delete;
  FollowedNodes& operator=(const FollowedNodes&) = delete;

  // Follows the nodes below the path, too: `told` is called for each that exists before this returns, and
  // from then on, on the manager's loop, for every creation, set and deletion; with paths below this one
  // (kvtree_notify_path). What kvtree_bind and kvtree_register_notification answer; the path is not followed
  // then.
  [[nodiscard]] Status follow(std::string_view path, EventManager* manager, Told told);
  // Nothing is told any more. It may be called from inside `told`.
  void stop();

 private:
  struct Followed {
    std::string path;
    KvConnection* connection;
    std::shared_ptr<const Told> told;
  };
  static void end(const Followed& followed);

  std::vector<Followed> followed_;
};

// Folding: the rows of commits follow on the thread of the commit queue once the store is served, in steps,
// so that a commit waits for one step at most and the start of the process for none. A step that fails is
// repeated every second: the database may be full for a while, and commits wait in memory and in their
// records.
#include <memory>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/store/commits/commit_preparation.h"
#include "platform/store/commits/commit_queue.h"
#include "platform/store/server/server.h"
#include "platform/store/server/store.h"

namespace kvtree {

namespace {

constexpr std::size_t kRowsPerStep = 5000;
constexpr std::uint64_t kRetry = kNanosecondsPerSecond;

void fold_later(EventManager* manager);

void step_done(EventManager* manager, const std::shared_ptr<NodeStore>& node_store, bool is_more) {
  if (node_store != store().node_store) return;
  if (is_more) {
    fold_later(manager);
  } else if (node_store->has_unfolded()) {
    event_timer_start(manager, kRetry, [manager, weak = std::weak_ptr(node_store)] {
      if (!weak.expired() && weak.lock() == store().node_store) fold_later(manager);
    });
  } else {
    store().folding = false;
  }
}

void fold_step(EventManager* manager, const std::shared_ptr<NodeStore>& node_store) {
  const auto is_more = std::make_shared<bool>(false);
  commit_queue(manager).worker().run(
      [node_store, is_more] { *is_more = node_store->fold_some(kRowsPerStep); },
      [manager, node_store, is_more] { step_done(manager, node_store, *is_more); });
}

void fold_later(EventManager* manager) {
  event_post(manager, [manager, weak = std::weak_ptr(store().node_store)] {
    const std::shared_ptr<NodeStore> node_store = weak.lock();
    if (node_store != nullptr && node_store == store().node_store) fold_step(manager, node_store);
  });
}

}  // namespace

void fold() {
  if (store().node_store == nullptr || !store().node_store->has_unfolded()) return;
  if (the_server() != nullptr && !std::exchange(store().folding, true)) fold_later(the_server()->manager);
}

}  // namespace kvtree

// A commit that waits for its confirmation (stored_confirmation.cpp) has a timer, which undoes it in a commit
// of the same owner that ends the waiting in one transaction. A commit that cannot be undone, such as with a
// full disk, is tried again every second. The time is that of the system, but never more than the client
// required from now on: the clock may be wrong when the process starts.
#include "platform/store/confirmation/confirmations.h"

#include <algorithm>
#include <optional>
#include <string>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/store/commits/commit_queue.h"
#include "platform/store/server/store.h"

namespace kvtree {

namespace {

constexpr std::uint64_t kUndoRetry = kNanosecondsPerSecond;

void undo_later(EventManager* manager, std::int64_t commit, std::uint64_t nanoseconds, bool is_retry);

std::optional<Confirmation> waiting_commit() {
  return store().node_store == nullptr ? std::nullopt : store().node_store->confirmation();
}

// Logged once, however often it is tried.
void report_undo_failure(std::int64_t commit, Status status, const std::string& error, bool is_retry) {
  if (is_retry) return;
  log_error("configuration",
            "commit %lld was not confirmed and cannot be undone; it is tried again every second: %s",
            static_cast<long long>(commit), error.empty() ? err_text(status) : error.c_str());
}

void report_undo(std::int64_t commit, const std::string& id) {
  const auto number = static_cast<long long>(commit);
  if (id.empty()) {
    log_notice("configuration",
               "commit %lld was not confirmed in time; nothing that it set is left to be undone", number);
  } else {
    log_warning("configuration", "commit %lld was not confirmed in time: commit %s undoes it", number,
                id.c_str());
  }
}

void undo(EventManager* manager, std::int64_t commit, bool is_retry) {
  const std::optional<Confirmation> waiting = waiting_commit();
  if (!waiting || waiting->commit != commit) return;
  CommitRequest request;
  request.owner = client_owner();
  request.undone = std::to_string(commit);
  request.comment = "commit " + request.undone + " was not confirmed";
  commit_queue(manager).add(std::move(request),
                            [=](Status status, const std::string& id, const std::string& error) {
                              if (status == kStatusOk) return report_undo(commit, id);
                              report_undo_failure(commit, status, error, is_retry);
                              undo_later(manager, commit, kUndoRetry, true);
                            });
}

void undo_later(EventManager* manager, std::int64_t commit, std::uint64_t nanoseconds, bool is_retry) {
  event_timer_start(manager, nanoseconds, [=] { undo(manager, commit, is_retry); });
}

}  // namespace

void await_confirmation(EventManager* manager) {
  const std::optional<Confirmation> waiting = waiting_commit();
  if (!waiting) return;
  const std::uint64_t now = clock_stamp();
  const std::uint64_t left = waiting->deadline > now ? waiting->deadline - now : 0;
  undo_later(manager, waiting->commit, std::min(left, waiting->duration), false);
}

}  // namespace kvtree

KvConfigConfirmation kvtree_config_confirmation() {
  const std::optional<kvtree::Confirmation> waiting = kvtree::waiting_commit();
  if (!waiting) return {};
  return {std::to_string(waiting->commit), waiting->user, waiting->deadline};
}

// The change feed: the one queue of changes that services have yet to deliver to their clients.
//
// A service that observes the router model turns each change into notifications and appends them here. One
// function, deferred on the event manager, delivers a batch of bounded size and time in each iteration of the
// loop. So the clients of all services see the changes in one order: the order in which the model changed
// and, within one change, the order of Phase. An interface is down before it leaves its VRF, a deleted VRF's
// record is released after every client was notified of the deletion, and an interface has joined a VRF
// before it is up there.
//
// Names. Clients look interfaces up by name while they handle a notification. So everything pending is
// delivered before an interface gets another name or index, and again afterwards.
//
// Lost receivers. A client that lost its connection still uses what it knows. Until it was synchronized again
// nothing is released; see run_after_pending().
//
// One for the process; main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

namespace feed {

// The order of the notifications of one change.
enum class Phase : std::uint8_t { kDown, kLeft, kRecord, kJoined, kUp, kFollowUp };

inline constexpr std::size_t kDefaultBatch = 40;

// Where notifications are delivered: the client of a service. An iteration of the loop delivers at most
// `batch` notifications, of all receivers together, before those of this one wait for the next iteration, and
// fewer if they take longer than a millisecond.
struct Receiver {
  EventManager* manager = nullptr;
  std::size_t batch = kDefaultBatch;
};

class Notification {
 public:
  Notification() = default;
  virtual ~Notification() = default;
  Notification(const Notification&) = delete;
  Notification& operator=(const Notification&) = delete;
  // Calls the client, which must not drop a receiver.
  virtual void deliver() = 0;
};

// Delivers around changes of names in this model; null detaches.
void attach(router::Router* model);

// `change` is the model's number of the change (Router::changes). The receiver must live until it is dropped.
void append(std::uint64_t change, Phase phase, const Receiver* receiver,
            std::unique_ptr<Notification> notification);
void append(std::uint64_t change, Phase phase, const Receiver* receiver, std::function<void()> deliver);
// Drops the receiver's pending notifications.
void drop(const Receiver* receiver);
bool is_empty();
// Whether so much is pending that a source must not change more: a change of a name delivers all of it at
// once.
inline constexpr std::size_t kLongQueue = 500;
bool is_long();

// Calls the function when everything that is pending now was delivered, at once if nothing is, but not while
// a receiver is lost.
void run_after_pending(std::function<void()> function);
// Like drop(), for a receiver whose connection is lost: it may still use what it was notified of.
void lose(const Receiver* receiver);
// The lost receiver was notified of all that changed meanwhile, or has ended.
void recover(const Receiver* receiver);

// The oldest notification that matches, the one that is being delivered first; null if there is none.
Notification* find(const std::function<bool(Notification&)>& matches);

// The same among those of a type.
template <typename Type, typename Matches>
Type* find_oldest(Matches matches) {
  const auto is_match = [&matches](Notification& notification) {
    const auto* typed = dynamic_cast<Type*>(&notification);
    return typed != nullptr && matches(*typed);
  };
  return static_cast<Type*>(find(is_match));
}

}  // namespace feed

#include "platform/core/wire/users.h"

#include <algorithm>

#include "platform/core/base/clock.h"
#include "platform/core/wire/wire.h"

namespace wire {

namespace {

constexpr std::size_t kMostUsers = 1024;  // with and without clients

}  // namespace

template <typename T>
void Users::join(Competition<T>* competition, T* newcomer) {
  std::uint64_t start = competition->clock;
  for (const T* other : competition->waiting) start = std::min(start, other->used_);
  newcomer->used_ = std::max(newcomer->used_, start);
  newcomer->waiting_ = true;
  competition->waiting.push_back(newcomer);
}

template <typename T>
void Users::withdraw(Competition<T>* competition, T* member) {
  member->waiting_ = false;
  std::erase(competition->waiting, member);
}

// The one that was served may have left.
template <typename T>
void Users::charge_one(Competition<T>* competition, T* served, std::uint64_t nanoseconds) {
  const std::size_t members = competition->waiting.size() + (served->waiting_ ? 0 : 1);
  const std::uint64_t part = members == 1 ? nanoseconds : nanoseconds / members;  // a division is slow
  competition->clock = std::max(competition->clock, served->used_) + part;
  served->used_ += nanoseconds;
}

Users::Users(const Limits& limits)
    : interval_(kNanosecondsPerSecond / limits.requests_per_second),
      burst_(interval_ * limits.request_burst) {}

std::shared_ptr<User> Users::find(const Peer& peer, Role role) {
  forget_users();
  const bool trusted = role != Role::kRead;
  std::shared_ptr<User>& user = users_[{peer.uid, trusted}];
  if (user == nullptr) user = std::make_shared<User>(peer.uid, trusted);
  return user;
}

// Those without clients whose account and rate have no effect any more.
void Users::forget_users() {
  const std::uint64_t now = clock_monotonic();
  const bool all = users_.size() >= kMostUsers;
  std::erase_if(users_, [&](const auto& entry) {
    const std::shared_ptr<User>& user = entry.second;
    return user.use_count() == 1 && (all || (user->used_ <= competition_.clock && user->paid_until <= now));
  });
}

void Users::wait(Connection& client) {
  if (client.waiting_) return;
  User& user = *client.user_;
  if (!user.waiting_) join(&competition_, &user);
  join(&user.clients, &client);
}

void Users::leave(Connection& client) {
  if (!client.waiting_) return;
  User& user = *client.user_;
  withdraw(&user.clients, &client);
  if (user.clients.waiting.empty()) withdraw(&competition_, &user);
}

Connection* Users::next_of(const User& user) {
  Connection* best = nullptr;
  for (Connection* client : user.clients.waiting) {
    if (!client->handling_ && (best == nullptr || client->used_ < best->used_)) best = client;
  }
  return best;
}

// The rate of a user is a bucket of tokens, stated as the time at which it is full again.
void Users::spend(User& user, std::uint64_t requests, std::uint64_t now) const {
  user.paid_until = std::max(user.paid_until, now) + requests * interval_;
}

std::uint64_t Users::pause_end(const User& user) const {
  const std::uint64_t next_paid_until = user.paid_until + interval_;
  return user.trusted || next_paid_until <= burst_ ? 0 : next_paid_until - burst_;
}

// The connections so far are worth a burst more than the user's rate allows.
bool Users::connects_too_often(const User& user) const {
  return !user.trusted && user.paid_until >= clock_monotonic() + 2 * burst_;
}

std::uint64_t Users::next_pause_end() const {
  std::uint64_t first = 0;
  for (const User* user : competition_.waiting) {
    const std::uint64_t end = pause_end(*user);
    if (first == 0 || (end != 0 && end < first)) first = end;
  }
  return first;
}

Connection* Users::next(std::uint64_t now) const {
  Connection* best = nullptr;
  for (const User* user : competition_.waiting) {
    if (best != nullptr && best->user_->used_ <= user->used_) continue;
    if (pause_end(*user) > now) continue;
    if (Connection* client = next_of(*user)) best = client;
  }
  return best;
}

std::vector<std::shared_ptr<Connection>> Users::waiting() const {
  std::vector<std::shared_ptr<Connection>> all;
  for (const User* user : competition_.waiting) {
    for (Connection* client : user->clients.waiting) all.push_back(client->shared_from_this());
  }
  return all;
}

void Users::charge(Connection& client, std::uint64_t nanoseconds) {
  // Also a message that takes no time of a coarse clock lets the others be next.
  const std::uint64_t cost = std::max<std::uint64_t>(nanoseconds, 1);
  charge_one(&competition_, client.user_.get(), cost);
  charge_one(&client.user_->clients, &client, cost);
}

}  // namespace wire

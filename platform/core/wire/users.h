// The users of a server and whose message is next. Only for this folder.
//
// The handlers' time is shared equally between the users that wait, and a user's part equally between its
// waiting clients. Each has an account of the time it has used, and the smallest account is next.
//
// What begins to wait gets the smallest account of those that wait, so that it is served before those that
// have been served since, or after each other. Idle time saves up nothing. Nor does it help to end and to
// return: a clock advances by each one's part of the time, and nothing begins before the others' accounts
// when the clock has reached them. A user that reconnects has its former account.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "platform/core/wire/peer.h"

namespace wire {

class Connection;
struct Limits;

// Those that wait for a part of one amount of time. T has an account, `used_`, and the mark `waiting_`.
template <typename T>
struct Competition {
  std::vector<T*> waiting;  // the longest waiting first
  std::uint64_t clock = 0;
};

struct User {
  User(uid_t its_uid, bool is_trusted) : uid(its_uid), trusted(is_trusted) {}
  uid_t uid;
  bool trusted;  // its role is above kRead
  std::size_t connections = 0;
  std::uint64_t paid_until = 0;  // when its requests so far would end at its rate, one after the other
  std::uint64_t used_ = 0;
  bool waiting_ = false;  // a client of it is
  Competition<Connection> clients;
};

class Users {
 public:
  explicit Users(const Limits& limits);

  // The peer's user. A user id whose peers have different roles is two users.
  std::shared_ptr<User> find(const Peer& peer, Role role);

  void wait(Connection& client);  // it has a message to handle
  void leave(Connection& client);
  // The client whose message is to be handled, or null. Clients whose message is being handled and users that
  // exceed their rate are passed over.
  Connection* next(std::uint64_t now) const;
  // When the first of the waiting users no longer exceeds its rate; 0 without one that does.
  std::uint64_t next_pause_end() const;
  std::vector<std::shared_ptr<Connection>> waiting() const;
  // Counts requests for the user's rate.
  void spend(User& user, std::uint64_t requests, std::uint64_t now) const;
  bool connects_too_often(const User& user) const;
  std::size_t count() const { return users_.size(); }
  bool is_idle() const { return competition_.waiting.empty(); }
  // Charges the client and its user for the time that its message took.
  void charge(Connection& client, std::uint64_t nanoseconds);

 private:
  void forget_users();
  std::uint64_t pause_end(const User& user) const;
  template <typename T>
  static void join(Competition<T>* competition, T* newcomer);
  template <typename T>
  static void withdraw(Competition<T>* competition, T* member);
  template <typename T>
  static void charge_one(Competition<T>* competition, T* served, std::uint64_t nanoseconds);
  static Connection* next_of(const User& user);

  std::map<std::pair<uid_t, bool>, std::shared_ptr<User>> users_;
  Competition<User> competition_;
  std::uint64_t interval_;  // between the requests of a user at its rate
  std::uint64_t burst_;     // how long a user's requests may be ahead of its rate
};

}  // namespace wire

// Which clients a server has when more want to connect than it takes.
#include <algorithm>
#include <string>
#include <tuple>

#include "platform/core/base/log.h"
#include "platform/core/wire/users.h"
#include "platform/core/wire/wire.h"

namespace wire {

// Makes room if it must. False if there is none for this client; the reason is logged.
bool Server::admit(const Connection& newcomer) {
  const User& user = *newcomer.user_;
  if (!user.trusted && user.connections >= limits_.clients_per_user) {
    log_warning(name_.c_str(), "a client of user %u was turned away: this user has %zu clients already",
                user.uid, user.connections);
    return false;
  }
  if (users_->connects_too_often(user)) {
    log_warning(name_.c_str(), "a client of user %u was turned away: this user connects too often", user.uid);
    return false;
  }
  if (has_room(user)) return true;
  Connection* replaced = find_replaceable(user);
  if (replaced == nullptr) {
    log_warning(name_.c_str(), "a client of user %u was turned away: there are %zu clients already", user.uid,
                clients_.size());
    return false;
  }
  const std::string reason = "user " + std::to_string(replaced->user_->uid) +
                             " has the most clients, and user " + std::to_string(user.uid) +
                             " needs a connection";
  replaced->close(reason.c_str());
  return true;
}

bool Server::has_room(const User& user) const {
  if (clients_.size() >= limits_.max_clients) return false;
  if (user.trusted) return true;
  const auto readers = std::count_if(clients_.begin(), clients_.end(),
                                     [](const auto& entry) { return !entry.second->user_->trusted; });
  return static_cast<std::size_t>(readers) + limits_.reserved_clients < limits_.max_clients;
}

// The longest idle client of the greediest user; of a user with as many rights only if it has more clients
// than the other will have, so that they do not replace each other's.
Connection* Server::find_replaceable(const User& newcomer) const {
  const auto order = [](const Connection& client) {
    return std::tuple(client.user_->trusted, SIZE_MAX - client.user_->connections, client.active_);
  };
  Connection* best = nullptr;
  for (const auto& [id, client] : clients_) {
    const User& user = *client->user_;
    const bool less_rights = newcomer.trusted && !user.trusted;
    const bool greedier = newcomer.trusted >= user.trusted && user.connections > newcomer.connections + 1;
    if ((less_rights || greedier) && (best == nullptr || order(*client) < order(*best))) best = client.get();
  }
  return best;
}

}  // namespace wire

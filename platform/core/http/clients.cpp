#include "platform/core/http/clients.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "platform/core/base/clock.h"

namespace http {

Clients::Clients(EventManager* manager, std::function<void(const Client&)> missed)
    : manager_(manager), missed_(std::move(missed)) {}

Clients::~Clients() {
  while (!clients_.empty()) remove(&clients_.front());
}

std::list<Client>::iterator Clients::find(const Client* client) {
  return std::find_if(clients_.begin(), clients_.end(), [&](const Client& each) { return &each == client; });
}

void Clients::limit(Client* client, unsigned seconds) {
  if (client->deadline != 0) event_timer_cancel(manager_, client->deadline);
  clients_.splice(clients_.end(), clients_, find(client));
  client->deadline = event_timer_start(manager_, seconds * kNanosecondsPerSecond, [this, client] {
    client->deadline = 0;
    shutdown(client->socket, SHUT_RDWR);
    missed_(*client);
  });
}

Client* Clients::add(int socket) {
  Client* const client = &clients_.emplace_back(Client{socket});
  begin_request(client);
  return client;
}

void Clients::remove(Client* client) {
  if (client->deadline != 0) event_timer_cancel(manager_, client->deadline);
  clients_.erase(find(client));
}

void Clients::begin_request(Client* client) {
  client->has_asked = false;
  limit(client, kRequestSeconds);
}

void Clients::begin_answer(Client* client) {
  client->has_asked = true;
  limit(client, kAnswerSeconds);
}

bool Clients::close_oldest_without_request() {
  const auto oldest =
      std::find_if(clients_.begin(), clients_.end(), [](const Client& each) { return !each.has_asked; });
  if (oldest == clients_.end()) return false;
  shutdown(oldest->socket, SHUT_RDWR);
  return true;
}

}  // namespace http

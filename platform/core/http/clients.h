// The connected clients of a server, and until when each of them must have sent its request or read its
// answer. Deadlines do not depend on single octets: a client that sends or reads one now and then is closed,
// too, and cannot keep its place from others.
//
// Closing a client here shuts its socket down; the library then notices the end and reports it.
#pragma once

#include <cstddef>
#include <functional>
#include <list>

#include "platform/core/evm/evm.h"

namespace http {

inline constexpr unsigned kRequestSeconds = 10;
inline constexpr unsigned kAnswerSeconds = 30;

struct Client {
  int socket;
  bool has_asked = false;  // its request is complete, and the answer is under way
  EventTimerId deadline = 0;
};

class Clients {
 public:
  // Calls `missed` after the socket of a client that missed its deadline was shut down.
  Clients(EventManager* manager, std::function<void(const Client&)> missed);
  ~Clients();
  Clients(const Clients&) = delete;
  Clients& operator=(const Clients&) = delete;

  std::size_t size() const { return clients_.size(); }
  Client* add(int socket);  // valid until it is removed
  void remove(Client* client);
  void begin_request(Client* client);  // the next one of the same connection
  void begin_answer(Client* client);
  // False if every client has sent its request. Otherwise closes the one that has awaited its own longest.
  bool close_oldest_without_request();

 private:
  std::list<Client>::iterator find(const Client* client);
  void limit(Client* client, unsigned seconds);

  EventManager* manager_;
  std::function<void(const Client&)> missed_;
  std::list<Client> clients_;  // by the begin of the request or answer
};

}  // namespace http

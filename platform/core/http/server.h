// An HTTP server for one page on an event manager. libmicrohttpd reads requests and writes answers; its epoll
// descriptor is one of the manager's, so that it has no thread.
//
// An answer is made in parts, each on its own in an iteration of the event loop (of empty ones up to two), so
// that a long one delays no other work, and a slow client holds one part. Only GET and HEAD are served.
//
// At most kMostClients are connected. A further one takes the place of the client that has awaited its own
// request longest; while all of them read answers, it is closed at once. A client is closed if its request is
// not complete kRequestSeconds after it connected or read its last answer, if it has not read an answer
// kAnswerSeconds after its request, and if it neither sends nor reads for kIdleSeconds.
//
// The server belongs to the manager's thread, and is destroyed before the manager and outside its own parts.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/core/http/clients.h"

struct MHD_Daemon;
struct sockaddr;

namespace http {

inline constexpr unsigned kMostClients = 16;
inline constexpr unsigned kIdleSeconds = 10;
inline constexpr std::size_t kPartSize = 32768;  // octets of a part that is large enough

// Appends the next part of an answer, which may be empty; false if it was the last one.
using Parts = std::function<bool(std::string* text)>;

struct Page {
  std::string path;  // "/metrics"
  std::string content_type;
  std::function<Parts()> begin;  // a new answer
};

class Server {
 public:
  // Owns the listening socket from here on.
  Server(EventManager* manager, int listening_socket, Page page);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  // Once. kStatusNoMemory, or that of the event manager.
  [[nodiscard]] Status start();
  const Page& page() const { return page_; }
  Clients& clients() { return clients_; }  // for the library's callbacks

 private:
  void accept_clients();
  void take_client(int client, const sockaddr* address, unsigned length);
  bool make_room();
  void close_late(const Client& client);
  void pause_accepting();
  void resume_accepting();
  void serve();

  EventManager* manager_;
  int socket_;
  Page page_;
  MHD_Daemon* daemon_ = nullptr;
  int epoll_ = -1;
  Clients clients_;
  EventTimerId timer_ = 0;
  EventTimerId accept_timer_ = 0;
};

}  // namespace http

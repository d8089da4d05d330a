// Client of the data store over its Unix socket: blocking calls with a bound, for tools and the SNMP
// sub-agent.
//
// One Client is one connection, used from one thread. Every call ends within the timeout: kStatusTimedOut
// closes the connection (a late answer must not be taken for the next request's); kStatusNotConnected when
// there is none or it broke. A call on a closed client does not connect by itself.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/status.h"

namespace kvtree {

using Octets = std::vector<std::uint8_t>;

struct GetResult {
  Status status = kStatusNotConnected;
  Octets record;  // an encoded record
};

struct ListItem {
  std::string key;
  std::uint32_t kind = 0;
  Octets record;  // datalists only
};

struct ListResult {
  Status status = kStatusNotConnected;
  std::vector<ListItem> items;
};

struct WalkResult {
  Status status = kStatusNotConnected;
  std::vector<Octets> rows;
  bool end = false;  // no row follows the last one
};

struct ActionResult {
  Status status = kStatusNotConnected;
  std::string text;
};

struct NotificationResult {
  Status status = kStatusNotConnected;
  std::string path;  // of the provider that tells it
  std::string item_name;
  std::uint32_t values[2] = {0, 0};
  Octets record;
};

class Client {
 public:
  explicit Client(std::string socket_path,
                  std::chrono::milliseconds timeout = std::chrono::milliseconds(1000));
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // The main socket of the daemon in this run directory (base/directories.h).
  static std::string default_socket();

  // Closes a connection that is there and makes a new one. kStatusNotConnected when nobody serves the socket,
  // kStatusTimedOut, kStatusAccess, or the system's errno.
  [[nodiscard]] Status connect();
  void close();
  bool connected() const;
  // -1 when closed. Outside of a call readable means that the peer closed it (or broke the protocol), or, on
  // a client that watches, that a notification came.
  int fd() const;

  GetResult get(std::string_view path, bool structured = false);
  ListResult list(std::string_view path, std::uint32_t max_items, bool structured = false);
  ListResult datalist(std::string_view path, std::uint32_t max_items, bool structured = false);
  WalkResult walk(std::string_view path, std::uint32_t max_rows, bool structured = false);
  ActionResult action(const std::vector<std::string>& words);  // words[0] is the action's name

  // From here the notifications of every provider whose bind path begins with `path` are sent to this client.
  [[nodiscard]] Status watch(std::string_view path);
  // The oldest notification not yet taken. kStatusTimedOut (the connection stays open) when none comes in
  // time. Up to kMaxPending are kept while calls wait for their answers; the oldest go first, and are
  // counted.
  NotificationResult next_notification(std::chrono::milliseconds timeout);
  bool has_notification() const;  // one is kept already; the descriptor does not tell
  std::uint64_t lost_notifications() const;
  static constexpr std::size_t kMaxPending = 1024;

 private:
  struct Connection;
  std::unique_ptr<Connection> connection_;
};

}  // namespace kvtree

// Client of the data store over its Unix socket: blocking calls with a bound, for tools and the SNMP sub-agent.
//
// One Client is one connection, used from one thread. Every call ends within the timeout: kStatusTimedOut closes
// the connection (a late answer must not be taken for the next request's); kStatusNotConnected when there is none
// or it broke. A call on a closed client does not connect by itself.
#pragma once

#include <chrono>
#include <cstdint>
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

class Client {
 public:
  explicit Client(std::string socket_path, std::chrono::milliseconds timeout = std::chrono::milliseconds(1000));
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // The main socket of the daemon in this run directory (base/directories.h).
  static std::string default_socket();

  [[nodiscard]] Status connect();
  void close();
  bool connected() const { return fd_ >= 0; }
  int fd() const { return fd_; }  // readable means: the peer closed it (or broke the protocol)

  GetResult get(std::string_view path, bool structured = false);
  ListResult list(std::string_view path, std::uint32_t max_items, bool structured = false);
  ListResult datalist(std::string_view path, std::uint32_t max_items, bool structured = false);
  WalkResult walk(std::string_view path, std::uint32_t max_rows, bool structured = false);
  ActionResult action(const std::vector<std::string>& words);  // words[0] is the action's name

 private:
  struct Connection;
  std::string socket_path_;
  std::chrono::milliseconds timeout_;
  int fd_ = -1;
  std::uint32_t next_request_ = 1;
  Octets inbox_;
};

}  // namespace kvtree

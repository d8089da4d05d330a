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

#include "platform/core/base/status.h"
#include "platform/store/configuration/configuration.h"

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

struct SubscribeResult {
  Status status = kStatusNotConnected;
  std::uint32_t subscription = 0;  // its number in this client
  // Sequence numbers continue while this stays the same; with another one they start again.
  std::uint64_t instance = 0;
};

// One node, with any value that the configuration has (none, text, number, tuple).
struct Node {
  std::string path;
  KvValue value;
  std::string owner;  // empty for a node that is not configuration
};

struct NodesResult {
  Status status = kStatusNotConnected;
  std::vector<Node> nodes;
};

struct CommitResult {
  Status status = kStatusNotConnected;
  std::string id;     // empty if no effective value or owner changed
  std::string user;   // the daemon's name of this client's user
  std::string error;  // why the commit was refused
};

struct ConfirmationResult {
  Status status = kStatusNotConnected;
  KvConfigConfirmation confirmation;
};

struct HistoryResult {
  Status status = kStatusNotConnected;
  std::vector<KvConfigCommit> commits;  // newest first
};

struct CommitChangesResult {
  Status status = kStatusNotConnected;
  std::vector<KvConfigCommitChange> changes;  // in the order of the subscribers' notifications
};

struct NotificationResult {
  Status status = kStatusNotConnected;
  std::uint32_t subscription = 0;
  std::uint64_t sequence = 0;     // increasing within a subscription
  std::uint64_t lost_before = 0;  // notifications lost between the previous one and this one
  std::string path;               // of the provider that sent it
  std::string item_name;
  std::uint32_t values[2] = {0, 0};
  Octets record;
};

class Client {
 public:
  struct Connection;  // of client*.cpp

  // `timeout` is for an answer; for one to a change of the configuration it is thirty times that.
  explicit Client(std::string socket_path,
                  std::chrono::milliseconds timeout = std::chrono::milliseconds(1000));
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // The main socket of the daemon with this run directory (files/directories.h).
  static std::string socket_in(const std::string& run_directory);
  static std::string default_socket();

  // Closes an existing connection and opens a new one. kStatusNotConnected if no process serves the socket,
  // kStatusTimedOut, kStatusAccess, kStatusUntrustedServer, or the system's errno.
  [[nodiscard]] Status connect();
  void close();
  bool connected() const;
  // -1 when closed. Outside of a call readable means that the peer closed it (or broke the protocol), or, for
  // a subscribed client, that a notification arrived.
  int fd() const;

  GetResult get(std::string_view path, bool structured = false);
  // Requests the record without waiting, so that fd() becomes readable when the server answers.
  [[nodiscard]] Status begin_get(std::string_view path);
  // The status of that answer. Without one the connection is closed: kStatusTimedOut.
  [[nodiscard]] Status end_get();
  ListResult list(std::string_view path, std::uint32_t max_items, bool structured = false);
  ListResult datalist(std::string_view path, std::uint32_t max_items, bool structured = false);
  WalkResult walk(std::string_view path, std::uint32_t max_rows, bool structured = false);
  ActionResult action(const std::vector<std::string>& words);  // words[0] is the action's name

  // From now on the notifications of every provider whose bind path begins with `path` are sent to this
  // client. Without a name the latest 1024 are retained while the client is connected. With the name of a
  // subscriber for whom the daemon retains them, its unacknowledged notifications are sent first, and this
  // client replaces the former one: kStatusNoSuchRow for an unknown name, kStatusAccess for a client that may
  // only read.
  [[nodiscard]] SubscribeResult subscribe(std::string_view path, std::string_view name = {});
  // The oldest notification not yet taken. kStatusTimedOut (the connection stays open) if none arrives in
  // time. Taking one acknowledges it, unless its subscription has a name.
  NotificationResult next_notification(std::chrono::milliseconds timeout);
  // Acknowledges all of this subscription up to the sequence number. The daemon sends 64 before it waits for
  // this.
  [[nodiscard]] Status acknowledge(std::uint32_t subscription, std::uint64_t sequence);

  // The nodes whose path begins with `path`, in order, from the one after `after` on: the effective values,
  // or, with an owner, those that it sets. An answer may have fewer than `max_nodes` although more follow:
  // continue after the last until an answer is empty. kStatusInvalid for an unknown owner.
  NodesResult nodes(std::string_view path, std::uint32_t max_nodes, std::string_view after = {},
                    std::string_view owner = {});
  // Makes the changes as one commit of the clients' owner: all or none (kvtree_config_commit). At most
  // kMaxStagedChanges (kStatusMessageTooLarge). kStatusAccess; the other statuses are those of the commit. A
  // commit with a time for its confirmation is undone unless it is confirmed within it: kStatusExists while
  // another one waits for that. At most kLongestConfirmation.
  CommitResult commit(const std::vector<KvConfigChange>& changes, std::string_view comment,
                      std::chrono::seconds confirmation = {});
  // The commit that waits for its confirmation, or an empty id.
  ConfirmationResult confirmation();
  // Confirms the commit, or without an id the one that waits: kStatusNoSuchRow if it does not wait,
  // kStatusAccess.
  ConfirmationResult confirm(std::string_view id = {});
  // The commits, newest first, from the one before the commit `before` on; an answer may have fewer than
  // `maximum`, as above. kStatusNoSuchRow if `before` is not the id of a commit.
  HistoryResult history(std::uint32_t maximum, std::string_view before = {});
  // The changes of one commit from number `first` (from 0) on, likewise. kStatusNoSuchRow for a commit that
  // is not, or no longer, in the history.
  CommitChangesResult commit_changes(std::string_view id, std::uint32_t maximum, std::uint32_t first = 0);

 private:
  std::unique_ptr<Connection> connection_;
};

}  // namespace kvtree

// The data store's server with its clients' subscriptions. Only for this folder.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/core/wire/wire.h"
#include "platform/store/queue/notification_queue.h"
#include "platform/store/server/request_durations.h"
#include "platform/store/server/store.h"

namespace kvtree {

struct Subscription {
  std::uint32_t number;  // of its client, from 1
  std::string path;
  std::shared_ptr<NotificationQueue> queue;
  std::string version = {};  // of the client's program; empty if it did not state it
};

// The changes that a client has staged for its next commit.
struct StagedCommit {
  std::vector<KvConfigChange> changes;
  std::size_t octets = 0;
};

// What a request that is answered in steps stores between them.
struct Unfinished {
  Unfinished() = default;
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;
  virtual ~Unfinished() = default;
};

// An answer that is sent later. Its client waits: no further message of it is handled until then.
struct LaterAnswer {
  std::weak_ptr<wire::Connection> client;
  std::uint16_t type;  // of the request
  std::uint32_t request;
  // Once. Nothing happens if the client has left.
  void send(const wire::Octets& payload) const;
};

struct StoreServer {
  explicit StoreServer(EventManager* on);
  bool handle(wire::Connection& from, const wire::Message& message);
  void forget(std::uint64_t client);
  // Holds the client of the message at hand.
  LaterAnswer answer_later(wire::Connection& from) const;

  EventManager* manager;
  wire::Octets answer;
  wire::Message at_hand;  // the message that is being handled
  std::unordered_map<std::uint64_t, std::vector<Subscription>> subscriptions;  // by client
  std::unordered_map<std::uint64_t, StagedCommit> staged;                      // by client
  std::unordered_map<std::uint64_t, std::unique_ptr<Unfinished>> unfinished;   // by client
  RequestDurations durations;
  wire::Server server;
};

// Null while the store is not served.
std::unique_ptr<StoreServer>& the_server();

// An answer begins with its status; a failure has nothing else.
void answer_status(wire::Octets* answer, Status status);

// Requests to providers (read_answers.cpp).
bool answer_get(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_list(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_datalist(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_walk(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_columns(wire::Connection* from, wire::Reader* request, wire::Octets* answer);

// Requests to run an action (action_answers.cpp).
bool answer_action(wire::Connection* from, wire::Reader* request, wire::Octets* answer);

// Requests of subscribers (subscriptions.cpp).
bool answer_subscribe(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
// An acknowledgement has no answer. False when it is malformed.
bool take_acknowledgement(StoreServer* server, const wire::Connection& from, const wire::Message& message);
// Sends a client what its subscriptions' windows have room for. This may end the client's connection.
void send_notifications(StoreServer* server, std::uint64_t client);

// Requests that concern the configuration (client_*.cpp of platform/store/configuration).
bool answer_nodes(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_history(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_commit_changes(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_stage(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_commit(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_confirm(wire::Connection* from, wire::Reader* request, wire::Octets* answer);
bool answer_confirmation(wire::Connection* from, wire::Reader* request, wire::Octets* answer);

}  // namespace kvtree

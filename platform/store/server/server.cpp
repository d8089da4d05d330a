// The server: clients' messages in, answers out. What reads from providers is in read_answers.cpp, actions
// are in action_answers.cpp, subscriptions in subscriptions.cpp; what concerns the configuration is in the
// client_*.cpp of platform/store/configuration.
//
// A message is answered inside its handler, or in steps before the client's next message, or its client is
// held until the answer is sent, so answers leave in the order of the requests; platform/core/wire bounds
// what a client may send and leave unread, and closes those that break the framing. An answer's payload is
// built in a buffer that the server reuses.
#include <memory>
#include <string_view>

#include "platform/core/base/fault.h"
#include "platform/store/commits/commit_queue.h"
#include "platform/store/confirmation/confirmations.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

constexpr std::size_t kRetainedAnswer = 1U << 20;  // a larger buffer is freed

// --- Answers

bool is_agent(const wire::Connection* from) {
  return from != nullptr && from->role() == wire::Role::kAgent;
}

// The configuration is not an agent's business; commits and actions refuse it themselves.
template <bool (*kAnswer)(wire::Connection*, Reader*, wire::Octets*)>
bool answer_not_agents(wire::Connection* from, Reader* request, wire::Octets* answer) {
  if (!is_agent(from)) return kAnswer(from, request, answer);
  answer_status(answer, kStatusAccess);
  return true;
}

// Only for those who may change the configuration.
template <bool (*kAnswer)(wire::Connection*, Reader*, wire::Octets*)>
bool answer_changers(wire::Connection* from, Reader* request, wire::Octets* answer) {
  if (from != nullptr && from->may_change()) return kAnswer(from, request, answer);
  answer_status(answer, kStatusAccess);
  return true;
}

// Answers a client on the thread of the commits, which may be waiting for the disk.
template <bool (*kAnswer)(wire::Connection*, Reader*, wire::Octets*)>
bool answer_on_thread(wire::Connection* from, Reader* request, wire::Octets* answer) {
  if (from == nullptr || store().node_store == nullptr) return kAnswer(from, request, answer);
  struct Reading {
    wire::Octets payload;
    wire::Octets answer{};
    bool well_formed = true;
  };
  const wire::OctetSpan payload = the_server()->at_hand.payload;
  const auto reading = std::make_shared<Reading>(Reading{wire::Octets(payload.begin(), payload.end())});
  const LaterAnswer later = the_server()->answer_later(*from);
  commit_queue(the_server()->manager)
      .worker()
      .run(
          [reading] {
            Reader copy(reading->payload);
            reading->well_formed = kAnswer(nullptr, &copy, &reading->answer);
          },
          [reading, later] {
            if (reading->well_formed) return later.send(reading->answer);
            if (const auto client = later.client.lock()) client->close("malformed request");
          });
  return true;
}

struct MessageHandler {
  std::uint16_t type;
  std::string_view name;  // in metrics
  bool (*answer)(wire::Connection*, Reader*, wire::Octets*);
};

constexpr MessageHandler kHandlers[] = {
    {kGet, "get", answer_get},
    {kList, "list", answer_list},
    {kDatalist, "datalist", answer_datalist},
    {kWalk, "walk", answer_walk},
    {kColumns, "columns", answer_columns},
    {kAction, "action", answer_action},
    {kSubscribe, "subscribe", answer_subscribe},
    {kNodes, "nodes", answer_not_agents<answer_nodes>},
    {kStage, "stage", answer_stage},
    {kCommit, "commit", answer_commit},
    {kHistory, "history", answer_not_agents<answer_on_thread<answer_history>>},
    {kCommitChanges, "commit-changes", answer_not_agents<answer_on_thread<answer_commit_changes>>},
    {kConfirmation, "confirmation", answer_not_agents<answer_confirmation>},
    {kConfirm, "confirm", answer_changers<answer_confirm>},
};

}  // namespace

void answer_status(wire::Octets* answer, Status status) {
  Writer(answer).u32(status);
}

// --- Serving

// Never destroyed: the manager may be destroyed earlier at the end of the process.
std::unique_ptr<StoreServer>& the_server() {
  static auto* server = new std::unique_ptr<StoreServer>;
  return *server;
}

StoreServer::StoreServer(EventManager* on)
    : manager(on),
      server(
          on, "kvtree", wire::Limits{},
          [this](wire::Connection& from, const wire::Message& message) { return handle(from, message); },
          [this](wire::Connection& ended) { forget(ended.id()); }) {
  for (const MessageHandler& handler : kHandlers) durations.add_kind(handler.type, handler.name);
  server.on_answer(
      [this](std::uint16_t type, std::uint64_t nanoseconds) { durations.count(type, nanoseconds); });
}

std::span<const RequestDurations::Kind> request_durations() {
  return the_server() == nullptr ? std::span<const RequestDurations::Kind>()
                                 : the_server()->durations.kinds();
}

void LaterAnswer::send(const wire::Octets& payload) const {
  const std::shared_ptr<wire::Connection> waiting = client.lock();
  if (waiting == nullptr || !waiting->open()) return;
  waiting->send(type | kAnswer, request, payload);
  waiting->release();
}

LaterAnswer StoreServer::answer_later(wire::Connection& from) const {
  from.hold();
  return {from.weak_from_this(), at_hand.type, at_hand.request};
}

bool StoreServer::handle(wire::Connection& from, const wire::Message& message) {
  if (message.type == kAcknowledge) {
    if (!take_acknowledgement(this, from, message)) return false;
    send_notifications(this, from.id());
    return true;
  }
  // Taken out while it is used: an action may run the event loop, and with it this function.
  wire::Octets payload = std::move(answer);
  payload.clear();
  at_hand = message;
  const bool well_formed = answer_message(&from, message, &payload);
  if (well_formed && !payload.empty() && !from.repeats()) {
    from.send(message.type | kAnswer, message.request, payload);
  }
  if (payload.capacity() <= kRetainedAnswer) answer = std::move(payload);
  if (well_formed && message.type == kSubscribe) send_notifications(this, from.id());
  return well_formed;
}

bool answer_message(wire::Connection* from, const wire::Message& message, wire::Octets* answer) {
  Reader request(message.payload);
  for (const MessageHandler& handler : kHandlers) {
    if (handler.type == message.type) return handler.answer(from, &request, answer);
  }
  return false;
}

}  // namespace kvtree

Status kvtree_serve(EventManager* manager) {
  if (const Status status = fault_check("kvtree_serve")) return status;
  if (manager == nullptr) return kStatusInvalid;
  auto& server = kvtree::the_server();
  if (server != nullptr) return kStatusExists;
  server = std::make_unique<kvtree::StoreServer>(manager);
  server->server.start();
  kvtree::fold();
  kvtree::await_confirmation(manager);
  for (const kvtree::RetainedQueue& retained : kvtree::store().retained) retained.queue->use_thread(manager);
  return kStatusOk;
}

void kvtree_stop_serving(EventManager* manager) {
  auto& server = kvtree::the_server();
  auto& store = kvtree::store();
  if (server != nullptr && server->manager == manager) {
    server.reset();
    for (const kvtree::RetainedQueue& retained : store.retained) retained.queue->use_thread(nullptr);
  }
  if (store.commits == nullptr || store.commits->worker().manager() != manager) return;
  store.commits->finish();
  store.commits = nullptr;
  store.folding = false;
}

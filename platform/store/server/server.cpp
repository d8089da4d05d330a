// The server: clients' messages in, answers out. What reads from providers is in read_answers.cpp,
// subscriptions are in subscriptions.cpp; what concerns the configuration is in the client_*.cpp of
// platform/store/configuration.
//
// A message is answered inside its handler, or in steps before the client's next message, so answers leave in
// the order of the requests; platform/core/wire bounds what a client may send and leave unread, and closes
// those that break the framing. An answer's payload is built in a buffer that the server reuses.
#include <memory>

#include "platform/core/base/fault.h"
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

bool answer_action(wire::Connection* from, Reader* request, wire::Octets* answer) {
  const std::size_t count = request->u16();
  if (count > kMaxActionWords) return false;
  std::vector<std::string> words;
  for (std::size_t i = 0; i < count && request->ok(); ++i) words.emplace_back(request->text());
  if (!request->finished()) return false;
  std::string text;
  Status status = is_agent(from) ? kStatusAccess
                                 : kvtree_run_action({from != nullptr && from->may_change()}, words, &text);
  if (text.size() + 64 > kMaxAnswer) {
    status = kStatusMessageTooLarge;
    text.clear();
  }
  Writer writer(answer);
  writer.u32(status);
  writer.text(text);
  return true;
}

// The configuration is not an agent's business; commits and actions refuse it themselves.
template <bool (*kAnswer)(wire::Connection*, Reader*, wire::Octets*)>
bool answer_not_agents(wire::Connection* from, Reader* request, wire::Octets* answer) {
  if (!is_agent(from)) return kAnswer(from, request, answer);
  answer_status(answer, kStatusAccess);
  return true;
}

struct MessageHandler {
  std::uint16_t type;
  bool (*answer)(wire::Connection*, Reader*, wire::Octets*);
};

constexpr MessageHandler kHandlers[] = {
    {kGet, answer_get},
    {kList, answer_list},
    {kDatalist, answer_datalist},
    {kWalk, answer_walk},
    {kAction, answer_action},
    {kSubscribe, answer_subscribe},
    {kNodes, answer_not_agents<answer_nodes>},
    {kStage, answer_stage},
    {kCommit, answer_commit},
    {kHistory, answer_not_agents<answer_history>},
    {kCommitChanges, answer_not_agents<answer_commit_changes>},
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
          [this](wire::Connection& ended) { forget(ended.id()); }) {}

// After the notifications that the change posted to its subscribers: a client that receives the answer sees
// the change in the subscribers' state, and a process that dies afterwards has lost nothing of that state.
void StoreServer::answer_after_delivery(wire::Connection& from, const wire::Message& message,
                                        const wire::Octets& payload) {
  from.hold();
  event_post(manager,
             [weak = from.weak_from_this(), type = static_cast<std::uint16_t>(message.type | kAnswer),
              request = message.request, payload] {
               const std::shared_ptr<wire::Connection> waiting = weak.lock();
               if (waiting == nullptr || !waiting->open()) return;
               waiting->send(type, request, payload);
               waiting->release();
             });
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
  const bool well_formed = answer_message(&from, message, &payload);
  if (well_formed && message.type == kCommit) {
    answer_after_delivery(from, message, payload);
  } else if (well_formed && !from.repeats()) {
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
  return kStatusOk;
}

void kvtree_stop_serving(EventManager* manager) {
  auto& server = kvtree::the_server();
  if (server != nullptr && server->manager == manager) server.reset();
}

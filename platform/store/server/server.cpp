// The server: clients' messages in, answers out. Subscriptions are in subscriptions.cpp; what concerns the
// configuration is in the client_*.cpp of platform/store/configuration.
//
// A message is answered inside its handler, so answers leave in the order of the requests; platform/core/wire
// bounds what a client may send and leave unread, and closes those that break the framing. An answer's
// payload is built in a buffer that the server reuses, so a request costs no allocation beyond the provider's
// record.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/core/base/fault.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"
#include "platform/store/tree/lists.h"

namespace kvtree {

namespace {

using wire::OctetSpan;
using wire::Reader;
using wire::Writer;

constexpr std::size_t kRetainedAnswer = 1U << 20;  // a larger buffer is freed

// --- Answers

bool is_agent(const wire::Connection* from) {
  return from != nullptr && from->role() == wire::Role::kAgent;
}

// An answer begins with its status; a failure has nothing else.
void answer_status(wire::Octets* answer, Status status) {
  Writer(answer).u32(status);
}

bool read_flags(Reader* request, bool* structured) {
  const std::uint8_t flags = request->u8();
  *structured = (flags & kFlagStructured) != 0;
  return (flags & ~kFlagStructured) == 0;
}

bool answer_get(wire::Connection*, Reader* request, wire::Octets* answer) {
  bool structured = false;
  if (!read_flags(request, &structured)) return false;
  const std::string_view path = request->text();
  if (!request->finished()) return false;
  KvReply reply{};
  Status status = kvtree_get(path, structured, &reply);
  const std::unique_ptr<std::uint8_t, decltype(&std::free)> owned(reply.data, &std::free);
  if (status == kStatusOk && reply.length + 64 > kMaxAnswer) status = kStatusMessageTooLarge;
  answer_status(answer, status);
  if (status != kStatusOk) return true;
  Writer writer(answer);
  writer.u32(reply.kind);
  writer.octets({reply.data, reply.length});
  return true;
}

struct OwnedListReply : KvListReply {
  explicit OwnedListReply(std::uint32_t maximum) : KvListReply{maximum, 0, nullptr, nullptr} {}
  ~OwnedListReply() {
    kvtree_list_free(list);
    kvtree_datalist_free(datalist);
  }
  OwnedListReply(const OwnedListReply&) = delete;
  OwnedListReply& operator=(const OwnedListReply&) = delete;
};

void write_item(Writer* writer, const KvListItem& item) {
  writer->u32(item.kind);
  writer->text(item.key);
}

void write_item(Writer* writer, const KvDatalistItem& item) {
  writer->u32(item.kind);
  writer->text(item.key);
  writer->octets(item.value);
}

// The items after a successful status; if they are too many or too large, only a failure.
template <typename Items>
void answer_items(wire::Octets* answer, const Items& items) {
  const std::size_t start = answer->size();
  Writer writer(answer);
  writer.u32(kStatusOk);
  writer.u32(static_cast<std::uint32_t>(items.size()));
  bool fits = items.size() <= kKvMaxListItems;
  for (auto item = items.begin(); fits && item != items.end(); ++item) {
    write_item(&writer, *item);
    fits = answer->size() - start <= kMaxAnswer;
  }
  if (fits) return;
  writer.truncate(start);
  writer.u32(kStatusMessageTooLarge);
}

bool read_bounded_request(Reader* request, bool* structured, std::uint32_t* maximum, std::string_view* path) {
  if (!read_flags(request, structured)) return false;
  *maximum = std::min(request->u32(), kKvMaxListItems);
  *path = request->text();
  return request->finished();
}

template <typename List>
bool answer_either(Reader* request, wire::Octets* answer, Status (*ask)(std::string_view, bool, KvListReply*),
                   List* KvListReply::*list) {
  static const List no_items;
  bool structured = false;
  std::uint32_t maximum = 0;
  std::string_view path;
  if (!read_bounded_request(request, &structured, &maximum, &path)) return false;
  OwnedListReply reply(maximum);
  const Status status = ask(path, structured, &reply);
  if (status != kStatusOk) {
    answer_status(answer, status);
  } else {
    answer_items(answer, (reply.*list == nullptr ? &no_items : reply.*list)->items);
  }
  return true;
}

bool answer_list(wire::Connection*, Reader* request, wire::Octets* answer) {
  return answer_either(request, answer, kvtree_list, &KvListReply::list);
}

bool answer_datalist(wire::Connection*, Reader* request, wire::Octets* answer) {
  return answer_either(request, answer, kvtree_datalist, &KvListReply::datalist);
}

struct WalkAnswer {
  wire::Octets* answer;
  std::size_t start;
  std::uint32_t rows;
};

// The client's next walk reads again a row for which there is no room.
bool add_row(void* argument, const KvReply& row) {
  auto* walk = static_cast<WalkAnswer*>(argument);
  if (walk->answer->size() - walk->start + sizeof(std::uint32_t) + row.length > kMaxAnswer) return false;
  Writer(walk->answer).octets({row.data, row.length});
  ++walk->rows;
  return true;
}

bool answer_walk(wire::Connection*, Reader* request, wire::Octets* answer) {
  bool structured = false;
  std::uint32_t maximum = 0;
  std::string_view path;
  if (!read_bounded_request(request, &structured, &maximum, &path)) return false;
  Writer writer(answer);
  WalkAnswer walk{answer, answer->size(), 0};
  writer.u32(kStatusOk);
  const std::size_t end_place = writer.size();
  writer.u8(0);
  writer.u32(0);
  bool end = false;
  const Status status = walk_rows(path, structured, maximum, add_row, &walk, &end);
  if (status != kStatusOk) {
    writer.truncate(walk.start);
    writer.u32(status);
    return true;
  }
  (*answer)[end_place] = end ? 1 : 0;
  writer.patch_u32(end_place + 1, walk.rows);
  return true;
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
  } else if (well_formed) {
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

// Client of the data store; see client.h.
//
// A call is one message out and, usually, one read in. Its answer carries its request number; a notification
// may come before it and is kept. Anything else means that the two sides are out of step: the connection is
// closed, because what is read from it could not be trusted.
#include "platform/kvtree/client.h"

#include <deque>

#include "platform/base/directories.h"
#include "platform/kvtree/kvtree.h"
#include "platform/kvtree/protocol.h"
#include "platform/wire/wire.h"

namespace kvtree {

namespace {

using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kMaxRequest = wire::Limits{}.max_payload;  // what the server takes

constexpr char kMainManager[] = "/dev/mpls/vpn/main";

Octets to_octets(wire::OctetSpan span) {
  return {span.begin(), span.end()};
}

milliseconds time_left(SteadyClock::time_point deadline) {
  return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(deadline - SteadyClock::now()));
}

bool read_notification(const wire::Message& message, NotificationResult* notification) {
  wire::Reader reader(message.payload);
  notification->path = reader.text();
  notification->item_name = reader.text();
  notification->values[0] = reader.u32();
  notification->values[1] = reader.u32();
  notification->record = to_octets(reader.octets());
  notification->status = kStatusOk;
  return reader.finished();
}

std::uint8_t flags(bool structured) {
  return structured ? kFlagStructured : std::uint8_t{0};
}

}  // namespace

struct Client::Connection {
  std::string path;
  milliseconds timeout;
  wire::ClientSocket socket{kMaxAnswer + 1024};
  std::uint32_t last_request = 0;
  std::deque<NotificationResult> pending;
  std::uint64_t lost = 0;

  wire::Writer begin(std::uint16_t type) { return socket.begin(type, ++last_request); }

  Status fail(Status status) {
    socket.close();
    return status;
  }

  Status keep(const wire::Message& message) {
    NotificationResult notification;
    if (!read_notification(message, &notification)) return fail(kStatusBadMessage);
    if (pending.size() >= kMaxPending) {
      pending.pop_front();
      ++lost;
    }
    pending.push_back(std::move(notification));
    return kStatusOk;
  }

  // Sends what begin() began and waits for its answer; the payload is valid until the next call.
  Status exchange(std::uint16_t type, wire::OctetSpan* payload) {
    if (!socket.connected()) return kStatusNotConnected;
    if (socket.frame_size() > kMaxRequest) return kStatusMessageTooLarge;
    const SteadyClock::time_point deadline = SteadyClock::now() + timeout;
    if (const Status status = socket.send()) return status;
    wire::Message message;
    do {
      if (const Status status = socket.receive(&message, time_left(deadline))) return fail(status);
      if (message.type == kNotification && keep(message) != kStatusOk) return kStatusBadMessage;
    } while (message.type == kNotification);
    if (message.type != (type | kAnswer) || message.request != last_request) return fail(kStatusBadMessage);
    *payload = message.payload;
    return kStatusOk;
  }

  // The answer's status, which is its first word.
  Status ask(std::uint16_t type, wire::OctetSpan* payload, wire::Reader* reader) {
    if (const Status status = exchange(type, payload)) return status;
    *reader = wire::Reader(*payload);
    const Status status = reader->u32();
    return reader->ok() ? status : fail(kStatusBadMessage);
  }

  ListResult list(std::uint16_t type, std::string_view list_path, std::uint32_t max_items, bool structured) {
    ListResult result;
    wire::Writer writer = begin(type);
    writer.u8(flags(structured));
    writer.u32(max_items);
    writer.text(list_path);
    wire::OctetSpan payload;
    wire::Reader reader(payload);
    result.status = ask(type, &payload, &reader);
    if (result.status != kStatusOk) return result;
    const std::uint32_t count = reader.u32();
    for (std::uint32_t i = 0; i < count && reader.ok(); ++i) {
      ListItem item;
      item.kind = reader.u32();
      item.key = reader.text();
      if (type == kDatalist) item.record = to_octets(reader.octets());
      result.items.push_back(std::move(item));
    }
    if (reader.finished()) return result;
    result.items.clear();
    result.status = fail(kStatusBadMessage);
    return result;
  }
};

Client::Client(std::string socket_path, milliseconds timeout) : connection_(std::make_unique<Connection>()) {
  connection_->path = std::move(socket_path);
  connection_->timeout = timeout;
}

Client::~Client() = default;

std::string Client::default_socket() {
  return event_manager_socket(kMainManager);
}

Status Client::connect() {
  connection_->pending.clear();
  return connection_->socket.connect(connection_->path, connection_->timeout);
}

void Client::close() {
  connection_->socket.close();
}
bool Client::connected() const {
  return connection_->socket.connected();
}
int Client::fd() const {
  return connection_->socket.fd();
}

GetResult Client::get(std::string_view path, bool structured) {
  GetResult result;
  wire::Writer writer = connection_->begin(kGet);
  writer.u8(flags(structured));
  writer.text(path);
  wire::OctetSpan payload;
  wire::Reader reader(payload);
  result.status = connection_->ask(kGet, &payload, &reader);
  if (result.status != kStatusOk) return result;
  reader.u32();  // the kind: always an encoded record
  result.record = to_octets(reader.octets());
  if (!reader.finished()) {
    result.record.clear();
    result.status = connection_->fail(kStatusBadMessage);
  }
  return result;
}

ListResult Client::list(std::string_view path, std::uint32_t max_items, bool structured) {
  return connection_->list(kList, path, max_items, structured);
}

ListResult Client::datalist(std::string_view path, std::uint32_t max_items, bool structured) {
  return connection_->list(kDatalist, path, max_items, structured);
}

WalkResult Client::walk(std::string_view path, std::uint32_t max_rows, bool structured) {
  WalkResult result;
  wire::Writer writer = connection_->begin(kWalk);
  writer.u8(flags(structured));
  writer.u32(max_rows);
  writer.text(path);
  wire::OctetSpan payload;
  wire::Reader reader(payload);
  result.status = connection_->ask(kWalk, &payload, &reader);
  if (result.status != kStatusOk) return result;
  result.end = reader.u8() != 0;
  const std::uint32_t count = reader.u32();
  for (std::uint32_t i = 0; i < count && reader.ok(); ++i) result.rows.push_back(to_octets(reader.octets()));
  if (!reader.finished()) {
    result.rows.clear();
    result.end = false;
    result.status = connection_->fail(kStatusBadMessage);
  }
  return result;
}

ActionResult Client::action(const std::vector<std::string>& words) {
  ActionResult result;
  if (words.size() > kMaxActionWords) {
    result.status = kStatusMessageTooLarge;
    return result;
  }
  wire::Writer writer = connection_->begin(kAction);
  writer.u16(static_cast<std::uint16_t>(words.size()));
  for (const std::string& word : words) writer.text(word);
  wire::OctetSpan payload;
  result.status = connection_->exchange(kAction, &payload);
  if (result.status != kStatusOk) return result;
  wire::Reader reader(payload);
  result.status = reader.u32();
  result.text = reader.text();
  if (!reader.finished()) {
    result.text.clear();
    result.status = connection_->fail(kStatusBadMessage);
  }
  return result;
}

Status Client::watch(std::string_view path) {
  connection_->begin(kWatch).text(path);
  wire::OctetSpan payload;
  wire::Reader reader(payload);
  return connection_->ask(kWatch, &payload, &reader);
}

NotificationResult Client::next_notification(milliseconds timeout) {
  NotificationResult result;
  std::deque<NotificationResult>& pending = connection_->pending;
  if (pending.empty()) {
    wire::Message message;
    result.status = connection_->socket.receive(&message, timeout);
    if (result.status != kStatusOk) return result;
    result.status =
        message.type == kNotification ? connection_->keep(message) : connection_->fail(kStatusBadMessage);
    if (result.status != kStatusOk) return result;
  }
  result = std::move(pending.front());
  pending.pop_front();
  return result;
}

bool Client::has_notification() const {
  return !connection_->pending.empty();
}
std::uint64_t Client::lost_notifications() const {
  return connection_->lost;
}

}  // namespace kvtree

// A client's subscriptions and the nodes of the configuration; see client.h.
#include "platform/kvtree/client_connection.h"

namespace kvtree {

SubscribeResult Client::subscribe(std::string_view path, std::string_view name) {
  SubscribeResult result;
  wire::Writer writer = connection_->begin(kSubscribe);
  writer.text(path);
  writer.text(name);
  wire::OctetSpan payload;
  wire::Reader reader(payload);
  result.status = connection_->ask(kSubscribe, &payload, &reader);
  if (result.status != kStatusOk) return result;
  result.subscription = reader.u32();
  result.instance = reader.u64();
  if (!reader.finished()) {
    result.status = connection_->fail(kStatusBadMessage);
  } else if (name.empty()) {
    connection_->plain.insert(result.subscription);
  }
  return result;
}

NotificationResult Client::next_notification(std::chrono::milliseconds timeout) {
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
  // A failure has closed the connection, which the next call answers; this notification is there all the
  // same.
  if (connection_->plain.contains(result.subscription))
    static_cast<void>(acknowledge(result.subscription, result.sequence));
  return result;
}

bool Client::has_notification() const {
  return !connection_->pending.empty();
}

Status Client::acknowledge(std::uint32_t subscription, std::uint64_t sequence) {
  if (!connected()) return kStatusNotConnected;
  wire::Writer writer = connection_->begin(kAcknowledge);
  writer.u32(subscription);
  writer.u64(sequence);
  return connection_->socket.send();
}

NodesResult Client::nodes(std::string_view path, std::uint32_t max_nodes, std::string_view after) {
  NodesResult result;
  wire::Writer writer = connection_->begin(kNodes);
  writer.u32(max_nodes);
  writer.text(path);
  writer.text(after);
  wire::OctetSpan payload;
  wire::Reader reader(payload);
  result.status = connection_->ask(kNodes, &payload, &reader);
  if (result.status != kStatusOk) return result;
  const std::uint32_t count = reader.u32();
  for (std::uint32_t i = 0; i < count && reader.ok(); ++i) {
    Node node;
    node.path = reader.text();
    node.is_number = reader.u8() == kNumberValue;
    if (node.is_number) {
      node.number = static_cast<std::int64_t>(reader.u64());
    } else {
      node.text = reader.text();
    }
    result.nodes.push_back(std::move(node));
  }
  if (reader.finished()) return result;
  result.nodes.clear();
  result.status = connection_->fail(kStatusBadMessage);
  return result;
}

Status Client::set_text(std::string_view path, std::string_view text) {
  wire::Writer writer = connection_->begin(kSet);
  writer.text(path);
  writer.u8(kTextValue);
  writer.text(text);
  return connection_->ask_status(kSet);
}

Status Client::set_number(std::string_view path, std::int64_t number) {
  wire::Writer writer = connection_->begin(kSet);
  writer.text(path);
  writer.u8(kNumberValue);
  writer.u64(static_cast<std::uint64_t>(number));
  return connection_->ask_status(kSet);
}

Status Client::remove(std::string_view path) {
  connection_->begin(kDelete).text(path);
  return connection_->ask_status(kDelete);
}

}  // namespace kvtree

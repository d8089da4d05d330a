#include "platform/store/client/client_connection.h"

namespace kvtree {

SubscribeResult Client::subscribe(std::string_view path, std::string_view name) {
  SubscribeResult result;
  wire::Writer writer = connection_->begin(kSubscribe);
  writer.text(path);
  writer.text(name);
  wire::Reader reader;
  result.status = connection_->ask(kSubscribe, &reader);
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
    result.status = message.type == kNotification ? connection_->queue_notification(message)
                                                  : connection_->fail(kStatusBadMessage);
    if (result.status != kStatusOk) return result;
  }
  result = std::move(pending.front());
  pending.pop_front();
  // A failure closes the connection, which the next call reports; this notification is still valid.
  if (connection_->plain.contains(result.subscription))
    static_cast<void>(acknowledge(result.subscription, result.sequence));
  return result;
}

Status Client::acknowledge(std::uint32_t subscription, std::uint64_t sequence) {
  if (!connected()) return kStatusNotConnected;
  wire::Writer writer = connection_->begin(kAcknowledge);
  writer.u32(subscription);
  writer.u64(sequence);
  return connection_->socket.send();
}

}  // namespace kvtree

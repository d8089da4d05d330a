// Answers arrive in the order of the requests; the server's numbers of requests only have to confirm that.
#include "platform/store/client/async_client.h"

#include <chrono>
#include <utility>

#include "platform/core/wire/wire.h"
#include "platform/store/client/client_connection.h"
#include "platform/store/server/protocol.h"

namespace kvtree {

namespace {

constexpr std::chrono::milliseconds kNoWait{0};

bool read_batch(wire::Reader* answer, ColumnsResult* result) {
  result->status = answer->u32();
  if (result->status != kStatusOk) return answer->finished();
  result->end = answer->u8() != 0;
  result->rows = answer->u32();
  result->packed = answer->octets();
  return answer->finished();
}

bool read_subscription(wire::Reader* answer, SubscribeResult* result) {
  result->status = answer->u32();
  if (result->status != kStatusOk) return answer->finished();
  result->subscription = answer->u32();
  result->instance = answer->u64();
  return answer->finished();
}

}  // namespace

struct AsyncClient::Connection {
  std::string path;
  wire::ClientSocket socket{kMaxAnswer + 1024};
  std::uint32_t asked = 0;
  std::uint32_t answered = 0;

  Status fail(Status status) {
    socket.close();
    return status;
  }
  bool read_answer(const wire::Message& message, Arrival* arrival);
};

bool AsyncClient::Connection::read_answer(const wire::Message& message, Arrival* arrival) {
  if (message.request != ++answered) return false;
  wire::Reader answer(message.payload);
  if (message.type == (kColumns | kAnswer)) {
    arrival->what = Arrived::kBatch;
    return read_batch(&answer, &arrival->columns);
  }
  arrival->what = Arrived::kSubscribed;
  return message.type == (kSubscribe | kAnswer) && read_subscription(&answer, &arrival->subscription);
}

AsyncClient::AsyncClient(std::string socket_path) : connection_(std::make_unique<Connection>()) {
  connection_->path = std::move(socket_path);
}

AsyncClient::~AsyncClient() = default;

Status AsyncClient::connect() {
  connection_->asked = 0;
  connection_->answered = 0;
  return connection_->socket.connect(connection_->path, kNoWait);
}

void AsyncClient::close() {
  connection_->socket.close();
}
bool AsyncClient::connected() const {
  return connection_->socket.connected();
}
int AsyncClient::fd() const {
  return connection_->socket.fd();
}

Status AsyncClient::ask_columns(std::string_view path, std::uint32_t max_rows,
                                std::span<const std::uint8_t> columns) {
  if (!connected()) return kStatusNotConnected;
  wire::Writer writer = connection_->socket.begin(kColumns, ++connection_->asked);
  writer.u32(max_rows);
  writer.text(path);
  writer.octets(columns);
  return connection_->socket.send();
}

Status AsyncClient::ask_subscription(std::string_view path, std::string_view name, std::string_view version) {
  if (!connected()) return kStatusNotConnected;
  wire::Writer writer = connection_->socket.begin(kSubscribe, ++connection_->asked);
  writer.text(path);
  writer.text(name);
  if (!version.empty()) writer.text(version);
  return connection_->socket.send();
}

Status AsyncClient::acknowledge(std::uint32_t subscription, std::uint64_t sequence) {
  if (!connected()) return kStatusNotConnected;
  wire::Writer writer = connection_->socket.begin(kAcknowledge, 0);
  writer.u32(subscription);
  writer.u64(sequence);
  return connection_->socket.send();
}

Status AsyncClient::receive(Arrival* arrival) {
  *arrival = {};
  if (!connected()) return kStatusNotConnected;
  wire::Message message;
  const Status status = connection_->socket.receive(&message, kNoWait);
  if (status == kStatusTimedOut) return kStatusOk;
  if (status != kStatusOk) return connection_->fail(status);
  if (message.type == kNotification) {
    arrival->what = Arrived::kNotified;
    if (read_notification(message, &arrival->notification)) return kStatusOk;
  } else if (connection_->read_answer(message, arrival)) {
    return kStatusOk;
  }
  return connection_->fail(kStatusBadMessage);
}

}  // namespace kvtree

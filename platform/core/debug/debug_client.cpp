// The client of the debug service. Requests are answered in order, but once the client watches, prints arrive
// in between: those that arrive while an answer is awaited are stored, in a bounded queue, for next_line().
#include "platform/core/debug/debug_client.h"

#include <algorithm>
#include <deque>

#include "platform/core/debug/protocol.h"
#include "platform/core/files/directories.h"
#include "platform/core/wire/wire.h"

using namespace debug_detail;

namespace {

constexpr std::size_t kMostQueuedLines = 4096;

using Clock = std::chrono::steady_clock;

std::chrono::milliseconds until(Clock::time_point deadline) {
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()),
                  std::chrono::milliseconds(0));
}

bool read_print(const wire::Message& message, DebugLine* line) {
  wire::Reader in(message.payload);
  line->dropped = in.u64();
  line->flag = in.text();
  line->text = in.text();
  return in.finished();
}

bool read_flags(wire::Reader* in, std::vector<DebugFlagState>* flags) {
  for (std::uint32_t count = in->u32(); in->ok() && count != 0; --count) {
    DebugFlagState flag;
    flag.name_space = in->text();
    flag.name = in->text();
    flag.on = in->u8() != 0;
    if (in->ok()) flags->push_back(std::move(flag));
  }
  return in->finished();
}

}  // namespace

struct DebugClient::Connection {
  wire::ClientSocket socket{kMaxMessage};
  std::deque<DebugLine> queued;
  std::uint32_t request = 0;
  bool watching = false;

  bool queue_print(const wire::Message& message) {
    DebugLine line;
    if (queued.size() >= kMostQueuedLines || !read_print(message, &line)) return false;
    queued.push_back(std::move(line));
    return true;
  }

  // Sends the written request and receives its answer into *answer.
  Status exchange(std::uint16_t type, std::chrono::milliseconds timeout, wire::Message* answer) {
    if (Status s = socket.send()) return s;
    const auto deadline = Clock::now() + timeout;
    for (;;) {
      if (Status s = socket.receive(answer, until(deadline))) return s;
      if (answer->type == kTypePrint) {
        if (!queue_print(*answer)) return kStatusBadMessage;
      } else {
        return answer->type == type && answer->request == request ? kStatusOk : kStatusBadMessage;
      }
    }
  }
};

DebugClient::DebugClient(std::string socket_path, std::chrono::milliseconds timeout)
    : socket_path_(std::move(socket_path)), timeout_(timeout) {}

DebugClient::~DebugClient() = default;

std::string DebugClient::default_socket() {
  return event_manager_socket("/dev/mpls/vpn/debug");
}

int DebugClient::fd() const {
  return connection_ == nullptr ? -1 : connection_->socket.fd();
}

bool DebugClient::connected() const {
  return fd() >= 0;
}

Status DebugClient::connect() {
  connection_ = std::make_unique<Connection>();
  const Status status = connection_->socket.connect(socket_path_, timeout_);
  if (status != kStatusOk) close();
  return status;
}

void DebugClient::close() {
  connection_.reset();
}

Status DebugClient::list(std::vector<DebugFlagState>* flags) {
  if (!connected()) return kStatusNotConnected;
  connection_->socket.begin(kTypeList, ++connection_->request);
  wire::Message answer;
  if (Status s = connection_->exchange(kTypeList, timeout_, &answer)) return fail(s);
  wire::Reader in(answer.payload);
  if (Status s = in.u32()) return s;
  flags->clear();
  return read_flags(&in, flags) ? kStatusOk : fail(kStatusBadMessage);
}

Status DebugClient::set(std::string_view name, bool on) {
  if (!connected()) return kStatusNotConnected;
  wire::Writer out = connection_->socket.begin(kTypeSet, ++connection_->request);
  out.text(name);
  out.u8(on ? 1 : 0);
  return status_answer(kTypeSet);
}

Status DebugClient::watch() {
  if (!connected()) return kStatusNotConnected;
  connection_->socket.begin(kTypeWatch, ++connection_->request);
  const Status status = status_answer(kTypeWatch);
  if (status == kStatusOk) connection_->watching = true;
  return status;
}

Status DebugClient::next_line(std::chrono::milliseconds timeout, DebugLine* line) {
  if (!connected()) return kStatusNotConnected;
  if (!connection_->watching) return kStatusInvalid;
  if (!connection_->queued.empty()) {
    *line = std::move(connection_->queued.front());
    connection_->queued.pop_front();
    return kStatusOk;
  }
  wire::Message message;
  const Status status = connection_->socket.receive(&message, timeout);
  if (status == kStatusTimedOut) return status;
  if (status != kStatusOk) return fail(status);
  return message.type == kTypePrint && read_print(message, line) ? kStatusOk : fail(kStatusBadMessage);
}

// The answer to the request just written, when it is a status alone.
Status DebugClient::status_answer(unsigned type) {
  wire::Message answer;
  if (Status s = connection_->exchange(static_cast<std::uint16_t>(type), timeout_, &answer)) return fail(s);
  wire::Reader in(answer.payload);
  const Status status = in.u32();
  return in.finished() ? status : fail(kStatusBadMessage);
}

Status DebugClient::fail(Status status) {
  close();
  return status;
}

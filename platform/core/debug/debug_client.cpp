// The client of the debug service. Requests are answered in order, but once the client watches, prints arrive
// in between: those that arrive while an answer is awaited are stored, in a bounded queue, for next_line().
#include "platform/core/debug/debug_client.h"

#include <algorithm>

#include "platform/core/files/directories.h"

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

bool read_peers(wire::Reader* in, std::vector<DebugPeer>* peers) {
  for (std::uint32_t count = in->u32(); in->ok() && count != 0; --count) {
    DebugPeer peer;
    for (std::uint32_t* number : {&peer.id, &peer.user, &peer.process}) *number = in->u32();
    peer.role = in->text();
    for (std::uint32_t* number :
         {&peer.age, &peer.requests, &peer.requests_per_second, &peer.loop_milliseconds, &peer.queued}) {
      *number = in->u32();
    }
    if (in->ok()) peers->push_back(std::move(peer));
  }
  return in->finished();
}

}  // namespace

DebugClient::DebugClient(std::string socket_path, std::chrono::milliseconds timeout)
    : socket_path_(std::move(socket_path)), timeout_(timeout) {}

std::string DebugClient::default_socket() {
  return event_manager_socket("/dev/mpls/vpn/debug");
}

Status DebugClient::connect() {
  queued_.clear();
  watching_ = false;
  return socket_.connect(socket_path_, timeout_);
}

template <typename Item>
Status DebugClient::ask_for(std::uint16_t type, bool (*read)(wire::Reader*, std::vector<Item>*),
                            std::vector<Item>* items) {
  socket_.begin(type, ++request_);
  wire::Message answer;
  if (Status s = exchange(type, &answer)) return s;
  wire::Reader in(answer.payload);
  if (Status s = in.u32()) return s;
  items->clear();
  return read(&in, items) ? kStatusOk : fail(kStatusBadMessage);
}

Status DebugClient::list(std::vector<DebugFlagState>* flags) {
  return ask_for(kTypeList, read_flags, flags);
}

Status DebugClient::clients(std::vector<DebugPeer>* peers) {
  return ask_for(kTypeClients, read_peers, peers);
}

Status DebugClient::set(std::string_view name, bool on) {
  wire::Writer out = socket_.begin(kTypeSet, ++request_);
  out.text(name);
  out.u8(on ? 1 : 0);
  return status_answer(kTypeSet);
}

Status DebugClient::watch() {
  socket_.begin(kTypeWatch, ++request_);
  const Status status = status_answer(kTypeWatch);
  if (status == kStatusOk) watching_ = true;
  return status;
}

Status DebugClient::next_line(std::chrono::milliseconds timeout, DebugLine* line) {
  if (!connected()) return kStatusNotConnected;
  if (!watching_) return kStatusInvalid;
  if (!queued_.empty()) {
    *line = std::move(queued_.front());
    queued_.pop_front();
    return kStatusOk;
  }
  wire::Message message;
  if (Status s = socket_.receive(&message, timeout)) return s;
  return message.type == kTypePrint && read_print(message, line) ? kStatusOk : fail(kStatusBadMessage);
}

Status DebugClient::exchange(std::uint16_t type, wire::Message* answer) {
  if (Status s = socket_.send()) return s;
  const auto deadline = Clock::now() + timeout_;
  for (;;) {
    if (Status s = socket_.receive(answer, until(deadline))) return fail(s);
    if (answer->type == kTypePrint) {
      if (!queue_print(*answer)) return fail(kStatusBadMessage);
    } else {
      return answer->type == type && answer->request == request_ ? kStatusOk : fail(kStatusBadMessage);
    }
  }
}

// The answer to the request just written, when it is a status alone.
Status DebugClient::status_answer(std::uint16_t type) {
  wire::Message answer;
  if (Status s = exchange(type, &answer)) return s;
  wire::Reader in(answer.payload);
  const Status status = in.u32();
  return in.finished() ? status : fail(kStatusBadMessage);
}

bool DebugClient::queue_print(const wire::Message& message) {
  DebugLine line;
  if (queued_.size() >= kMostQueuedLines || !read_print(message, &line)) return false;
  queued_.push_back(std::move(line));
  return true;
}

Status DebugClient::fail(Status status) {
  close();
  return status;
}

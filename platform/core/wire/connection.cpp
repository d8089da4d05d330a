// One client of a server: reading, framing, answering, closing.
//
// Back-pressure: a client with too much queued is neither handled nor read until it takes its answers; the
// socket's own buffer then stops the client. Notifications are not held back by that, so beyond a second
// limit the client is closed. A client with complete messages in its buffer is not read either, until the
// server has handled them.
//
// A client that is only read is watched edge-triggered, or the kernel would look for more input after every
// request. Input that is left in the socket therefore has to be watched for anew.
//
// A client that ends the connection, breaks the framing or exceeds a limit is closed with a logged reason.
// Its Connection lives until the call that it is in has returned (shared_from_this, Visit); other
// clients are not affected.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/wire/users.h"
#include "platform/core/wire/wire.h"

namespace wire {

namespace {

constexpr std::size_t kFirstRequestBuffer = 16U << 10;
constexpr unsigned kReadsBeforeTrust = 16;
constexpr std::size_t kRetainedBuffer = 1U << 20;  // a larger output buffer is freed once it is empty

}  // namespace

const std::uint32_t Connection::kReadEvents = EPOLLIN | EPOLLRDHUP | EPOLLET;

Connection::Connection(Server* server, int fd, std::uint64_t id, Peer peer)
    : server_(server),
      fd_(fd),
      id_(id),
      peer_(std::move(peer)),
      role_(peer_role(peer_)),
      user_(server->users_->find(peer_, role_)),
      active_(clock_monotonic()) {}

Connection::~Connection() {
  if (fd_ >= 0) ::close(fd_);
}

void Connection::send(std::uint16_t type, std::uint32_t request, OctetSpan head, OctetSpan body) {
  append_frame(&out_, type, request, head, body);
  take_queued_message();
}

Writer Connection::begin(std::uint16_t type, std::uint32_t request) {
  frame_ = begin_frame(&out_, type, request);
  return Writer(&out_);
}

void Connection::finish() {
  finish_frame(&out_, frame_);
  take_queued_message();
}

// The write may end the connection, and with it the server's reference.
void Connection::take_queued_message() {
  if (!open() || peer_closed_) return drop_output();
  ++unsent_messages_;
  const std::shared_ptr<Connection> self = handling_ ? nullptr : shared_from_this();
  if (!handling_) {
    const bool was_waiting = (watched_ & EPOLLOUT) != 0;
    if (!was_waiting) write_queue();
    if (open()) watch();
  }
  if (open() && queued() - gated_.count_held() > server_->limits_.close_octets)
    close("it does not read what it is sent");
}

void Connection::close(const char* reason) {
  if (!open()) return;
  const std::shared_ptr<Connection> self = shared_from_this();
  end(reason);
}

void Connection::destroy() {
  std::erase_if(server_->ended_, [this](const auto& each) { return each.get() == this; });
}

// The caller keeps the connection alive.
void Connection::end(const char* reason) {
  event_fd_remove(server_->manager_, fd_);
  ::close(fd_);
  fd_ = -1;
  server_->forget(*this, reason);
}

void Connection::release() {
  held_ = false;
  if (!handling_) server_->note_answer(*this, clock_monotonic());
  const std::shared_ptr<Connection> self = shared_from_this();
  proceed();
}

bool Connection::paused() const {
  return held_ || queued() > server_->limits_.pause_octets ||
         unsent_messages_ >= server_->limits_.pause_messages;
}

void Connection::on_event(std::uint32_t events) {
  const Visit visit(this);
  if ((events & EPOLLOUT) != 0) write_queue();
  if (!open()) return;
  if ((watched_ & EPOLLIN) != 0) {
    leaves_input_ = (events & ~static_cast<std::uint32_t>(EPOLLIN | EPOLLOUT)) != 0;  // the end, for example
    if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0 && !fill()) return;
  } else if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
    if (waiting_ && !held_ && user_->trusted) return watch();  // the end is noticed after its messages
    return close(queued() > 0 || peer_closed_ ? "it went away with answers unread" : nullptr);
  }
  if (!server_->scheduled_) server_->read_step_ = event_step(server_->manager_);
  proceed();
}

// Waits for the server if there is a message to handle, else for the peer. A client that waits for the server
// is watched as before until the end of the slice: most are served in it.
void Connection::proceed() {
  if (!open() || handling_) return;
  if (has_message() && !paused()) return server_->enqueue(*this);
  if (peer_finished_ && !has_message() && queued() == 0 && !held_)
    return close(in_start_ == in_end_ ? nullptr : "it ended within a message");
  watch();
}

// Handles one message. The caller keeps the connection alive.
void Connection::serve() {
  handling_ = true;
  if (!paused()) handle_next();
  handling_ = false;
  if (!open() || (has_message() && !paused())) return;
  finish_service();
}

// Ends a series of messages: writes what they queued.
void Connection::finish_service() {
  server_->users_->leave(*this);
  if (queued() > 0) write_queue();
  proceed();
}

// A read ends after descriptors that the client passes, which the kernel discards and only recvmsg() reports:
// what follows them is left in the socket. recv() takes 0.1 us less. It is for a client that sends one
// message at a time and has passed no descriptors: nothing follows, or check_input() finds it.
ssize_t Connection::read_socket(std::span<std::uint8_t> room) {
  const bool was_lone = in_end_ == 0 && handled_since_read_ == 1;
  lone_reads_ = was_lone && !passes_descriptors_ ? lone_reads_ + 1 : 0;
  handled_since_read_ = 0;
  if (lone_reads_ > kReadsBeforeTrust) {
    lone_reads_ = kReadsBeforeTrust;
    if (!std::exchange(unchecked_, true)) server_->check_inputs_later();
    return recv(fd_, room.data(), room.size(), MSG_DONTWAIT);
  }
  iovec part{room.data(), room.size()};
  msghdr received{};
  received.msg_iov = &part;
  received.msg_iovlen = 1;
  const ssize_t got = recvmsg(fd_, &received, MSG_DONTWAIT);
  if (got > 0 && (received.msg_flags & MSG_CTRUNC) != 0) passes_descriptors_ = leaves_input_ = true;
  return got;
}

// Lets the event manager look for input that a read has left.
void Connection::check_input() {
  if (!std::exchange(unchecked_, false)) return;
  leaves_input_ = true;
  if (!handling_ && !waiting_) watch();
}

// Reads once. False if that closed the connection.
bool Connection::fill() {
  if (in_start_ > 0) {
    std::copy(in_.begin() + static_cast<std::ptrdiff_t>(in_start_),
              in_.begin() + static_cast<std::ptrdiff_t>(in_end_), in_.begin());
    in_end_ -= in_start_;
    in_start_ = 0;
  }
  if (in_.empty()) in_.resize(kFirstRequestBuffer);
  if (in_end_ > 0) make_room();
  const std::size_t room = in_.size() - in_end_;
  if (room == 0) {  // full of whole messages
    leaves_input_ = true;
    return true;
  }
  const ssize_t got = read_socket({in_.data() + in_end_, room});
  if (got > 0) {
    in_end_ += static_cast<std::size_t>(got);
    leaves_input_ = leaves_input_ || in_end_ == in_.size();
  } else if (got == 0) {
    peer_finished_ = true;
  } else if (errno != EAGAIN && errno != EINTR) {
    close(std::strerror(errno));
    return false;
  }
  return true;
}

// For the first message. An invalid header is refused by handle_next().
void Connection::make_room() {
  Message message;
  std::size_t needed = 0;
  const Status status =
      parse_frame(OctetSpan(in_).first(in_end_), server_->limits_.max_payload, &message, &needed);
  if (status == kStatusIncomplete && needed > in_.size()) in_.resize(needed);
}

void Connection::drain(const std::function<bool(const Message&)>& take) {
  const Visit visit(this);
  if (!open() || !fill()) return;
  Message message;
  std::size_t used = 0;
  const auto next = [&] {
    const OctetSpan data = OctetSpan(in_).subspan(in_start_, in_end_ - in_start_);
    return parse_frame(data, server_->limits_.max_payload, &message, &used) == kStatusOk;
  };
  for (; next() && take(message); used = 0) in_start_ += used;
}

bool Connection::has_message() const {
  if (in_end_ - in_start_ < kHeaderSize) return false;
  Message message;
  std::size_t used = 0;
  const OctetSpan data = OctetSpan(in_).subspan(in_start_, in_end_ - in_start_);
  return parse_frame(data, server_->limits_.max_payload, &message, &used) != kStatusIncomplete;
}

// At the end of a slice that left messages: writes what the handled ones queued, now or when the socket is
// writable, and stops reading.
void Connection::suspend(bool writes_now) {
  if (!open() || handling_) return;
  if (writes_now && queued() > 0) write_queue();
  if (open()) watch();
}

void Connection::begin_request(const Message& message) {
  ++handled_since_read_;
  is_unanswered_ = true;
  type_ = message.type;
  began_ = message.time;
}

// REQUIRES: has_message().
void Connection::handle_next() {
  Message message;
  std::size_t used = 0;
  const OctetSpan data = OctetSpan(in_).subspan(in_start_, in_end_ - in_start_);
  const Status status = parse_frame(data, server_->limits_.max_payload, &message, &used);
  if (status != kStatusOk) return refuse(status);
  message.time = server_->now_;
  in_start_ += used;
  incomplete_since_ = 0;
  if (!std::exchange(repeats_, false)) begin_request(message);
  if (!server_->on_message_(*this, message)) return close("a malformed request");
  if (repeats_) in_start_ -= used;
  if (in_start_ == in_end_) in_start_ = in_end_ = 0;
}

// The header of this answer is the same in every version, so that the peer understands it. It reveals
// nothing, so it does not wait for the gate.
void Connection::refuse(Status status) {
  if (status == kStatusVersionMismatch) {
    const bool is_alone = queued() == 0;
    send(kTypeVersionMismatch, 0, {});
    is_alone ? write_octets(queued()) : write_queue();
  }
  close(err_text(status));
}

void Connection::write_queue() {
  if (queued() > 0) write_octets(gated_.release(sent_ + queued()) - sent_);
  if (open() && gated_.count_held() > 0) await_gate();
}

void Connection::await_gate() {
  if (!std::exchange(awaits_gate_, true)) output_gate().waiting.push_back(weak_from_this());
}

// The gate has opened for octets of this client: they leave now, or when the socket is writable.
void Connection::leave_gate(bool writes_now) {
  awaits_gate_ = false;
  gated_.update();
  if (!open()) return;
  if (gated_.count_held() > 0) await_gate();
  if (handling_) return;
  if (writes_now) write_queue();
  proceed();
}

void Connection::write_octets(std::size_t count) {
  if (count > 0) {
    const ssize_t sent = ::send(fd_, out_.data() + out_start_, count, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
      if (errno != EAGAIN && errno != EINTR) lose_output(errno);
      return;
    }
    out_start_ += static_cast<std::size_t>(sent);
    sent_ += static_cast<std::uint64_t>(sent);
  }
  if (queued() > 0) {
    count_sent_messages();
    if (first_unsent_ < kRetainedBuffer) return;
    out_.erase(out_.begin(), out_.begin() + static_cast<std::ptrdiff_t>(first_unsent_));
    out_start_ -= first_unsent_;
  } else {
    out_.clear();
    if (out_.capacity() > kRetainedBuffer) out_.shrink_to_fit();
    unsent_messages_ = out_start_ = 0;
  }
  first_unsent_ = 0;
}

// A peer that has ended may have sent messages before, an acknowledgement, for example: those are handled. A
// peer that may only read has sent none that matters. One that has only shut down its receiving side can send
// nothing further.
void Connection::lose_output(int error) {
  std::uint8_t octet = 0;
  const bool has_input = in_start_ != in_end_ || ::recv(fd_, &octet, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
  const bool has_ended = error == EPIPE || error == ECONNRESET;
  if (!has_ended || !has_input || !user_->trusted) return close(std::strerror(error));
  ::shutdown(fd_, SHUT_RD);
  peer_closed_ = true;
  leaves_input_ = true;
  drop_output();
}

void Connection::drop_output() {
  out_.clear();
  out_start_ = first_unsent_ = unsent_messages_ = 0;
  gated_ = {};
  sent_ = 0;
}

// The queue may never be empty while others are appended.
void Connection::count_sent_messages() {
  Message message;
  std::size_t size = 0;
  const OctetSpan left = OctetSpan(out_).first(out_start_);
  while (parse_frame(left.subspan(first_unsent_), SIZE_MAX, &message, &size) == kStatusOk) {
    first_unsent_ += size;
    --unsent_messages_;
  }
}

// The deadline of a message is that of the peer: it does not pass while the server does not read.
void Connection::note_incomplete(bool waits_for_the_rest) {
  if (!waits_for_the_rest) {
    incomplete_since_ = 0;
  } else if (incomplete_since_ == 0) {
    incomplete_since_ = clock_monotonic();
    server_->watch_deadlines();
  }
}

// Watches for input unless enough is pending, and for room to write while messages are queued that may leave.
void Connection::watch() {
  const bool reads = !peer_finished_ && !paused() && !waiting_;
  note_incomplete(reads && in_start_ != in_end_);
  const bool writes = queued() > 0 && !gated_.is_held(sent_, sent_ + queued());
  // The end of a client that waits for the server is reported once, not in each wait.
  const std::uint32_t idle = waiting_ && user_->trusted ? EPOLLET : 0U;
  const std::uint32_t wanted = writes ? (reads ? EPOLLIN : 0U) | EPOLLOUT : reads ? kReadEvents : idle;
  if (wanted == watched_ && !(reads && leaves_input_)) return;
  watched_ = wanted;
  leaves_input_ = false;
  if (const Status status = event_fd_modify(server_->manager_, fd_, wanted)) close(err_text(status));
}

}  // namespace wire

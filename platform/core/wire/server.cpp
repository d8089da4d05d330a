// Clients of a named socket, on an event manager.
//
// A client is served in batches: one read, its complete messages handled (up to a limit), one write of what
// they queued. A request that arrives alone therefore costs a wait, a read and a write.
//
// Back-pressure: a client with too much queued is neither handled nor read until it takes its answers; the
// socket's own buffer then stops the client. Notifications are not held back by that, so beyond a second
// limit the client is closed. A posted function continues with the complete messages that a batch left, after
// every other client has been served.
//
// A client that ends the connection, breaks the framing or exceeds a limit is closed with a logged reason.
// Its Connection lives until the call that it is in has returned (shared_from_this); other clients are not
// affected.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/core/base/log.h"
#include "platform/core/wire/wire.h"

namespace wire {

namespace {

constexpr std::size_t kFirstRequestBuffer = 16U << 10;
constexpr std::size_t kRetainedBuffer = 1U << 20;  // a larger output buffer is freed once it is empty

std::function<void()>& output_barrier() {
  thread_local std::function<void()> barrier;  // each server belongs to one thread
  return barrier;
}

}  // namespace

void set_output_barrier(std::function<void()> barrier) {
  output_barrier() = std::move(barrier);
}

// --- Connection

Connection::Connection(Server* server, int fd, std::uint64_t id, Peer peer)
    : server_(server), fd_(fd), id_(id), peer_(std::move(peer)), role_(peer_role(peer_)) {}

Connection::~Connection() {
  if (fd_ >= 0) ::close(fd_);
}

void Connection::send(std::uint16_t type, std::uint32_t request, OctetSpan payload) {
  begin(type, request);
  out_.insert(out_.end(), payload.begin(), payload.end());
  finish();
}

Writer Connection::begin(std::uint16_t type, std::uint32_t request) {
  frame_ = begin_frame(&out_, type, request);
  return Writer(&out_);
}

void Connection::finish() {
  finish_frame(&out_, frame_);
  if (!open()) {
    out_.clear();
    return;
  }
  ++unsent_messages_;
  // The write may end the connection, and with it the server's reference.
  const std::shared_ptr<Connection> self = shared_from_this();
  if (!handling_) {
    const bool was_waiting = (watched_ & EPOLLOUT) != 0;
    if (!was_waiting) write_queue();
    if (open()) watch();
  }
  if (open() && queued() > server_->limits_.close_octets) close("it does not read what it is sent");
}

void Connection::close(const char* reason) {
  if (!open()) return;
  const std::shared_ptr<Connection> self = shared_from_this();
  end(reason);
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
  if (!open() || handling_) return;
  const std::shared_ptr<Connection> self = shared_from_this();
  proceed();
}

bool Connection::paused() const {
  return held_ || queued() > server_->limits_.pause_octets ||
         unsent_messages_ >= server_->limits_.pause_messages;
}

void Connection::on_event(std::uint32_t events) {
  const std::shared_ptr<Connection> self = shared_from_this();
  if ((events & EPOLLOUT) != 0) write_queue();
  if (!open()) return;
  if ((watched_ & EPOLLIN) != 0) {
    if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0 && !fill()) return;
  } else if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
    return close(queued() > 0 ? "it went away with answers unread" : nullptr);
  }
  proceed();
}

// Handles complete messages up to the batch's limit and writes what they queued.
void Connection::proceed() {
  handling_ = true;
  for (std::size_t i = 0; i < server_->limits_.messages_per_batch && !paused(); ++i) {
    if (!handle_next()) break;
  }
  handling_ = false;
  if (open() && queued() > 0) write_queue();
  if (!open()) return;
  if (has_message() && !paused()) {
    if (!continuing_) {
      continuing_ = true;
      event_post(server_->manager_, [weak = weak_from_this()] {
        const std::shared_ptr<Connection> self = weak.lock();
        if (self == nullptr || !self->open()) return;
        self->continuing_ = false;
        self->proceed();
      });
    }
  } else if (peer_finished_ && queued() == 0 && !held_) {
    return close(in_start_ == in_end_ ? nullptr : "it ended within a message");
  }
  watch();
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
  Message message;
  std::size_t needed = 0;
  // The header was checked on arrival; here it only gives the room that the message takes.
  const Status status =
      parse_frame(OctetSpan(in_).first(in_end_), server_->limits_.max_payload, &message, &needed);
  if (status == kStatusNotConnected && needed > in_.size()) in_.resize(needed);
  if (in_end_ == in_.size()) return true;  // full of whole messages
  const ssize_t got = read(fd_, in_.data() + in_end_, in_.size() - in_end_);
  if (got > 0) {
    in_end_ += static_cast<std::size_t>(got);
  } else if (got == 0) {
    peer_finished_ = true;
  } else if (errno != EAGAIN && errno != EINTR) {
    close(std::strerror(errno));
    return false;
  }
  return true;
}

bool Connection::has_message() const {
  Message message;
  std::size_t used = 0;
  const OctetSpan data = OctetSpan(in_).subspan(in_start_, in_end_ - in_start_);
  return parse_frame(data, server_->limits_.max_payload, &message, &used) != kStatusNotConnected;
}

// Returns true iff a message was handled and the connection is still open for the next.
bool Connection::handle_next() {
  Message message;
  std::size_t used = 0;
  const OctetSpan data = OctetSpan(in_).subspan(in_start_, in_end_ - in_start_);
  const Status status = parse_frame(data, server_->limits_.max_payload, &message, &used);
  if (status == kStatusNotConnected) return false;
  if (status != kStatusOk) {
    refuse(status);
    return false;
  }
  in_start_ += used;
  if (!server_->on_message_(*this, message)) {
    close("a malformed request");
    return false;
  }
  if (in_start_ == in_end_) in_start_ = in_end_ = 0;
  return open();
}

// The header of this answer is the same in every version, so that the peer understands it.
void Connection::refuse(Status status) {
  if (status == kStatusVersionMismatch) {
    send(kTypeVersionMismatch, 0, {});
    write_queue();
  }
  close(err_text(status));
}

void Connection::write_queue() {
  if (queued() > 0) {
    if (output_barrier()) output_barrier()();
    const ssize_t sent = ::send(fd_, out_.data() + out_start_, queued(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
      if (errno != EAGAIN && errno != EINTR) close(std::strerror(errno));
      return;
    }
    out_start_ += static_cast<std::size_t>(sent);
  }
  if (queued() > 0) {
    if (out_start_ < kRetainedBuffer) return;
    out_.erase(out_.begin(), out_.begin() + static_cast<std::ptrdiff_t>(out_start_));
  } else {
    out_.clear();
    if (out_.capacity() > kRetainedBuffer) out_.shrink_to_fit();
    unsent_messages_ = 0;
  }
  out_start_ = 0;
}

// Watches for input unless enough is pending, and for room to write while messages are queued.
void Connection::watch() {
  const bool reads = !peer_finished_ && !paused() && !continuing_;
  const std::uint32_t wanted = (reads ? EPOLLIN : 0U) | (queued() > 0 ? EPOLLOUT : 0U);
  if (wanted == watched_) return;
  watched_ = wanted;
  if (const Status status = event_fd_modify(server_->manager_, fd_, wanted)) close(err_text(status));
}

// --- Server

Server::Server(EventManager* manager, std::string name, Limits limits, MessageHandler on_message,
               CloseHandler on_close)
    : manager_(manager),
      name_(std::move(name)),
      limits_(limits),
      on_message_(std::move(on_message)),
      on_close_(std::move(on_close)) {}

Server::~Server() {
  stop();
}

void Server::start() {
  accepting_ = true;
  event_set_acceptor(manager_, [this](int fd) { adopt(fd); });
}

void Server::stop() {
  if (accepting_) event_set_acceptor(manager_, nullptr);
  accepting_ = false;
  while (!clients_.empty()) {
    const std::shared_ptr<Connection> first = clients_.begin()->second;
    first->end(nullptr);
  }
}

void Server::adopt(int fd) {
  adopt(fd, read_peer(fd));
}

void Server::adopt(int fd, Peer peer) {
  if (clients_.size() >= limits_.max_clients) {
    log_warning(name_.c_str(), "a client was turned away: there are %zu already", clients_.size());
    ::close(fd);
    return;
  }
  const std::uint64_t id = next_id_++;
  const auto connection = std::make_shared<Connection>(this, fd, id, std::move(peer));
  connection->watched_ = EPOLLIN;
  Connection* raw = connection.get();
  const Status status =
      event_fd_add(manager_, fd, EPOLLIN, [raw](int, std::uint32_t events) { raw->on_event(events); });
  if (status != kStatusOk) {
    log_error(name_.c_str(), "a client cannot be watched: %s", err_text(status));
    return;  // the connection closes its descriptor
  }
  clients_.emplace(id, connection);
}

Connection* Server::find(std::uint64_t id) const {
  const auto found = clients_.find(id);
  return found == clients_.end() ? nullptr : found->second.get();
}

void Server::for_each(const std::function<void(Connection&)>& visit) {
  std::vector<std::shared_ptr<Connection>> all;
  all.reserve(clients_.size());
  for (const auto& [id, connection] : clients_) all.push_back(connection);
  for (const std::shared_ptr<Connection>& connection : all) {
    if (connection->open()) visit(*connection);
  }
}

void Server::forget(Connection& connection, const char* reason) {
  if (reason != nullptr) {
    log_info(name_.c_str(), "client %llu closed: %s", static_cast<unsigned long long>(connection.id()),
             reason);
  }
  clients_.erase(connection.id());
  if (on_close_) on_close_(connection);
}

}  // namespace wire

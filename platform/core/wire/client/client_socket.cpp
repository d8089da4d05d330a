// The blocking end of a connection, with deadlines.
//
// The usual exchange takes exactly two system calls, one send and one receive: the socket itself has the
// timeout (SO_SNDTIMEO, SO_RCVTIMEO). Only messages that arrive in pieces, or that have another limit, are
// polled for with the remaining time.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/core/wire/wire.h"

namespace wire {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kFirstAnswerBuffer = 64U << 10;

// The socket treats a timeout of zero as "forever".
timeval socket_timeout(std::chrono::milliseconds timeout) {
  const auto bounded = std::max<std::int64_t>(timeout.count(), 1);
  timeval value{};
  value.tv_sec = bounded / 1000;
  value.tv_usec = bounded % 1000 * 1000;
  return value;
}

int milliseconds_left(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 1 << 30));
}

Status connect_status(int error) {
  switch (error) {
    case ENOENT:
    case ECONNREFUSED:
    case ENOTDIR:
      return kStatusNotConnected;
    case EAGAIN:
      return kStatusTimedOut;
    case EPERM:
      return kStatusAccess;
    default:
      return static_cast<Status>(error);
  }
}

// Who may create the socket there, root and this user: anyone else has replaced it.
bool is_trusted(uid_t server, const std::string& path) {
  if (server == 0 || is_own_user(server)) return true;
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  struct stat status {};
  return stat(directory.c_str(), &status) == 0 && status.st_uid == server;
}

}  // namespace

Status ClientSocket::connect(const std::string& path, std::chrono::milliseconds timeout) {
  close();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int nonblocking = timeout.count() == 0 ? SOCK_NONBLOCK : 0;
  fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | nonblocking, 0);
  if (fd_ < 0) return static_cast<Status>(errno);
  const timeval bound = socket_timeout(timeout);
  if (setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound) != 0 ||
      setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound) != 0 ||
      ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return fail(connect_status(errno));
  }
  if (!is_trusted(read_peer(fd_).uid, path)) return fail(kStatusUntrustedServer);
  timeout_ = timeout;
  return kStatusOk;
}

void ClientSocket::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  in_start_ = 0;
  in_end_ = 0;
}

Status ClientSocket::fail(Status status) {
  close();
  return status;
}

Writer ClientSocket::begin(std::uint16_t type, std::uint32_t request) {
  out_.clear();
  begin_frame(&out_, type, request);
  return Writer(&out_);
}

Status ClientSocket::send() {
  if (fd_ < 0) return kStatusNotConnected;
  finish_frame(&out_, 0);
  const ssize_t at_once = ::send(fd_, out_.data(), out_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (at_once < 0 && errno != EINTR && errno != EAGAIN) return fail(kStatusNotConnected);
  const std::size_t sent = at_once < 0 ? 0 : static_cast<std::size_t>(at_once);
  return sent == out_.size() ? kStatusOk : send_rest(sent);
}

Status ClientSocket::send_rest(std::size_t sent) {
  const Clock::time_point deadline = Clock::now() + timeout_;
  while (sent < out_.size()) {
    const ssize_t count = ::send(fd_, out_.data() + sent, out_.size() - sent, MSG_NOSIGNAL);
    if (count > 0) {
      sent += static_cast<std::size_t>(count);
    } else if (errno != EINTR && errno != EAGAIN) {
      return fail(kStatusNotConnected);
    }
    if (sent < out_.size() && Clock::now() >= deadline) return fail(kStatusTimedOut);
  }
  return kStatusOk;
}

Status ClientSocket::receive(Message* message) {
  return receive(message, timeout_);
}

Status ClientSocket::receive(Message* message, std::chrono::milliseconds timeout,
                             Clock::time_point deadline) {
  if (fd_ < 0) return kStatusNotConnected;
  // The first read uses the socket's own timeout if it is the requested one.
  bool block = timeout == timeout_;
  for (;;) {
    std::size_t used = 0;
    const OctetSpan data = OctetSpan(in_).subspan(in_start_, in_end_ - in_start_);
    const Status status = parse_frame(data, max_payload_, message, &used);
    if (status == kStatusOk) {
      in_start_ += used;
      return message->type == kTypeVersionMismatch ? fail(kStatusVersionMismatch) : kStatusOk;
    }
    if (status != kStatusIncomplete) return fail(status);
    if (deadline == Clock::time_point{}) deadline = Clock::now() + timeout;
    if (const Status failed = read_some(used, deadline, block)) {
      return failed == kStatusTimedOut ? failed : fail(failed);
    }
    block = false;
  }
}

// Adds to the input, in which a message of `needed` octets has begun.
Status ClientSocket::read_some(std::size_t needed, Clock::time_point deadline, bool block) {
  if (in_start_ > 0) {
    std::memmove(in_.data(), in_.data() + in_start_, in_end_ - in_start_);
    in_end_ -= in_start_;
    in_start_ = 0;
  }
  if (in_.size() < std::max(needed, kFirstAnswerBuffer)) in_.resize(std::max(needed, kFirstAnswerBuffer));
  if (!block) {
    pollfd readable{fd_, POLLIN, 0};
    const int ready = poll(&readable, 1, milliseconds_left(deadline));
    if (ready == 0) return kStatusTimedOut;
    if (ready < 0) return errno == EINTR ? kStatusOk : static_cast<Status>(errno);
  }
  const ssize_t got = recv(fd_, in_.data() + in_end_, in_.size() - in_end_, block ? 0 : MSG_DONTWAIT);
  if (got == 0) return kStatusNotConnected;
  if (got < 0) {
    if (errno == EINTR) return kStatusOk;
    if (errno == EAGAIN) return block ? kStatusTimedOut : kStatusOk;
    return kStatusNotConnected;
  }
  in_end_ += static_cast<std::size_t>(got);
  return kStatusOk;
}

}  // namespace wire

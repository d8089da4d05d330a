// States: closed -> opening (Open sent) -> open -> registering (Register sent) -> registered. A failure in
// any of them returns the session to closed: it closes the socket and tries again after retry_ns. Only the
// permission to register survives a connection. The loss and the return are logged once each, and so is a
// socket that refuses this user, although another reason for the loss has been logged.
//
// At most one request of the session's own is outstanding (awaited_packet_), besides a bounded number of
// notifications, which the master answers in order. Input is bounded before it is stored: a header that
// announces more than kMaxPayload ends the connection, and while the master does not read answers
// (kMaxOutput) its requests are not read.
#include "agent/agentx/session.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/core/base/log.h"

namespace agentx {
namespace {

constexpr std::size_t kReadChunk = 64U << 10U;
constexpr std::size_t kMaxOutput = 4U << 20U;
constexpr std::int64_t kNanosecondsPerTick = 10'000'000;  // of sysUpTime
// Two replies differ by their queueing delay; a greater difference means that a clock was set.
constexpr std::int64_t kUpTimeTolerance = 2 * std::int64_t{kNanosecondsPerSecond};

bool would_block(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

std::int64_t wall_offset() {
  return static_cast<std::int64_t>(clock_stamp()) - static_cast<std::int64_t>(clock_monotonic());
}

}  // namespace

Session::Session(SessionOptions options, Handler handler, NotifyHandler on_notified)
    : options_(std::move(options)), handler_(std::move(handler)), on_notified_(std::move(on_notified)) {}

Session::~Session() {
  if (fd_ >= 0) close(fd_);
}

void Session::allow_registration() {
  if (!std::exchange(may_register_, true)) step();
}

short Session::events() const {
  return static_cast<short>((output_.size() < kMaxOutput ? POLLIN : 0) | (output_.empty() ? 0 : POLLOUT));
}

std::uint64_t Session::deadline() const {
  if (fd_ < 0) return retry_at_;
  const std::uint64_t due = awaited_packet_ != 0 ? awaited_until_ : received_at_ + options_.ping_ns;
  return notifies_.empty() ? due : std::min(due, notified_until_);
}

void Session::step() {
  step_at(clock_monotonic());
}

void Session::step_at(std::uint64_t now) {
  if (fd_ < 0 && now >= retry_at_) connect();
  if (fd_ < 0) return;
  if (is_overdue(now)) lose("no reply");
  if (fd_ < 0 || awaited_packet_ != 0) return;
  if (state_ == State::kOpen && may_register_) {
    send_register();
  } else if (now >= received_at_ + options_.ping_ns) {
    Writer writer(&output_);
    write_ping(&writer, session_, next_packet_);
    expect_reply();
    flush();
  }
}

bool Session::is_overdue(std::uint64_t now) const {
  return (awaited_packet_ != 0 && now >= awaited_until_) || (!notifies_.empty() && now >= notified_until_);
}

std::uint32_t Session::notify(const std::function<void(Writer*)>& write) {
  if (!registered() || notifies_.size() >= kMaxNotifies || output_.size() >= kMaxOutput) return 0;
  const std::uint32_t packet = take_packet_number();
  Writer writer(&output_);
  begin_notify(&writer, session_, packet);
  write(&writer);
  writer.end();
  if (notifies_.empty()) notified_until_ = clock_monotonic() + options_.reply_ns;
  notifies_.push_back(packet);
  return packet;
}

void Session::flush_notifies() {
  if (fd_ >= 0) flush();
}

void Session::connect() {
  fd_ = options_.connect();
  if (fd_ < 0) return lose_attempt(errno);
  received_at_ = clock_monotonic();
  send_open();
}

// A socket that does not exist before snmpd runs has been logged; that its permissions lack this user shows
// later, and does not pass.
void Session::lose_attempt(int error) {
  const bool denied = error == EACCES;
  if (denied && !announced_denied_) announced_lost_ = false;
  announced_denied_ = announced_denied_ || denied;
  lose(std::string(std::strerror(error)) +
       (denied ? "; permit this user's group with \"agentXPerms\" in snmpd.conf and restart snmpd" : ""));
}

void Session::send_open() {
  state_ = State::kOpening;
  Writer writer(&output_);
  write_open(&writer, next_packet_, options_.description);
  expect_reply();
  flush();
}

void Session::send_register() {
  state_ = State::kRegistering;
  Writer writer(&output_);
  write_register(&writer, session_, next_packet_, options_.subtree.view());
  expect_reply();
  flush();
}

// 0 is not a packet's number.
std::uint32_t Session::take_packet_number() {
  const std::uint32_t packet = next_packet_++;
  if (next_packet_ == 0) next_packet_ = 1;
  return packet;
}

void Session::expect_reply() {
  awaited_packet_ = take_packet_number();
  awaited_until_ = clock_monotonic() + options_.reply_ns;
}

void Session::handle(short revents) {
  handled_at_ = clock_monotonic();
  if (fd_ >= 0 && (revents & POLLOUT) != 0) flush();
  if (fd_ >= 0 && (revents & (POLLIN | POLLHUP | POLLERR)) != 0) receive();
  if (fd_ >= 0 && (revents & (POLLHUP | POLLERR)) != 0) has_more_ = true;  // the end
  if (fd_ >= 0) answer_input();
  step_at(handled_at_);
}

void Session::receive() {
  // Only grows: clearing a whole chunk for each request would cost more than the request.
  if (input_.size() < received_ + kReadChunk) input_.resize(received_ + kReadChunk);
  const ssize_t count = recv(fd_, input_.data() + received_, kReadChunk, 0);
  const int error = errno;
  has_more_ = count == static_cast<ssize_t>(kReadChunk);
  if (count > 0) {
    received_ += static_cast<std::size_t>(count);
    received_at_ = handled_at_;
  } else if (count == 0) {
    lose("it closed the connection");
  } else if (!would_block(error)) {
    lose(std::strerror(error));
  }
}

// Answers all PDUs that have arrived with one write, unless the answers exceed the output limit.
void Session::answer_input() {
  bool more = true;
  while (more && fd_ >= 0 && output_.size() < kMaxOutput) {
    more = consume();
    if (fd_ >= 0) flush();
  }
}

// Consumes whole PDUs and leaves an incomplete one. True when it stopped because of the output limit.
bool Session::consume() {
  std::size_t at = 0;
  bool full = false;
  while (fd_ >= 0 && !full) {
    const Bytes rest = Bytes(input_).subspan(at, received_ - at);
    Header header;
    const HeaderState state = read_header(rest, &header);
    if (state == HeaderState::kBroken) {
      lose("it sent octets that are not AgentX");
      return false;
    }
    if (state == HeaderState::kIncomplete || rest.size() - kHeaderSize < header.payload) break;
    take_pdu(header, rest.subspan(kHeaderSize, header.payload));
    at += kHeaderSize + header.payload;
    full = output_.size() >= kMaxOutput;
  }
  if (fd_ >= 0 && at > 0) {
    std::copy(input_.begin() + static_cast<std::ptrdiff_t>(at),
              input_.begin() + static_cast<std::ptrdiff_t>(received_), input_.begin());
    received_ -= at;
  }
  return full;
}

void Session::take_pdu(const Header& header, Bytes payload) {
  if (header.type == PduType::kResponse) {
    take_response(header, payload);
  } else if (header.type == PduType::kClose) {
    lose("it closed the session");
  } else {
    Writer writer(&output_);
    if (header.session == session_ && state_ != State::kOpening) {
      handler_(header, payload, &writer);
    } else if (header.type != PduType::kCleanupSet) {
      begin_response(&writer, header, Error::kNotOpen, 0);
      writer.end();
    }
  }
}

void Session::take_response(const Header& header, Bytes payload) {
  const bool is_notify = std::ranges::find(notifies_, header.packet) != notifies_.end();
  const bool is_awaited = awaited_packet_ != 0 && header.packet == awaited_packet_;
  if (!is_notify && !is_awaited) return;  // a reply without a request
  Reader reader(payload, (header.flags & kFlagNetworkByteOrder) != 0);
  Response response;
  if (!reader.response(&response)) return lose("its reply is malformed");
  if (is_notify) return take_notified(header.packet, response.error);
  awaited_packet_ = 0;
  if (state_ == State::kOpening && response.error == 0) session_ = header.session;
  if (response.error == 0) note_up_time(response.uptime);
  take_reply(response.error);
}

void Session::take_notified(std::uint32_t packet, std::uint16_t error) {
  if (error == static_cast<std::uint16_t>(Error::kNotOpen)) return lose("it does not know the session");
  std::erase(notifies_, packet);
  notified_until_ = clock_monotonic() + options_.reply_ns;
  if (on_notified_) on_notified_(packet, error);
}

void Session::note_up_time(std::uint32_t hundredths) {
  const std::int64_t zero =
      static_cast<std::int64_t>(clock_stamp()) - std::int64_t{hundredths} * kNanosecondsPerTick;
  if (up_time_zero_ && std::abs(zero - *up_time_zero_) <= kUpTimeTolerance) return;
  up_time_zero_ = zero;
  wall_offset_ = wall_offset();
}

// The master states its up time when it answers, and a master that has requests all the time is asked
// nothing.
void Session::follow_wall_clock() {
  if (!up_time_zero_ || handled_at_ - wall_compared_at_ < kNanosecondsPerSecond) return;
  wall_compared_at_ = handled_at_;
  const std::int64_t step = wall_offset() - wall_offset_;
  if (std::abs(step) <= kUpTimeTolerance) return;
  *up_time_zero_ += step;
  wall_offset_ += step;
}

std::optional<std::int64_t> Session::up_time_zero() {
  follow_wall_clock();
  return up_time_zero_;
}

void Session::take_reply(std::uint16_t error) {
  if (error != 0) {
    const char* const what = state_ == State::kOpening       ? "opening a session"
                             : state_ == State::kRegistering ? "registering"
                                                             : "a ping";
    const bool is_taken = error == static_cast<std::uint16_t>(Error::kDuplicateRegistration);
    const std::string why = is_taken ? ", because another agent serves " +
                                           oid::to_text(options_.subtree.view()) + ": stop one of them"
                                     : "";
    lose(std::string("it refused ") + what + ": " + error_text(error) + why);
    return;
  }
  if (state_ == State::kOpening) {
    state_ = State::kOpen;  // step() continues from here
  } else if (state_ == State::kRegistering) {
    state_ = State::kRegistered;
    announced_lost_ = false;
    announced_denied_ = false;
    log_notice("", "master agent at %s: registered %s", options_.master.c_str(),
               oid::to_text(options_.subtree.view()).c_str());
  }
}

void Session::flush() {
  while (sent_ < output_.size()) {
    const ssize_t count = send(fd_, output_.data() + sent_, output_.size() - sent_, MSG_NOSIGNAL);
    if (count < 0) {
      if (errno == EINTR) continue;
      if (!would_block(errno)) lose_after_answers(std::strerror(errno));
      return;
    }
    sent_ += static_cast<std::size_t>(count);
  }
  output_.clear();
  sent_ = 0;
}

// A master that has ended may have answered notifications before. Its requests are not answered any more.
void Session::lose_after_answers(const std::string& why) {
  ssize_t count = 1;
  while (fd_ >= 0 && count > 0 && !notifies_.empty()) {
    output_.clear();
    sent_ = 0;
    input_.resize(std::max(input_.size(), received_ + kReadChunk));
    count = recv(fd_, input_.data() + received_, kReadChunk, 0);
    if (count <= 0) break;
    received_ += static_cast<std::size_t>(count);
    consume();
  }
  if (fd_ >= 0) lose(why);
}

void Session::lose(const std::string& why) {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  state_ = State::kClosed;
  session_ = 0;
  up_time_zero_.reset();
  awaited_packet_ = 0;
  notifies_.clear();
  ++losses_;
  received_ = 0;
  has_more_ = false;
  output_.clear();
  sent_ = 0;
  retry_at_ = clock_monotonic() + options_.retry_ns;
  if (announced_lost_) return;
  announced_lost_ = true;
  log_warning("", "master agent at %s: away (%s); trying again until it is back", options_.master.c_str(),
              why.c_str());
}

void Session::shut_down() {
  if (fd_ < 0) return;
  Writer writer(&output_);
  if (state_ == State::kRegistered) {
    write_unregister(&writer, session_, next_packet_++, options_.subtree.view());
  }
  if (session_ != 0) write_close(&writer, session_, next_packet_++);
  flush();
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  state_ = State::kClosed;
}

void Session::reconnect() {
  shut_down();
  announced_lost_ = true;  // the loss is intended: only the return is logged
  lose("");
  retry_at_ = 0;
}

int connect_unix(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::copy(path.begin(), path.end(), address.sun_path);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
  const int error = errno;
  close(fd);
  errno = error;
  return -1;
}

}  // namespace agentx

// One AgentX session over a stream socket, never blocking: connect, open, register, keep alive, and start
// again when any of that fails (RFC 2741 sections 7.1 and 7.2).
//
// Owned by one thread and driven by its event loop: poll fd() for events(), pass the result to handle(), and
// call step() after every handle() and when deadline() has passed. A kernel that announces what arrives once
// only (EPOLLET) is asked again whenever events() has changed, and while has_more(). The handler of requests
// appends the response to the session's output buffer; all requests of one read are answered with one write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/agentx/pdu.h"
#include "agent/oid/oid.h"
#include "platform/core/base/clock.h"

namespace agentx {

struct SessionOptions {
  std::string master;  // for messages: where the master agent is
  // A connected, non-blocking stream socket, or -1 with errno.
  std::function<int()> connect;
  std::string description;
  oid::Oid subtree;
  // Between two attempts to connect. A manager takes a gap for the deletion of every VRF: keep it short.
  std::uint64_t retry_ns = 300 * kNanosecondsPerMillisecond;
  // After this time without a message from the master, the session sends a ping.
  std::uint64_t ping_ns = 10 * kNanosecondsPerSecond;
  // A master can be busy for ten seconds with a large routing table of its own; a dead one closes the socket.
  std::uint64_t reply_ns = 30 * kNanosecondsPerSecond;
};

class Session {
 public:
  // Called for each request PDU; appends the response, if the PDU has one.
  using Handler = std::function<void(const Header&, Bytes payload, Writer*)>;

  // Called when the master has answered a Notify, with its packet number and the error.
  using NotifyHandler = std::function<void(std::uint32_t packet, std::uint16_t error)>;

  Session(SessionOptions options, Handler handler, NotifyHandler on_notified = nullptr);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Allows registration of the subtree, at once and in every new session.
  void allow_registration();
  // Queues a Notify with the variables that `write` appends, for flush_notifies() to send. Its packet number;
  // 0, with nothing queued, while the subtree is not registered or kMaxNotifies of them are unanswered.
  std::uint32_t notify(const std::function<void(Writer*)>& write);
  void flush_notifies();
  bool has_unanswered_notifies() const { return !notifies_.empty(); }
  static constexpr std::size_t kMaxNotifies = 16;
  // The number of lost sessions. What was unanswered when it increased remains unanswered.
  std::uint32_t losses() const { return losses_; }
  // When the master's sysUpTime was 0, in nanoseconds since 1970, according to its replies. Constant for the
  // life of a session, so that time stamps are, unless the wall clock is set or sysUpTime wraps. None before
  // the first reply of a session.
  std::optional<std::int64_t> up_time_zero();

  bool registered() const { return state_ == State::kRegistered; }

  int fd() const { return fd_; }  // -1: none
  short events() const;           // for poll()
  void handle(short revents);     // the result of poll()
  // When the last handle() began, by clock_monotonic(): a time for the handler of requests.
  std::uint64_t handled_at() const { return handled_at_; }
  // True when the socket may have more than the last handle() took.
  bool has_more() const { return has_more_; }
  void step();  // does what is due
  // When step() is next needed, by clock_monotonic().
  std::uint64_t deadline() const;
  // The same as shut_down(), and connects again at the next step.
  void reconnect();
  // Unregisters and closes, as far as that is possible without blocking.
  void shut_down();

 private:
  enum class State { kClosed, kOpening, kOpen, kRegistering, kRegistered };

  void step_at(std::uint64_t now);
  void connect();
  void send_open();
  void send_register();
  void receive();
  void answer_input();
  bool consume();
  void take_pdu(const Header& header, Bytes payload);
  void take_response(const Header& header, Bytes payload);
  void take_reply(std::uint16_t error);
  void take_notified(std::uint32_t packet, std::uint16_t error);
  void note_up_time(std::uint32_t hundredths);
  void follow_wall_clock();
  bool is_overdue(std::uint64_t now) const;
  void flush();
  std::uint32_t take_packet_number();
  void expect_reply();
  void lose_attempt(int error);
  void lose(const std::string& why);
  void lose_after_answers(const std::string& why);

  SessionOptions options_;
  Handler handler_;
  NotifyHandler on_notified_;
  State state_ = State::kClosed;
  int fd_ = -1;
  bool may_register_ = false;
  bool announced_lost_ = false;
  bool announced_denied_ = false;
  std::uint32_t session_ = 0;
  std::uint32_t next_packet_ = 1;
  std::uint32_t awaited_packet_ = 0;  // 0: no reply is awaited
  std::uint64_t awaited_until_ = 0;
  std::deque<std::uint32_t> notifies_;  // packets not answered yet, in the order sent
  std::uint64_t notified_until_ = 0;    // when the oldest of them is overdue
  std::uint32_t losses_ = 0;
  std::optional<std::int64_t> up_time_zero_;
  std::int64_t wall_offset_ = 0;        // of the wall clock from the monotonic one, for up_time_zero_
  std::uint64_t wall_compared_at_ = 0;  // the clocks, by the monotonic one
  std::uint64_t retry_at_ = 0;
  std::uint64_t received_at_ = 0;
  std::uint64_t handled_at_ = 0;
  std::vector<std::uint8_t> input_;  // the first received_ octets are the master's
  std::size_t received_ = 0;
  bool has_more_ = false;
  std::vector<std::uint8_t> output_;
  std::size_t sent_ = 0;  // octets of output_ that were sent
};

// A connected, non-blocking socket to a Unix socket address, or -1 with errno. For SessionOptions::connect.
int connect_unix(const std::string& path);

}  // namespace agentx

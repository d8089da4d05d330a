// One AgentX session over a stream socket, never blocking: connect, open, register, keep alive, and start
// again when any of that fails (RFC 2741 sections 7.1 and 7.2).
//
// Owned by one thread, driven by its event loop: poll fd() for events(), hand what came to handle(), and call
// step() when deadline() has passed or something was handled. Requests go to the handler, which appends the
// response to the session's output buffer; all that one reading brought is answered by one writing.
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
  oid::Oid id;  // may be empty
  std::string description;
  oid::Oid subtree;
  // Between two attempts to connect. A manager takes a gap for the end of every VRF: keep it short.
  std::uint64_t retry_ns = 300 * kNanosecondsPerMillisecond;
  // Without a word from the master for this long, it is asked whether the session is still there.
  std::uint64_t ping_ns = 10 * kNanosecondsPerSecond;
  // A master can be busy for ten seconds with a large routing table of its own; one that is dead closes the
  // socket.
  std::uint64_t reply_ns = 30 * kNanosecondsPerSecond;
};

class Session {
 public:
  // Called for each PDU that asks for something; appends the response, if the PDU has one.
  using Handler = std::function<void(const Header&, Bytes payload, Writer*)>;

  // Called when the master has answered a Notify, with its packet number and the error.
  using NotifyHandler = std::function<void(std::uint32_t packet, std::uint16_t error)>;

  Session(SessionOptions options, Handler handler, NotifyHandler on_notified = nullptr);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // From now on the subtree is registered, at once and after every re-opening. Until then the session is only
  // open.
  void allow_registration();
  // Queues a Notify with the variables that `write` appends, for flush_notifies() to send; its packet number,
  // or 0 and nothing is queued when the subtree is not registered or kMaxNotifies of them are not answered
  // yet.
  std::uint32_t notify(const std::function<void(Writer*)>& write);
  void flush_notifies();
  static constexpr std::size_t kMaxNotifies = 16;
  // How often a session was lost: what was not answered before it counted up never will be.
  std::uint32_t losses() const { return losses_; }
  // When the master's sysUpTime was 0, in nanoseconds since 1970, as its replies tell. It stays the same for
  // the life of a session, so that time stamps do, unless the wall clock is set or sysUpTime wraps. None
  // before the first reply of a session.
  std::optional<std::int64_t> up_time_zero() const { return up_time_zero_; }

  bool registered() const { return state_ == State::kRegistered; }
  bool connected() const { return fd_ >= 0; }

  int fd() const { return fd_; }  // -1: none
  short events() const;           // for poll()
  void handle(short revents);     // what poll() found
  void step();                    // what is due by now
  // When step() is next needed, by clock_monotonic().
  std::uint64_t deadline() const;
  // Takes leave of the master: unregisters and closes, as far as that goes without waiting.
  void shut_down();

 private:
  enum class State { kClosed, kOpening, kOpen, kRegistering, kRegistered };

  void connect();
  void send_open();
  void send_register();
  void receive();
  void answer_input();
  bool consume();
  void take_pdu(const Header& header, Bytes payload);
  void take_response(const Header& header, Bytes payload);
  void take_reply(std::uint16_t error);
  void take_notified(const Header& header, Bytes payload);
  void note_up_time(std::uint32_t hundredths);
  bool is_overdue(std::uint64_t now) const;
  void flush();
  void expect_reply();
  void lose(const std::string& why);

  SessionOptions options_;
  Handler handler_;
  NotifyHandler on_notified_;
  State state_ = State::kClosed;
  int fd_ = -1;
  bool may_register_ = false;
  bool announced_lost_ = false;
  std::uint32_t session_ = 0;
  std::uint32_t next_packet_ = 1;
  std::uint32_t awaited_packet_ = 0;  // 0: no reply is awaited
  std::uint64_t awaited_until_ = 0;
  std::deque<std::uint32_t> notifies_;  // packets not answered yet, in the order sent
  std::uint64_t notified_until_ = 0;    // when the oldest of them is overdue
  std::uint32_t losses_ = 0;
  std::optional<std::int64_t> up_time_zero_;
  std::uint64_t retry_at_ = 0;
  std::uint64_t heard_at_ = 0;
  std::vector<std::uint8_t> input_;  // of which the first received_ octets came from the master
  std::size_t received_ = 0;
  std::vector<std::uint8_t> output_;
  std::size_t sent_ = 0;  // octets of output_ that are gone
};

// A connected, non-blocking socket to a Unix socket address, or -1 with errno. For SessionOptions::connect.
int connect_unix(const std::string& path);

}  // namespace agentx

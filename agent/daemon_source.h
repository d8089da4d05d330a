// The daemon as a row source: one client connection that never waits.
//
// Bounds: a batch that is older than call_timeout fails, with all that are under way, and the connection is
// closed. While the daemon is away batches fail at once; one attempt to connect is made every retry interval.
// After a time-out all batches time out at once, until the daemon answers a request on a new connection. So a
// daemon that hangs delays one request, and one that was busy is asked again as soon as it answers.
//
// A program whose event loop cannot answer later calls wait(). One request PDU may spend request_budget on
// waiting.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

#include "agent/rows/row_source.h"
#include "platform/core/base/clock.h"
#include "platform/store/client/async_client.h"

namespace agent {

struct DaemonLimits {
  std::chrono::milliseconds call_timeout{500};
  std::uint64_t request_budget_ns = 500 * kNanosecondsPerMillisecond;
  std::uint64_t retry_ns = 200 * kNanosecondsPerMillisecond;
  std::uint64_t silence_ns = kNanosecondsPerSecond;
  // The service of the daemon may set the rights to the socket when the daemon has started: with 10,000 VRFs
  // that is up to two seconds after it has created the socket.
  std::uint64_t denial_ns = 10 * kNanosecondsPerSecond;
};

// What a user does about missing rights.
struct AccessAdvice {
  const char* connect;
  const char* subscribe;
};

inline constexpr AccessAdvice kSubAgentAccess = {
    "add the sub-agent's user to the daemon's group (mpls_vpn_mib)",
    "add the sub-agent's user to the agents' group (mpls_vpn_agent)"};

class DaemonSource : public tables::RowSource {
 public:
  DaemonSource(std::string socket_path, DaemonLimits limits, const AccessAdvice& access = kSubAgentAccess);

  void read(const tables::BatchRequest& request, Done done) override;

  // Starts a new request PDU, whose budget counts from its first batch or wait.
  void begin_request() { budget_ends_ = UINT64_MAX; }
  // Waits until a batch that is under way has arrived or failed. False, without waiting, when none is under
  // way or the budget is spent.
  bool wait();
  // True while a batch is under way.
  bool is_asked() const { return !calls_.empty() && !is_silent_; }
  // True once the daemon has answered with data; stays true.
  bool had_data() const { return had_data_; }
  // Until the daemon has answered with data, at first and after it was away: reads the path when an attempt
  // is due.
  void probe(const std::string& path);

  int fd() const { return client_.fd(); }                     // -1: none
  std::uint32_t connections() const { return connections_; }  // up to now
  // Takes the batches that have arrived, or notices that the daemon has closed the connection.
  void handle_readable();
  // Connects, and fails what is too old, when that is due.
  void step();
  // After an exception: fails what is under way, and connects again later.
  void start_over();
  // Fails what is under way, and connects again at the next step.
  void reconnect();
  // True while the daemon is away, once that was logged.
  bool is_away() const { return announced_away_; }
  // When step() is next needed, by clock_monotonic().
  std::uint64_t deadline() const;

 private:
  struct Call {
    std::uint64_t overdue_at;
    Done done;
  };

  void start_budget(std::uint64_t now);
  bool needs_probe() const { return !had_data_ || announced_away_; }
  void take(const kvtree::ColumnsResult& result);
  void note(Status status);
  Status await_answer();
  void drop(Status status);
  void lose(Status status);
  void report(Status status);

  std::string socket_path_;
  DaemonLimits limits_;
  AccessAdvice access_;
  kvtree::AsyncClient client_;
  std::deque<Call> calls_;  // under way, in the order of their answers
  std::uint32_t connections_ = 0;
  bool probing_ = false;
  std::uint64_t retry_at_ = 0;
  std::uint64_t budget_ends_ = UINT64_MAX;
  bool is_silent_ = false;  // a batch has timed out, and the daemon has not answered since
  bool had_data_ = false;
  bool announced_away_ = false;
  std::uint64_t denied_since_ = 0;  // by clock_monotonic(); 0: not
  bool announced_denial_ = false;
};

}  // namespace agent

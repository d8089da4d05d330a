// The daemon as a row source: one client connection that never blocks a request for long.
//
// Bounds: no call takes longer than call_timeout. One request PDU may spend request_budget on the daemon
// before its next call is refused, so that a PDU takes at most the sum of the two. While the daemon is away
// calls fail at once; one attempt to connect is made every retry_interval. After a call has timed out all
// calls do at once, until the daemon answers a request on a new connection, for which this process does not
// wait. So a daemon that hangs delays one request, and one that was busy is asked again as soon as it
// answers.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "agent/rows/row_source.h"
#include "platform/core/base/clock.h"
#include "platform/store/client/client.h"

namespace agent {

struct DaemonLimits {
  std::chrono::milliseconds call_timeout{500};
  std::uint64_t request_budget_ns = 500 * kNanosecondsPerMillisecond;
  std::uint64_t retry_ns = 200 * kNanosecondsPerMillisecond;
  std::uint64_t silence_ns = kNanosecondsPerSecond;
};

class DaemonSource : public tables::RowSource {
 public:
  DaemonSource(std::string socket_path, DaemonLimits limits);

  kvtree::GetResult get(std::string_view path) override;
  kvtree::WalkResult walk(std::string_view path, std::uint32_t max_rows) override;

  // Starts a new request PDU and its budget.
  void begin_request();
  // True once the daemon has answered with data; stays true.
  bool had_data() const { return had_data_; }
  // Until the daemon has answered with data: reads the path when an attempt is due.
  void probe(std::string_view path);

  int fd() const { return client_.fd(); }  // -1: none; readable: the daemon closed it, or answers again
  void handle_readable();
  // Connects when that is due.
  void step();
  // When step() is next needed, by clock_monotonic().
  std::uint64_t deadline() const;

 private:
  // kStatusOk if the daemon can be asked.
  Status prepare();
  void note(Status status);
  void lose(Status status);

  std::string socket_path_;
  DaemonLimits limits_;
  kvtree::Client client_;
  std::uint64_t retry_at_ = 0;
  std::uint64_t budget_ends_ = 0;
  bool is_silent_ = false;  // a call has timed out, and the daemon has not answered since
  bool had_data_ = false;
  bool announced_away_ = false;
};

}  // namespace agent

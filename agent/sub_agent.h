// The sub-agent as a whole: session, responder, tables, traps and the connections to the daemon, and the poll
// loop that drives them. One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/agentx/session.h"
#include "agent/daemon_source.h"
#include "agent/responder.h"
#include "agent/tables/mib.h"
#include "agent/trap_feed.h"
#include "platform/core/base/clock.h"

namespace agent {

struct SubAgentOptions {
  std::string agentx_socket;
  std::string daemon_socket;
  std::uint64_t row_age_ns = kNanosecondsPerSecond;
  bool verbose = false;  // a log line for each request
  DaemonLimits daemon_limits;
  // How to reach the master agent; by default the Unix socket agentx_socket.
  std::function<int()> connect_master;
};

class SubAgent {
 public:
  explicit SubAgent(const SubAgentOptions& options);

  // Waits for the next event, at most until something is due or for max_wait_ms (-1: no bound), and handles
  // it. True when wake_fd (-1: none) became readable.
  bool run_once(int wake_fd, int max_wait_ms);
  bool registered() const { return session_.registered(); }
  void shut_down() { session_.shut_down(); }

 private:
  void answer(const agentx::Header& request, agentx::Bytes payload, agentx::Writer* writer);
  void step();
  int wait_ms(int max_wait_ms) const;

  bool verbose_;
  DaemonSource daemon_;
  tables::Mib mib_;
  Responder responder_;
  agentx::Session session_;
  TrapFeed traps_;
  std::uint64_t flood_end_ = UINT64_MAX;  // when the log has to be asked for the count of a flood
};

}  // namespace agent

// The sub-agent as a whole: session, responder, tables, traps and the connections to the daemon, and the poll
// loop that drives them. One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/agentx/session.h"
#include "agent/daemon_source.h"
#include "agent/responder.h"
#include "agent/service/query_watch.h"
#include "agent/tables/mib.h"
#include "agent/trap_feed.h"
#include "agent/watched_descriptors.h"
#include "platform/core/base/clock.h"

namespace agent {

struct SubAgentOptions {
  std::string agentx_socket;
  std::string daemon_socket;
  std::uint64_t row_age_ns = tables::kRowAgeMs * kNanosecondsPerMillisecond;
  bool verbose = false;  // a log line for each request
  DaemonLimits daemon_limits;
  // How to reach the master agent; by default the Unix socket agentx_socket.
  std::function<int()> connect_master;
};

// Sends notifications to the master agent in Notify PDUs.
class MasterSink : public TrapSink {
 public:
  explicit MasterSink(agentx::Session& session) : session_(&session) {}
  bool ready() const override { return !is_ended_ && session_->registered(); }
  // Sends no more, until resume().
  void end() { is_ended_ = true; }
  void resume() { is_ended_ = false; }
  Sent send(const TrapNotification& notification, std::uint32_t* packet) override;
  void flush() override { session_->flush_notifies(); }
  std::uint32_t losses() const override { return session_->losses(); }

 private:
  agentx::Session* session_;
  bool is_ended_ = false;
};

class SubAgent {
 public:
  explicit SubAgent(const SubAgentOptions& options);

  // Waits for the next event, at most until something is due or for max_wait_ms (-1: no bound), and handles
  // it. True when wake_fd (-1: none) became readable.
  bool run_once(int wake_fd, int max_wait_ms);
  bool registered() const { return session_.registered(); }
  // True while an answer of the daemon is under way.
  bool awaits_daemon() const { return daemon_.is_asked() || traps_.subscribes(); }
  // How it is, for the service manager.
  enum class Condition { kWaitsForDaemon, kWaitsForMaster, kServes, kLacksDaemon };
  Condition condition() const;
  // Connects to the daemon and the master agent again, as after a start. Notifications that the master agent
  // has are confirmed first.
  void reconnect();
  // Ends the session with the master agent, which may first confirm the notifications that it has: those
  // would be sent again otherwise.
  void shut_down();

 private:
  void answer(const agentx::Header& request, agentx::Bytes payload, agentx::Writer* writer);
  void step();
  void await_confirmations();
  std::uint64_t deadline() const;

  bool verbose_;
  bool started_ = false;
  DaemonSource daemon_;
  tables::Mib mib_;
  Responder responder_;
  agentx::Session session_;
  MasterSink sink_;
  TrapFeed traps_;
  WatchedDescriptors watched_;
  QueryWatch queries_;
  std::uint64_t flood_end_ = UINT64_MAX;  // when the log has to be asked for the count of a flood
};

}  // namespace agent

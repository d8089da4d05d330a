// The path of a trap: from the daemon, which retains it until it is acknowledged, to the master agent, which
// answers its Notify.
//
// A trap is acknowledged to the daemon only after the master has answered its Notify. Traps that a master
// left unanswered are sent to the next one, in the same order. So, within kMaxTraps, no trap is lost and none
// overtakes another, but one whose answer was lost is sent twice. The daemon sends a window of traps in
// advance; if it disconnects, those received before stay here and are sent first.
//
// A session that is not registered does not subscribe: of two sub-agents, the one that the master refused
// must not take the traps of the other. One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "agent/agentx/session.h"
#include "agent/daemon_source.h"
#include "platform/store/client/client.h"

namespace agent {

class TrapFeed {
 public:
  // The session must outlive it.
  TrapFeed(std::string socket_path, DaemonLimits limits, agentx::Session& session);

  int fd() const { return client_.fd(); }  // -1: none
  void handle_readable();
  // The master's answer to the Notify in this packet.
  void take_answer(std::uint32_t packet, std::uint16_t error);
  // Subscribes when that is due, sends what can be sent, acknowledges what was answered.
  void step();
  // When step() is next needed, by clock_monotonic().
  std::uint64_t deadline() const;

  // For traps of several daemon instances that ended while there was no master.
  static constexpr std::size_t kMaxTraps = 4096;

 private:
  struct Trap {
    std::uint64_t instance = 0;
    std::uint64_t sequence = 0;
    std::uint32_t packet = 0;  // of its Notify; 0: not sent
    bool done = false;
    kvtree::Octets record;
  };

  void subscribe();
  void take(kvtree::NotificationResult notification);
  void take_all();
  void keep(Trap trap);
  void lose_connection(Status status);
  void send();
  bool send_one(Trap* trap);
  void drop_done();
  void acknowledge();
  void note_lost(std::uint64_t count, const char* where);

  std::string socket_path_;
  DaemonLimits limits_;
  agentx::Session* session_;
  kvtree::Client client_;
  std::uint64_t retry_at_ = 0;
  Status announced_ = kStatusOk;      // the refusal that was logged last
  std::uint32_t session_losses_ = 0;  // of connections to the master, as far as processed
  std::uint32_t subscription_ = 0;
  std::uint64_t instance_ = 0;      // of the daemon's queue
  std::uint64_t received_ = 0;      // the highest sequence number of this instance
  std::uint64_t done_ = 0;          // the highest that the master has
  std::uint64_t acknowledged_ = 0;  // the highest acknowledged on this connection
  std::uint64_t lost_ = 0;          // reported by the daemon, or beyond kMaxTraps
  std::deque<Trap> traps_;
};

}  // namespace agent

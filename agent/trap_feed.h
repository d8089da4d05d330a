// The path of a trap: from the daemon, which retains it until it is acknowledged, to a sink, the master agent
// or the snmpd that this code is part of.
//
// A trap is acknowledged to the daemon only after the sink has it. Traps that a master left unanswered are
// sent to the next one, in the same order. So, within kMaxTraps, no trap is lost and none overtakes another,
// but one whose answer was lost is sent twice. The daemon sends a window of traps in advance; if it
// disconnects, those received before stay here and are sent first.
//
// A sink that is not ready does not subscribe: of two that serve the MIB, the one that was refused must not
// take the traps of the other. One thread; never waits.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "agent/daemon_source.h"
#include "agent/trap_notification.h"
#include "platform/store/client/async_client.h"

namespace agent {

class TrapSink {
 public:
  virtual ~TrapSink() = default;
  // True while the sink serves the MIB.
  virtual bool ready() const = 0;
  enum class Sent { kDone, kAwaitsAnswer, kNotNow };
  // kAwaitsAnswer: *packet, which is not 0, identifies the notification in the answer.
  virtual Sent send(const TrapNotification& notification, std::uint32_t* packet) = 0;
  virtual void flush() {}
  // Increases when what awaits an answer will have none.
  virtual std::uint32_t losses() const { return 0; }
};

class TrapFeed {
 public:
  // The sink must outlive it.
  TrapFeed(std::string socket_path, DaemonLimits limits, TrapSink& sink,
           const AccessAdvice& access = kSubAgentAccess);

  int fd() const { return client_.fd(); }                     // -1: none
  std::uint32_t connections() const { return connections_; }  // up to now
  void handle_readable();
  // The sink has the notification of this packet, or has refused it (a text; null for none).
  void take_answer(std::uint32_t packet, const char* refusal);
  // Subscribes when that is due, sends what can be sent, acknowledges what was answered.
  void step();
  // After an exception: subscribes again later. What was received stays.
  void start_over() { lose_connection(kStatusNoMemory); }
  // When step() is next needed, by clock_monotonic().
  std::uint64_t deadline() const;
  // True while some are not yet acknowledged.
  bool has_traps() const { return !traps_.empty() || done_ != acknowledged_; }
  // True while the daemon's answer to the subscription is under way.
  bool subscribes() const { return client_.connected() && !subscribed_; }
  // Acknowledges what the sink has, before the end.
  void finish();

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
  void take_subscription(const kvtree::SubscribeResult& result);
  void take(kvtree::NotificationResult notification);
  void keep(Trap trap);
  void lose_connection(Status status);
  void send();
  bool send_one(Trap* trap);
  void drop_done();
  void acknowledge(bool at_once);
  void note_lost(std::uint64_t count, const char* where);

  std::string socket_path_;
  DaemonLimits limits_;
  TrapSink* sink_;
  AccessAdvice access_;
  kvtree::AsyncClient client_;
  std::uint32_t connections_ = 0;
  std::uint64_t retry_at_ = 0;
  Status announced_ = kStatusOk;        // the refusal that was logged last
  std::uint32_t sink_losses_ = 0;       // as far as processed
  bool subscribed_ = false;             // the daemon has answered
  std::uint64_t subscribed_until_ = 0;  // when its answer is overdue
  std::uint32_t subscription_ = 0;
  std::uint64_t instance_ = 0;      // of the daemon's queue
  std::uint64_t received_ = 0;      // the highest sequence number of this instance
  std::uint64_t done_ = 0;          // the highest that the master has
  std::uint64_t acknowledged_ = 0;  // the highest acknowledged on this connection
  std::uint64_t lost_ = 0;          // reported by the daemon, or beyond kMaxTraps
  std::deque<Trap> traps_;
};

}  // namespace agent

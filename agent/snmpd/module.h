// The MIB inside snmpd: the handler of its subtree, and what drives the connections to the daemon from
// snmpd's event loop. snmpd's one thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/daemon_source.h"
#include "agent/service/query_watch.h"
#include "agent/snmpd/netsnmp.h"
#include "agent/snmpd/requests.h"
#include "agent/snmpd/settings.h"
#include "agent/tables/mib.h"
#include "agent/trap_feed.h"

namespace snmpd {

// A descriptor for which snmpd calls a function when it is readable.
class WatchedDescriptor {
 public:
  WatchedDescriptor(void (*function)(int, void*), void* argument)
      : function_(function), argument_(argument) {}
  ~WatchedDescriptor() { watch(-1); }
  WatchedDescriptor(const WatchedDescriptor&) = delete;
  WatchedDescriptor& operator=(const WatchedDescriptor&) = delete;
  void watch(int fd);  // in the place of the former one; -1: none

 private:
  void (*function_)(int, void*);
  void* argument_;
  int fd_ = -1;
};

// Hands notifications to snmpd, which sends them before the call returns.
class SnmpdSink : public agent::TrapSink {
 public:
  bool ready() const override { return ready_; }
  Sent send(const agent::TrapNotification& notification, std::uint32_t* packet) override;
  void set_ready(bool ready) { ready_ = ready; }

 private:
  bool ready_ = false;
};

class Module {
 public:
  explicit Module(const Settings& settings);
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  const Settings& settings() const { return settings_; }

 private:
  static int handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                    netsnmp_agent_request_info* info, netsnmp_request_info* requests);
  void register_subtree();
  void refuse();  // logs once that another agent serves the subtree
  void unregister_subtree();
  void fail(netsnmp_agent_request_info* info, netsnmp_request_info* requests);  // after an exception
  void set_up_time();
  // An event: calls the function, does what is due, answers what waits, and asks snmpd for the next event.
  template <typename Function>
  void run(const char* where, const Function& function);
  void step();
  void start_alarm();

  Settings settings_;
  agent::DaemonSource daemon_;
  tables::Mib mib_;
  Requests requests_;
  SnmpdSink sink_;
  agent::TrapFeed traps_;
  agent::QueryWatch queries_;
  WatchedDescriptor rows_readable_;
  WatchedDescriptor traps_readable_;
  netsnmp_handler_registration* registration_ = nullptr;
  std::optional<std::int64_t> up_time_zero_;
  std::uint64_t register_at_ = 0;
  bool must_start_over_ = false;         // after exceptions
  std::uint64_t retry_at_ = UINT64_MAX;  // when that is tried again
  bool announced_refusal_ = false;
  bool announced_service_ = false;
  unsigned alarm_ = 0;  // 0: none
  std::uint64_t alarm_at_ = 0;
};

}  // namespace snmpd

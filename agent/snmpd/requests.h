// The requests of managers: each call of snmpd brings some variables of one PDU, which are answered at once
// or, when the daemon's answer is under way, delegated and answered later, in the order of their arrival.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <list>

#include "agent/snmpd/netsnmp.h"
#include "agent/tables/mib.h"

namespace snmpd {

inline constexpr std::size_t kMaxWaiting = 256;            // PDUs; what exceeds it is answered genErr
inline constexpr std::uint64_t kLongestPortion = 200'000;  // nanoseconds of answering what has waited
inline constexpr std::size_t kMostHidden = 256;  // variables that a manager may not see, in one call
inline constexpr std::uint64_t kLongestWait = 2'000'000'000;  // nanoseconds; then genErr

// The other end of a session's connection; the default without one. Distinguishes a session from a later one
// that has the same address in memory.
struct Peer {
  sockaddr_storage address{};
  bool operator==(const Peer& other) const {
    return std::memcmp(&address, &other.address, sizeof address) == 0;
  }
};

class Requests {
 public:
  // The MIB must outlive it.
  explicit Requests(tables::Mib& mib) : mib_(&mib) {}
  Requests(const Requests&) = delete;
  Requests& operator=(const Requests&) = delete;

  // A call of snmpd.
  void answer(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
              netsnmp_agent_request_info* info, netsnmp_request_info* requests);
  // Answers all of a call with genErr, after an exception.
  static void fail_all(netsnmp_agent_request_info* info, netsnmp_request_info* requests) noexcept;
  // Answers what waits, as far as that is possible now: batches have arrived or failed, or it is overdue.
  void resume();
  // Answers what waits with genErr. Afterwards snmpd has no reference to the registration.
  void abandon();
  bool waits() const { return !waiting_.empty(); }
  // When the oldest is overdue, by clock_monotonic().
  std::uint64_t deadline() const;

 private:
  struct Waiting {
    netsnmp_delegated_cache* cache = nullptr;
    std::uint64_t overdue_at = 0;
    std::uint64_t number = 0;  // of its requests
    Peer peer;                 // of its session
  };

  void want(netsnmp_request_info* requests);
  bool answer_one(int mode, netsnmp_agent_request_info* info, netsnmp_request_info* request);
  bool answer_get(netsnmp_agent_request_info* info, netsnmp_request_info* request);
  bool answer_next(netsnmp_agent_request_info* info, netsnmp_request_info* request, bool repeats);
  bool resume_one(const Waiting& waiting, std::uint64_t now, bool is_overdue);
  static void detach(const Waiting& waiting);

  tables::Mib* mib_;
  std::list<Waiting> waiting_;
  std::list<Waiting> spare_;                                    // at most one: the place of the next
  std::list<Waiting>::iterator continues_at_ = waiting_.end();  // the next to resume
  bool has_paused_ = false;  // one of them continues in a later iteration of snmpd's loop
};

}  // namespace snmpd

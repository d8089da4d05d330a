// Fault points: named places at which a test makes an operation fail through the real code.
//
// Every platform operation that can fail begins with `if (Status s = fault_check("name")) return s;`, the
// name being the operation's own. Unarmed, a fault point costs one predictable branch. A fault point is armed
// by a test (fault_arm) or, for whole processes, by the environment variable MPLS_VPN_MIB_FAULTS, a
// comma-separated list of name=status[@first[+count]] (status in any C base; first counts from 1; count 0
// means forever), for example "kvtree_bind=0x40810200@3+1".
//
// Thread: arm and disarm before the threads under test run; checking is safe from every thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "platform/core/base/status.h"

namespace fault_detail {
extern std::atomic<unsigned> armed_points;
Status check_armed(const char* name);
}  // namespace fault_detail

// 0, or the status with which the operation must fail now.
inline Status fault_check(const char* name) {
  if (fault_detail::armed_points.load(std::memory_order_relaxed) == 0) [[likely]] {
    return kStatusOk;
  }
  return fault_detail::check_armed(name);
}

// Fails the calls number `first` (counted from 1, from now on) to first + count - 1 of `name` with `status`;
// count 0 means every call from `first` on. Arming a name again replaces what was armed.
void fault_arm(std::string_view name, Status status, std::uint32_t first = 1, std::uint32_t count = 1);
void fault_disarm_all();
// How often the armed point was reached since it was armed; 0 for a name that is not armed.
std::uint32_t fault_reached(std::string_view name);
// Arms the points that MPLS_VPN_MIB_FAULTS lists. kStatusInvalid, with nothing armed, for an invalid list.
[[nodiscard]] Status fault_arm_from_text(std::string_view text);

// Arms in its constructor, disarms everything in its destructor.
class ScopedFault {
 public:
  ScopedFault(std::string_view name, Status status, std::uint32_t first = 1, std::uint32_t count = 1) {
    fault_arm(name, status, first, count);
  }
  ~ScopedFault() { fault_disarm_all(); }
  ScopedFault(const ScopedFault&) = delete;
  ScopedFault& operator=(const ScopedFault&) = delete;
};

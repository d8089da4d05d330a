#include "agent/service/query_watch.h"

#include "platform/core/base/log.h"

namespace agent {
namespace {

constexpr char kMib[] = "1.3.6.1.2.1.10.166.11";  // its objects and notifications

}  // namespace

void QueryWatch::step(bool registered) {
  if (is_over_) return;
  if (!registered) {
    deadline_ = UINT64_MAX;
    return;
  }
  const std::uint64_t now = clock_monotonic();
  if (deadline_ == UINT64_MAX) deadline_ = now + kPatience;
  if (now < deadline_) return;
  note_query();
  log_warning(
      "",
      "registered for %llu minutes, and snmpd has not asked for any object: if managers get \"No Such "
      "Object\", "
      "the view of their community or user lacks %s, as in Debian's snmpd.conf; add \"view NAME included "
      ".%s\" for the NAME of that view, then restart snmpd",
      static_cast<unsigned long long>(kPatience / (60 * kNanosecondsPerSecond)), kMib, kMib);
}

}  // namespace agent

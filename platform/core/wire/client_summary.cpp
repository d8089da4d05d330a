#include "platform/core/wire/client_summary.h"

#include "platform/core/base/clock.h"

namespace wire {

ClientSummary summarize(const Connection& client) {
  const Statistics statistics = client.statistics();
  return {saturated(client.id()),
          static_cast<std::uint32_t>(client.peer().uid),
          static_cast<std::uint32_t>(client.peer().pid),
          role_name(client.role()),
          saturated((clock_monotonic() - statistics.opened) / kNanosecondsPerSecond),
          saturated(statistics.requests),
          saturated(statistics.requests_per_second),
          saturated(statistics.nanoseconds / kNanosecondsPerMillisecond),
          saturated(client.queued())};
}

}  // namespace wire

// Reads one routing table of the kernel, prefix by prefix.
//
// What was read is delivered in a second step, so that the caller can apply the announcements that precede
// it. Main thread only.
#pragma once

#include <cstdint>
#include <vector>

#include "sources/kernel/netlink/dump.h"
#include "sources/kernel/route_state/route_message.h"
#include "sources/kernel/routes/table_routes.h"

namespace kernel {

class TableReading : public Dump {
 public:
  TableReading() : Dump(kRouteDumpFaultPoints) {}

  // REQUIRES: the previous one was closed. The errors of Dump::begin(). Fault points
  // "netlink_route_dump_open", "..._request", "..._receive".
  [[nodiscard]] Status begin(router::RouteTableId table);
  Dump::Progress step(unsigned datagrams);
  // Compares what was read with the table; `all`: the reading is complete. Otherwise the last prefix waits,
  // because it may have further routes. `additions_only`: as TableRoutes::compare().
  void deliver(bool all, bool additions_only, TableRoutes* table);

  router::RouteTableId table() const { return table_; }

 private:
  bool read(const nlmsghdr* message);

  router::RouteTableId table_{router::Family::kIpv4, 0};
  std::vector<RouteEvent> events_;   // of one message
  std::vector<KernelRoute> routes_;  // not delivered
};

}  // namespace kernel

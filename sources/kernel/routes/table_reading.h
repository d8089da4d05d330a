// Reads one routing table of the kernel into the route store.
//
// Offers the rows of the dump to the store one by one. A sweep at the end removes the rows that the dump did
// not have; it is skipped after a reading that may have missed some. Unchanged rows keep their age. Main
// thread only. The model and the objects must outlive the reading.
#pragma once

#include <cstdint>
#include <set>
#include <unordered_set>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/netlink/dump.h"
#include "sources/kernel/routes/route_message.h"
#include "sources/kernel/routes/route_rows.h"

namespace kernel {

// What the routes of a table depend on: when one of these changes, the kernel may have deleted routes without
// an event.
struct RouteUsage {
  std::set<std::uint32_t> interfaces;
  std::unordered_set<std::uint32_t> objects;  // named by routes; not the members of groups
  void merge(const RouteUsage& other);
};

class TableReading : public Dump {
 public:
  TableReading(router::Router* model, const NextHopObjects* objects)
      : Dump(kRouteDumpFaultPoints), model_(model), objects_(objects) {}

  // REQUIRES: the previous one was closed. The errors of Dump::begin(). Fault points
  // "netlink_route_dump_open", "..._request", "..._receive".
  [[nodiscard]] Status begin(router::RouteTableId table);
  // Reads up to `datagrams` datagrams and notifies the observers.
  Dump::Progress step(unsigned datagrams);
  // Visits up to `rows` rows; true when there is more to do.
  bool sweep(std::size_t rows);  // may follow close()

  router::RouteTableId table() const { return table_; }
  // The reading may have missed rows, or a row could not be stored: it must not remove any.
  bool in_doubt() const { return disturbed() || deferred_ || unresolved_ != 0; }
  unsigned refused() const { return refused_; }
  unsigned unresolved() const { return unresolved_; }
  const RouteUsage& usage() const { return usage_; }

 private:
  bool read(const nlmsghdr* message);
  void take(const KernelRoute& route);
  void refuse(Status status);
  void note_usage(const KernelRoute& route);

  router::Router* model_;
  const NextHopObjects* objects_;
  router::RouteTableId table_{router::Family::kIpv4, 0};
  RouteUsage usage_;
  std::vector<RouteEvent> events_;   // of one message
  std::vector<router::Route> rows_;  // of one route
  bool changed_ = false;             // the store, since the observers were notified
  bool deferred_ = false;            // a row was refused that may be accepted later
  bool refusal_logged_ = false;
  unsigned refused_ = 0;
  unsigned unresolved_ = 0;
};

}  // namespace kernel

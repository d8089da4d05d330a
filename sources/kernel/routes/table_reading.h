// Reading one routing table of the kernel into the route store.
//
// What is there now is offered to the store row by row; what is not there any more goes in a sweep at the
// end, which is left out after a reading that may have missed something. Rows that stayed keep their age.
// Main thread only. The model and the objects must outlive the reading.
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

// What the routes of a table hang on: when one of these changes, routes may have gone without a word.
struct RouteUsage {
  std::set<std::uint32_t> interfaces;
  std::unordered_set<std::uint32_t> objects;  // named by routes; not the members of groups
  void merge(const RouteUsage& other);
};

class TableReading {
 public:
  TableReading(router::Router* model, const NextHopObjects* objects) : model_(model), objects_(objects) {}

  // REQUIRES: the one before was closed. The errors of Dump::begin(). Fault points
  // "netlink_route_dump_open", "..._request", "..._receive".
  [[nodiscard]] Status begin(router::RouteTableId table);
  // Reads up to `datagrams` datagrams and tells the observers.
  Dump::Progress step(unsigned datagrams);
  // Visits up to `rows` rows; true when there is more to do.
  bool sweep(std::size_t rows);
  void close() { dump_.close(); }  // the sweep may follow

  router::RouteTableId table() const { return table_; }
  bool is_open() const { return dump_.is_open(); }
  int fd() const { return dump_.fd(); }
  Status error() const { return dump_.error(); }
  // The reading may have missed rows, or one could not be kept: nothing should be taken away on its account.
  bool in_doubt() const { return dump_.disturbed() || put_off_ || unresolved_ != 0; }
  unsigned malformed() const { return dump_.malformed(); }
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
  Dump dump_{kRouteDumpFaultPoints};
  router::RouteTableId table_{router::Family::kIpv4, 0};
  RouteUsage usage_;
  std::vector<RouteEvent> events_;   // of one message
  std::vector<router::Route> rows_;  // of one route
  bool changed_ = false;             // something of the store, since the observers were told
  bool put_off_ = false;             // a row was refused that may be taken another time
  bool refusal_told_ = false;
  unsigned refused_ = 0;
  unsigned unresolved_ = 0;
};

}  // namespace kernel

#include "sources/kernel/routes/table_reading.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace kernel {

Status TableReading::begin(router::RouteTableId table) {
  table_ = table;
  routes_.clear();
  return Dump::begin({request_routes(table)});
}

// A kernel without IPv6 answers a request for IPv6 routes with the routes of every family.
bool TableReading::read(const nlmsghdr* message) {
  events_.clear();
  const bool good = parse_route_message(message, &events_);
  for (RouteEvent& event : events_) {
    auto* seen = std::get_if<RouteSeen>(&event);
    if (seen == nullptr || seen->route.family != table_.family || seen->route.table != table_.table) continue;
    if (is_shown(seen->route)) routes_.push_back(std::move(seen->route));
  }
  return good;
}

Dump::Progress TableReading::step(unsigned datagrams) {
  return Dump::step(datagrams, [this](const nlmsghdr* message) { return read(message); });
}

void TableReading::deliver(bool all, bool additions_only, TableRoutes* table) {
  auto from = routes_.begin();
  while (from != routes_.end()) {
    const auto end = std::find_if(from + 1, routes_.end(), [from](const KernelRoute& each) {
      return each.destination != from->destination || each.prefix_length != from->prefix_length;
    });
    if (end == routes_.end() && !all) break;
    TableRoutes::Prefix prefix;
    std::for_each(from, end, [&prefix](KernelRoute& route) { prefix = take_prefix(&route); });
    table->compare(prefix, {from, end}, additions_only);
    from = end;
  }
  routes_.erase(routes_.begin(), from);
}

}  // namespace kernel

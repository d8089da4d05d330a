// Several routes of one prefix, or several paths, may be one row of the MIB (the same next hop over another
// interface or with another priority). The store keeps the one with the lowest priority. The kernel sends the
// routes of a prefix in that order, so the row does not alternate between readings. But it sends routes with
// an IPv4 type of service first: beside a better route without one, the row's age restarts with every
// reading.
#include "sources/kernel/routes/table_reading.h"

#include <utility>

#include "platform/core/base/log.h"

namespace kernel {

void RouteUsage::merge(const RouteUsage& other) {
  interfaces.insert(other.interfaces.begin(), other.interfaces.end());
  objects.insert(other.objects.begin(), other.objects.end());
}

Status TableReading::begin(router::RouteTableId table) {
  table_ = table;
  usage_ = RouteUsage{};
  deferred_ = false;
  refused_ = 0;
  unresolved_ = 0;
  if (Status status = Dump::begin({request_routes(table)})) return status;
  model_->routes().begin_refresh(table);
  return kStatusOk;
}

bool TableReading::read(const nlmsghdr* message) {
  events_.clear();
  const bool good = parse_route_message(message, &events_);
  for (const RouteEvent& event : events_) {
    if (const auto* seen = std::get_if<RouteSeen>(&event)) take(seen->route);
  }
  return good;
}

Dump::Progress TableReading::step(unsigned datagrams) {
  const Progress progress = Dump::step(datagrams, [this](const nlmsghdr* message) { return read(message); });
  if (std::exchange(changed_, false)) {
    model_->flush_route_changes();
  }
  return progress;
}

bool TableReading::sweep(std::size_t rows) {
  std::size_t erased = 0;
  const bool more = model_->routes().end_refresh(table_, rows, &erased);
  if (erased > 0) {
    model_->flush_route_changes();
  }
  return more;
}

// A kernel without IPv6 answers a request for IPv6 routes with the routes of every family.
void TableReading::take(const KernelRoute& route) {
  if (route.family != table_.family || route.table != table_.table || !is_shown(route)) return;
  note_usage(route);
  rows_.clear();
  if (!append_rows(route, *objects_, &rows_)) {
    ++unresolved_;
    return;
  }
  for (const router::Route& row : rows_) {
    router::RouteChange change = router::RouteChange::kNone;
    if (const Status status = model_->routes().offer(table_, row, &change)) {
      refuse(status);
    }
    changed_ = changed_ || change != router::RouteChange::kNone;
  }
}

// An invalid row (more labels than the store accepts) stays invalid, so it is not deferred.
void TableReading::refuse(Status status) {
  ++refused_;
  deferred_ = deferred_ || status != kStatusInvalid;
  if (!std::exchange(refusal_logged_, true)) {
    log_warning("kernel", "table %u: a route is refused: %s", table_.table, err_text(status));
  }
}

void TableReading::note_usage(const KernelRoute& route) {
  for (const RoutePath& path : route.paths) {
    usage_.interfaces.insert(path.interface_index);
  }
  if (route.next_hop_object != 0) {
    usage_.objects.insert(route.next_hop_object);
  }
}

}  // namespace kernel

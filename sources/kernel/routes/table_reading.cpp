// See table_reading.h.
//
// Several routes of one prefix, or several paths, may be one row of the MIB (the same next hop over another
// interface or with another priority). The store keeps the one with the lowest priority; the kernel sends the
// routes of a prefix in that order, so the row does not change to and fro from one reading to the next.
// Routes with an IPv4 type of service come first whatever their priority: beside a better one without, the
// row's age starts again with every reading.
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
  put_off_ = false;
  refused_ = 0;
  unresolved_ = 0;
  if (Status status = dump_.begin({request_routes(table)})) return status;
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
  const Dump::Progress progress =
      dump_.step(datagrams, [this](const nlmsghdr* message) { return read(message); });
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

// A kernel without IPv6 answers a request for IPv6 routes with those of every family.
void TableReading::take(const KernelRoute& route) {
  if (route.family != table_.family || route.table != table_.table || !is_shown(route)) {
    return;
  }
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

// An invalid row (more labels than the store takes) will not be valid the next time.
void TableReading::refuse(Status status) {
  ++refused_;
  put_off_ = put_off_ || status != kStatusInvalid;
  if (!std::exchange(refusal_told_, true)) {
    log_line("kernel: table %u: a route is refused: %s", table_.table, err_text(status));
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

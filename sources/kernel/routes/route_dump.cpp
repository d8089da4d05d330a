// See route_dump.h. The kernel marks what it sends with NLM_F_DUMP_INTR when what it walks has changed since
// the walk began: it does so for IPv6 routes and next-hop objects; an IPv4 table it walks by prefix, and
// every change of it is an event.
#include "sources/kernel/routes/route_dump.h"

#include <cerrno>

#include "platform/core/base/fault.h"

namespace kernel {

Status RouteDump::begin(Status (*request)(NetlinkSocket*, router::RouteTableId), router::RouteTableId table) {
  disturbed_ = fault_check("netlink_route_dump_disturbed") != kStatusOk;
  malformed_ = 0;
  error_ = socket_.open();
  if (error_ == kStatusOk) {
    error_ = socket_.set_strict();
  }
  if (error_ == kStatusOk) {
    error_ = request(&socket_, table);
  }
  if (error_ != kStatusOk) {
    socket_.close();
  }
  return error_;
}

Status RouteDump::begin_table(router::RouteTableId table) {
  return begin([](NetlinkSocket* socket, router::RouteTableId id) { return socket->request_routes(id); },
               table);
}

Status RouteDump::begin_next_hops() {
  return begin([](NetlinkSocket* socket, router::RouteTableId) { return socket->request_next_hops(); }, {});
}

RouteDump::Progress RouteDump::step(unsigned datagrams, std::vector<RouteEvent>* events) {
  for (unsigned count = 0; count < datagrams; ++count) {
    std::span<const std::uint8_t> datagram;
    Progress progress = Progress::kMore;
    switch (socket_.receive(&datagram)) {
      case Received::kDatagram:
        progress = read(datagram, events);
        break;
      case Received::kNothing:
        return Progress::kWaiting;
      case Received::kLost:
        return fail(ENOBUFS);
      case Received::kFailed:
        return fail(static_cast<Status>(errno));
    }
    if (progress != Progress::kMore) {
      return progress;
    }
  }
  return Progress::kMore;
}

RouteDump::Progress RouteDump::read(std::span<const std::uint8_t> datagram, std::vector<RouteEvent>* events) {
  const std::size_t before = events->size();
  const ParseReport report = parse_route_datagram(datagram, events);
  malformed_ += report.malformed;
  disturbed_ = disturbed_ || report.interrupted;
  for (std::size_t at = before; at < events->size(); ++at) {
    if (std::holds_alternative<DumpDone>((*events)[at])) {
      return Progress::kComplete;
    }
    if (const auto* refused = std::get_if<RequestFailed>(&(*events)[at])) {
      const bool empty = refused->error == ENOENT || refused->error == EOPNOTSUPP;
      return empty ? Progress::kComplete : fail(static_cast<Status>(refused->error));
    }
  }
  return Progress::kMore;
}

RouteDump::Progress RouteDump::fail(Status error) {
  error_ = error;
  return Progress::kFailed;
}

}  // namespace kernel

// The kernel answers a dump in datagrams of many messages and writes each when the previous one was read, so
// a dump is not a snapshot. When the list that it walks has changed since the walk began, it sets
// NLM_F_DUMP_INTR on the following messages. (It does so for links, addresses and next-hop objects. It walks
// an IPv4 table by prefix. When an IPv6 table changes, it starts its walk again and skips as many prefixes as
// it has shown, which may be others, without a report; every change is an event.) The content is delivered
// all the same and marked as disturbed; the caller decides how to use it.
#include "sources/kernel/netlink/dump.h"

#include <cerrno>
#include <utility>

#include "platform/core/base/fault.h"

namespace kernel {

Status Dump::begin(std::vector<DumpRequest> requests) {
  requests_ = std::move(requests);
  request_ = 0;
  malformed_ = 0;
  disturbed_ = fault_check(faults_.disturbed) != kStatusOk;
  error_ = socket_.open();
  if (error_ == kStatusOk) error_ = socket_.send(requests_.front());
  if (error_ != kStatusOk) socket_.close();
  return error_;
}

Dump::Progress Dump::step(unsigned datagrams, const MessageReader& read) {
  for (unsigned count = 0; count < datagrams; ++count) {
    std::span<const std::uint8_t> datagram;
    Progress progress = Progress::kMore;
    switch (socket_.receive(&datagram)) {
      case Received::kDatagram:
        progress = read_datagram(datagram, read);
        break;
      case Received::kForeign:
        break;
      case Received::kNothing:
        return Progress::kWaiting;
      case Received::kLost:
        return fail(ENOBUFS);
      case Received::kFailed:
        return fail(static_cast<Status>(errno));
    }
    if (progress != Progress::kMore) return progress;
  }
  return Progress::kMore;
}

Dump::Progress Dump::read_datagram(std::span<const std::uint8_t> datagram, const MessageReader& read) {
  using Kind = DumpControl::Kind;
  if (fault_check(faults_.gap) != kStatusOk) {
    disturbed_ = true;
    return Progress::kMore;
  }
  DumpControl end;
  const ParseReport report = for_each_message(datagram, [&](const nlmsghdr* message) {
    if (end.kind != Kind::kNone) return true;  // no content follows the end
    const DumpControl control = read_dump_control(message);
    if (control.kind == Kind::kNone) return fault_check(faults_.malformed) == kStatusOk && read(message);
    if (control.kind == Kind::kMalformed) return false;
    end = control;
    return true;
  });
  disturbed_ = disturbed_ || report.interrupted;
  malformed_ += report.malformed;
  if (end.kind == Kind::kNone) return Progress::kMore;
  const bool lacks = requests_[request_].may_lack && (end.error == ENOENT || end.error == EOPNOTSUPP);
  return end.kind == Kind::kDone || lacks ? end_of_request() : fail(static_cast<Status>(end.error));
}

Dump::Progress Dump::end_of_request() {
  if (++request_ == requests_.size()) return Progress::kComplete;
  const Status status = socket_.send(requests_[request_]);
  return status == kStatusOk ? Progress::kMore : fail(status);
}

Dump::Progress Dump::fail(Status error) {
  error_ = error;
  return Progress::kFailed;
}

}  // namespace kernel

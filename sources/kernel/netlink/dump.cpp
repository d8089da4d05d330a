// The dump's two phases (see dump.h).
//
// The kernel answers a dump in datagrams of many messages, each written when the previous one was read: a
// dump is no picture of one instant. When the list it walks has changed in between it sets NLM_F_DUMP_INTR on
// what follows. The result is handed out all the same, marked as disturbed; what is done with it is the
// caller's decision.
#include "sources/kernel/netlink/dump.h"

#include <cerrno>
#include <utility>

#include "platform/core/base/fault.h"

namespace kernel {

Status Dump::begin() {
  seen_ = Mirror{};
  phase_ = Phase::kLinks;
  disturbed_ = fault_check("netlink_dump_disturbed") != kStatusOk;
  malformed_ = 0;
  error_ = socket_.open();
  if (error_ == kStatusOk) {
    error_ = socket_.request_links();
  }
  running_ = error_ == kStatusOk;
  if (!running_) {
    socket_.close();
  }
  return error_;
}

void Dump::close() {
  running_ = false;
  socket_.close();
}

Dump::Progress Dump::step(unsigned datagrams) {
  for (unsigned count = 0; count < datagrams; ++count) {
    std::span<const std::uint8_t> datagram;
    Progress progress = Progress::kMore;
    switch (socket_.receive(&datagram)) {
      case Received::kDatagram:
        progress = read(datagram);
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

Dump::Progress Dump::read(std::span<const std::uint8_t> datagram) {
  if (fault_check("netlink_dump_gap") != kStatusOk) {
    disturbed_ = true;
    return Progress::kMore;
  }
  events_.clear();
  const ParseReport report = parse_datagram(datagram, &events_);
  malformed_ += report.malformed;
  disturbed_ = disturbed_ || report.interrupted;
  for (const Event& event : events_) {
    if (std::holds_alternative<DumpDone>(event)) {
      return end_of_phase();
    }
    if (const auto* refused = std::get_if<RequestFailed>(&event)) {
      return fail(static_cast<Status>(refused->error));
    }
    seen_.apply(event);
  }
  return Progress::kMore;
}

Dump::Progress Dump::end_of_phase() {
  if (phase_ == Phase::kAddresses) {
    running_ = false;
    return Progress::kComplete;
  }
  phase_ = Phase::kAddresses;
  const Status status = socket_.request_addresses();
  return status == kStatusOk ? Progress::kMore : fail(status);
}

Dump::Progress Dump::fail(Status error) {
  error_ = error;
  running_ = false;
  return Progress::kFailed;
}

Mirror Dump::take() {
  return std::exchange(seen_, Mirror{});
}

}  // namespace kernel

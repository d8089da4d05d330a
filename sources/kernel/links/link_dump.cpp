#include "sources/kernel/links/link_dump.h"

namespace kernel {

Status LinkDump::begin() {
  seen_ = Mirror{};
  return dump_.begin({request_links(), request_addresses()});
}

Dump::Progress LinkDump::step(unsigned datagrams) {
  return dump_.step(datagrams, [this](const nlmsghdr* message) {
    events_.clear();
    const bool good = parse_link_message(message, &events_);
    for (const Event& event : events_) seen_.apply(event);
    return good;
  });
}

}  // namespace kernel

// Reads all links and then all addresses into a mirror, in bounded steps. Main thread only.
#pragma once

#include <utility>
#include <vector>

#include "sources/kernel/links/mirror.h"
#include "sources/kernel/netlink/dump.h"

namespace kernel {

class LinkDump {
 public:
  // As of Dump.
  [[nodiscard]] Status begin();
  Dump::Progress step(unsigned datagrams);
  void close() { dump_.close(); }

  bool is_open() const { return dump_.is_open(); }
  int fd() const { return dump_.fd(); }
  Status error() const { return dump_.error(); }
  bool disturbed() const { return dump_.disturbed(); }
  unsigned malformed() const { return dump_.malformed(); }
  // What a complete dump has read.
  Mirror take() { return std::exchange(seen_, Mirror{}); }

 private:
  Dump dump_;
  Mirror seen_;
  std::vector<Event> events_;  // of one message
};

}  // namespace kernel

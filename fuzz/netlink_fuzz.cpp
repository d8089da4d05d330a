// Received octets through the kernel source: decoder, mirror, reconciler and model.
//
// The input is a recording: datagrams, each after its length in four octets, most significant first, as in
// tests/data/netlink, whose files are the seeds. The model follows after every datagram. The kernel is
// not malicious, but it may be of any version, and others may send to the socket.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "sources/kernel/links/link_message.h"
#include "sources/kernel/links/mirror.h"
#include "sources/kernel/links/reconciler.h"

namespace {

// A copy of exactly its size, so that a sanitizer finds reads beyond its end.
void feed(std::vector<std::uint8_t> datagram, kernel::Mirror* mirror) {
  std::vector<kernel::Event> events;
  kernel::parse_link_datagram(datagram, &events);
  for (const kernel::Event& event : events) {
    mirror->apply(event);
  }
}

std::size_t length_at(const std::uint8_t* data) {
  return (std::size_t{data[0]} << 24) | (std::size_t{data[1]} << 16) | (std::size_t{data[2]} << 8) | data[3];
}

// Every link of the model is a link of the mirror, with the same index.
void check(const kernel::Mirror& mirror, const router::Router& model) {
  model.for_each_interface([&](const router::Interface& each) {
    const kernel::Link* link = mirror.find(each.index);
    if (link == nullptr || link->is_vrf || link->up != each.up) {
      abort();
    }
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  router::Router model;
  kernel::Mirror mirror;
  kernel::Reconciler reconciler(&model);
  while (size >= 4) {
    const std::size_t length = std::min(length_at(data), size - 4);
    feed(std::vector<std::uint8_t>(data + 4, data + 4 + length), &mirror);
    reconciler.run(mirror, mirror.take_changes());
    check(mirror, model);
    data += 4 + length;
    size -= 4 + length;
  }
  return 0;
}

// Received route and next-hop messages through the kernel source: decoder, next-hop objects, rows and store.
//
// The input is a recording as in tests/data/netlink: datagrams, each after its length in four octets, most
// significant first. For all octets, every row must be one that the store accepts, except for label stacks
// deeper than the store's.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/routes/route_message.h"
#include "sources/kernel/routes/route_rows.h"

namespace {

constexpr std::uint32_t kTable = 10;  // every route is put into it

struct Routes {
  kernel::NextHopObjects objects;
  router::RouteStore store;
};

void offer(const kernel::KernelRoute& route, Routes* routes) {
  std::vector<router::Route> rows;
  if (!is_shown(route) || !append_rows(route, routes->objects, &rows)) {
    return;
  }
  for (const router::Route& row : rows) {
    const Status status = routes->store.offer({route.family, kTable}, row);
    if (status != kStatusOk && row.labels.size() <= router::kLabelStackMax) {
      abort();
    }
  }
}

void apply(const kernel::RouteEvent& event, Routes* routes) {
  if (const auto* seen = std::get_if<kernel::RouteSeen>(&event)) {
    offer(seen->route, routes);
  } else if (const auto* object = std::get_if<kernel::NextHopSeen>(&event)) {
    routes->objects.update(object->object);
  } else if (const auto* removed = std::get_if<kernel::NextHopRemoved>(&event)) {
    if (!routes->objects.users(removed->id).contains(removed->id)) {
      abort();
    }
    routes->objects.remove(removed->id);
  }
}

// A copy of exactly its size, so that a sanitizer finds reads beyond its end.
void feed(std::vector<std::uint8_t> datagram, Routes* routes) {
  std::vector<kernel::RouteEvent> events;
  kernel::parse_route_datagram(datagram, &events);
  for (const kernel::RouteEvent& event : events) {
    apply(event, routes);
  }
}

std::size_t length_at(const std::uint8_t* data) {
  return (std::size_t{data[0]} << 24) | (std::size_t{data[1]} << 16) | (std::size_t{data[2]} << 8) | data[3];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Routes routes;
  routes.store.open({router::Family::kIpv4, kTable});
  routes.store.open({router::Family::kIpv6, kTable});
  while (size >= 4) {
    const std::size_t length = std::min(length_at(data), size - 4);
    feed(std::vector<std::uint8_t>(data + 4, data + 4 + length), &routes);
    data += 4 + length;
    size -= 4 + length;
  }
  return 0;
}

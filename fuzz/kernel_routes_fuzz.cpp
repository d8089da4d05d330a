// Received messages of links, addresses, routes and next-hop objects through the kernel source: decoders,
// lists of routes, what is derived, rows and store.
//
// The input is a recording as in tests/data/netlink: datagrams, each after its length in four octets, most
// significant first. For all octets, every row must be one that the store accepts, except for label stacks
// deeper than the store's, and a table whose routes are all deleted must have no row.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/route_state/link_states.h"
#include "sources/kernel/route_state/route_message.h"
#include "sources/kernel/route_state/route_rows.h"
#include "sources/kernel/routes/table_routes.h"

namespace {

constexpr std::uint32_t kTable = 10;  // every route is put into it

router::Router* model_with_vrf() {
  auto* model = new router::Router;
  router::Vrf vrf;
  vrf.name = "red";
  vrf.id = vrf.ipv4_table = vrf.ipv6_table = kTable;
  if (model->create_vrf(vrf) != kStatusOk) abort();
  return model;
}

struct Routes {
  std::unique_ptr<router::Router> model{model_with_vrf()};
  kernel::NextHopObjects objects;
  kernel::RouteHistory history;
  kernel::LinkStates links;
  kernel::TableRoutes ipv4{model.get(), {&objects, &history, &links}, {router::Family::kIpv4, kTable}};
  kernel::TableRoutes ipv6{model.get(), {&objects, &history, &links}, {router::Family::kIpv6, kTable}};
  bool deep_labels = false;

  kernel::TableRoutes& of(const kernel::KernelRoute& route) {
    return route.family == router::Family::kIpv4 ? ipv4 : ipv6;
  }
};

bool is_deep(const kernel::RoutePath& path) {
  return path.labels.size() > router::kLabelStackMax;
}

void apply(const kernel::NextHopObjects::Affected& affected, Routes* routes) {
  for (const std::uint32_t id : affected.removed) routes->history.object_removed(id);
  for (const std::uint32_t id : affected.changed) routes->history.object_changed(id);
}

void apply(const kernel::RouteEvent& event, Routes* routes) {
  if (const auto* seen = std::get_if<kernel::RouteSeen>(&event)) {
    routes->deep_labels = routes->deep_labels || std::ranges::any_of(seen->route.paths, is_deep);
    if (is_shown(seen->route)) routes->of(seen->route).add(seen->route, seen->flags, routes->history.now());
  } else if (const auto* removed = std::get_if<kernel::RouteRemoved>(&event)) {
    if (is_shown(removed->route)) routes->of(removed->route).remove(removed->route);
  } else if (const auto* object = std::get_if<kernel::NextHopSeen>(&event)) {
    routes->deep_labels = routes->deep_labels || is_deep(object->object.path);
    if (routes->objects.update(object->object)) apply({{}, routes->objects.users(object->object.id)}, routes);
  } else if (const auto* old_object = std::get_if<kernel::NextHopRemoved>(&event)) {
    apply(routes->objects.remove(old_object->id), routes);
  }
}

void apply(const kernel::Event& event, Routes* routes) {
  if (const auto* seen = std::get_if<kernel::LinkSeen>(&event)) {
    const kernel::LinkStates::Change change = routes->links.seen(*seen);
    using LinkChange = kernel::RouteHistory::LinkChange;
    if (change.ipv4_down) routes->history.add(seen->link.index, LinkChange::kIpv4Down);
    if (change.ipv6_up) routes->history.add(seen->link.index, LinkChange::kIpv6Up);
    if (change.objects_lost) apply(routes->objects.remove_over(seen->link.index), routes);
  } else if (const auto* removed = std::get_if<kernel::LinkRemoved>(&event)) {
    routes->history.add(removed->index, kernel::RouteHistory::LinkChange::kRemoved);
    routes->links.removed(removed->index);
  } else if (const auto* address = std::get_if<kernel::AddressSeen>(&event)) {
    routes->links.address_seen(address->address);
  }
}

// A copy of exactly its size, so that a sanitizer finds reads beyond its end.
void feed(std::vector<std::uint8_t> datagram, Routes* routes) {
  std::vector<kernel::RouteEvent> events;
  std::vector<kernel::Event> link_events;
  kernel::parse_route_datagram(datagram, &events);
  kernel::parse_link_datagram(datagram, &link_events);
  for (const kernel::RouteEvent& event : events) apply(event, routes);
  for (kernel::TableRoutes* table : {&routes->ipv4, &routes->ipv6}) table->commit();
  for (const kernel::Event& event : link_events) apply(event, routes);
}

// A reading that finds nothing removes every row.
void finish(kernel::TableRoutes* table, const Routes& routes) {
  table->begin_walk();
  while (table->is_walking()) table->walk(3);
  if (table->take_counters().refused != 0 && !routes.deep_labels) abort();
  table->begin_reading(kernel::TableRoutes::Reading::kVerify, false);
  while (table->end_some(3)) {
  }
  if (routes.model->routes().count(table->id()) != 0) abort();
}

std::size_t length_at(const std::uint8_t* data) {
  return (std::size_t{data[0]} << 24) | (std::size_t{data[1]} << 16) | (std::size_t{data[2]} << 8) | data[3];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Routes routes;
  while (size >= 4) {
    const std::size_t length = std::min(length_at(data), size - 4);
    feed(std::vector<std::uint8_t>(data + 4, data + 4 + length), &routes);
    data += 4 + length;
    size -= 4 + length;
  }
  finish(&routes.ipv4, routes);
  finish(&routes.ipv6, routes);
  return 0;
}

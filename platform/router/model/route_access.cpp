// route_access_attach() is in this file so that a process which attaches its model links the exported
// function.
#include "platform/router/model/route_access.h"

#include "platform/core/base/fault.h"
#include "platform/core/base/memory.h"

namespace router {
namespace {

Router* attached_model = nullptr;

bool with_age(bool found, const Route& route, std::uint32_t* age) {
  if (found) *age = route_age(route);
  return found;
}

bool find(RouteTableId table, bool next, const RouteKey& key, Route* route, std::uint32_t* age) {
  if (fault_check("ribmib_find_route") || attached_model == nullptr) return false;
  const RouteStore& store = attached_model->routes();
  return with_age(next ? store.find_next(table, key, route) : store.find(table, key, route), *route, age);
}

bool find_first(RouteTableId table, Route* route, std::uint32_t* age) {
  if (fault_check("ribmib_find_route") || attached_model == nullptr) return false;
  return with_age(attached_model->routes().find_first(table, route), *route, age);
}

std::uint32_t count(RouteTableId table) {
  if (attached_model == nullptr) return 0;
  return static_cast<std::uint32_t>(attached_model->routes().count(table));
}

void* allocate(std::size_t size) {
  return calloc_tagged(1, size, "forwardmib");
}

constexpr RouteAccess kAccess{kRouteAccessVersion, find, find_first, count, allocate};

}  // namespace

void route_access_attach(Router* model) {
  attached_model = model;
}

}  // namespace router

const router::RouteAccess* mpls_vpn_mib_route_access(std::uint32_t version) {
  return version == router::kRouteAccessVersion ? &router::kAccess : nullptr;
}

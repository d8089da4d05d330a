// The daemon's own functions load the modules. Requests are checked only while a module is missing.
#include "daemon/route_modules.h"

#include <string>

#include "mpls/vpn/mib/src/route/modules.h"
#include "platform/core/base/log.h"
#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

namespace daemon_host {

namespace {

constexpr char kRoutePaths[] = "/oper/mpls_vpn/gl/route";  // "route" and "route-next"

bool load_both() {
  const bool ipv4 = mpls_vpn_mib_rib_ipv4_route_load_dll();
  return mpls_vpn_mib_rib_ipv6_route_load_dll() && ipv4;
}

Status guard_routes() {
  if (!load_both()) return kStatusNoRouteModule;
  log_notice("mpls_vpn_mib", "the route modules are loaded; routes are shown");
  kvtree_guard(kRoutePaths, nullptr);
  return kStatusOk;
}

}  // namespace

void check_route_modules() {
  if (load_both()) return;
  for (const std::string& failure : mpls_vpn_mib_route_module_failures()) {
    log_error("mpls_vpn_mib", "requests for routes fail, because a module cannot be loaded: %s",
              failure.c_str());
  }
  kvtree_guard(kRoutePaths, guard_routes);
}

}  // namespace daemon_host

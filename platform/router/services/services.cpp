#include "platform/router/services/services.h"

#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/router/config_references/config_references.h"
#include "platform/router/ifindex/ifindex.h"
#include "platform/router/lfx/lfx.h"
#include "platform/router/model/route_access.h"
#include "platform/router/qic/qic.h"
#include "platform/router/rib_threshold/rib_threshold.h"
#include "platform/router/route_watch/route_watch.h"
#include "platform/router/vmap/vmap.h"
#include "platform/router/vpn_events/vpn_events.h"
#include "platform/router/vtab/vtab.h"

namespace {

constexpr std::size_t kRoutesPerRelease = 2000;  // under a millisecond

struct StartedService {
  const char* what_fails;
  Status (*start)(router::Router* model, EventManager* manager);
  void (*stop)();
};

// Configuration references are first: the record of a VRF must exist before its configuration is read.
constexpr StartedService kStartedServices[] = {
    {"cannot follow the configuration", config_references_start, config_references_stop},
    {"cannot watch the route thresholds", rib_threshold_attach, rib_threshold_detach},
    {"cannot watch for missing routes", route_watch_attach, route_watch_detach},
    {"cannot report changes of route distinguishers", vpn_events_attach, vpn_events_detach},
};

// Frees the memory of a dropped routing table in steps, with requests in between.
void release_routes(router::Router* model, EventManager* manager) {
  if (model->routes().release_some(kRoutesPerRelease)) {
    event_timer_start(manager, 0, [model, manager] { release_routes(model, manager); });
  }
}

}  // namespace

void router_services_attach(router::Router* model) {
  vtab_attach(model);
  vmap_attach(model);
  qic_attach(model);
  ifindex_attach(model);
  bgp_vpn_attach(model);
  lfx_attach(model);
  router::route_access_attach(model);
}

Status router_services_start(router::Router* model, EventManager* manager, std::string* error) {
  for (const StartedService& service : kStartedServices) {
    const Status status = service.start(model, manager);
    if (status == kStatusOk) continue;
    *error = std::string(service.what_fails) + ": " + err_text(status);
    return status;
  }
  model->routes().defer_releases([model, manager] {
    event_timer_start(manager, 0, [model, manager] { release_routes(model, manager); });
  });
  return kStatusOk;
}

void router_services_stop(router::Router* model) {
  for (const StartedService& service : kStartedServices) service.stop();
  model->routes().defer_releases(nullptr);
}

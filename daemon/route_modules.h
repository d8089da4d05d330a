// Loads the routing table's modules when the process starts; without them routes cannot be shown.
#pragma once

namespace daemon_host {

// Logs each module that cannot be loaded, with its whole path and the loader's reason. Until both are there,
// requests for routes are answered with kStatusNoRouteModule: with an empty table managers would believe
// that the router has no routes. Every such request tries again.
void check_route_modules();

}  // namespace daemon_host

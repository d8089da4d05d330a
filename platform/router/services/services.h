// The services that answer from the router model, built in one place for the daemon, the tests and the
// benchmarks. Main thread.
#pragma once

#include <string>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

// Gives every service the model to answer from; null detaches all of them.
void router_services_attach(router::Router* model);

// Starts the services that also follow the configuration: references to VRFs, route thresholds, changes of
// route distinguishers and route targets. Dropped routes are freed on the manager from here on. Call it
// before the clients of these services subscribe. On a failure *error says which service failed and why, and
// those before it run.
[[nodiscard]] Status router_services_start(router::Router* model, EventManager* manager, std::string* error);
// Stops those that were started; before the manager is destroyed.
void router_services_stop(router::Router* model);

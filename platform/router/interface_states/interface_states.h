// Answers the state and the addresses of interfaces (records.h), as the router model has them. Main thread.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

namespace router {
class Router;
}

// The model must live until the provider stops. kStatusExists while it is provided.
[[nodiscard]] Status interface_states_start(const router::Router* model, EventManager* manager);
void interface_states_stop();

// Interface-manager control client: the name of an interface by its handle.
//
// A control server is bound once and answers until it forgets its clients, as an interface manager does that
// restarts (qic_server_restart). From then on calls fail with kStatusStaleConnection and the caller binds
// again. Main thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"

struct QicControlServer;

// The router model that the service answers from; null detaches it. Called once by the process.
void qic_attach(router::Router* model);
// Fault point "qic_control_server_bind". kStatusUnavailable without a model.
[[nodiscard]] Status qic_control_server_bind(std::uint32_t request_type, std::uint32_t version,
                                             QicControlServer** server);
// kStatusInvalid for a server that is not bound; a stale one is unbound like any other. Fault point
// "qic_control_server_unbind".
[[nodiscard]] Status qic_control_server_unbind(QicControlServer* server);
// Writes the terminated name, on success only. kStatusNoSuchRow for an unknown handle, kStatusInvalid when it
// does not fit, kStatusStaleConnection after a restart, kStatusUnavailable without a model. Fault point
// "qic_s_interface_name".
[[nodiscard]] Status qic_s_interface_name(QicControlServer* server, std::uint32_t interface_handle,
                                          char* name, std::size_t size);
// Every control server bound so far becomes stale.
void qic_server_restart();

// What the last successful bind asked for; zeros before the first. For tests.
struct QicBinding {
  std::uint32_t request_type = 0;
  std::uint32_t version = 0;
};
QicBinding qic_last_binding();

// Interface-manager control client: the name of an interface by its handle.
//
// A caller binds a control server once and asks it for names. When the interface manager has lost the
// connection, a call fails with kStatusStaleConnection and the caller binds again; in this process only the
// fault point does so. Main thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"

struct QicControlServer;

// The router model that the service answers from; null detaches it. Called once by the process.
void qic_attach(router::Router* model);
// There is one control server. Fault point "qic_control_server_bind". kStatusUnavailable without a model.
[[nodiscard]] Status qic_control_server_bind(std::uint32_t request_type, std::uint32_t version,
                                             QicControlServer** server);
// kStatusInvalid for a server that is not bound. Fault point "qic_control_server_unbind".
[[nodiscard]] Status qic_control_server_unbind(QicControlServer* server);
// Writes the terminated name, on success only. kStatusNoSuchRow for an unknown handle, kStatusInvalid when it
// does not fit, kStatusUnavailable without a model. Fault point "qic_s_interface_name".
[[nodiscard]] Status qic_s_interface_name(QicControlServer* server, std::uint32_t interface_handle,
                                          char* name, std::size_t size);

// What the last successful bind asked for; zeros before the first. For tests.
struct QicBinding {
  std::uint32_t request_type = 0;
  std::uint32_t version = 0;
};
QicBinding qic_last_binding();

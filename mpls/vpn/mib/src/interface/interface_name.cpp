// The name of an interface by handle, from the interface manager.
//
// One connection and one name buffer for the process, both of the main thread. A restarted interface manager
// does not know its clients and answers "stale connection"; each such answer makes this file bind again. A
// successful bind is never stale, so the loop ends.
#include <array>

#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/router/qic/qic.h"

namespace {

constexpr std::uint32_t kRequestType = 4;
constexpr std::uint32_t kVersion = 2;
constexpr const char* kGetInterfaceName = "mpls_vpn_get_interface_name";

QicControlServer* control_server = nullptr;
std::array<char, 256> name_buffer;

bool bind_control_server() {
  const Status rc = qic_control_server_bind(kRequestType, kVersion, &control_server);
  if (rc == kStatusOk) return true;
  control_server = nullptr;
  mpls_vpn_error(kGetInterfaceName, "qic_control_server_bind failed", rc);
  return false;
}

void unbind_control_server() {
  const Status rc = qic_control_server_unbind(control_server);
  if (rc != kStatusOk) mpls_vpn_trace(kTraceError, rc, "qic_control_server_unbind failed");
  control_server = nullptr;
}

}  // namespace

const char* mpls_vpn_get_interface_name(std::uint32_t if_handle) {
  while (control_server != nullptr || bind_control_server()) {
    const Status rc = qic_s_interface_name(control_server, if_handle, name_buffer.data(), name_buffer.size());
    if (rc == kStatusOk) return name_buffer.data();
    mpls_vpn_error(kGetInterfaceName, "qic_s_interface_name failed", rc);
    if (rc != kStatusStaleConnection) return nullptr;
    unbind_control_server();
  }
  return nullptr;
}

void mpls_vpn_interface_name_end() {
  if (control_server != nullptr) unbind_control_server();
}

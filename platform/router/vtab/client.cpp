#include "platform/router/vtab/client.h"

#include <utility>

#include "platform/core/base/log.h"

namespace vtab {

void Client::begin_callback() {
  vrf_in_callback = nullptr;
  interface_in_callback = nullptr;
}

void Client::end_callback() {
  if (VrfNode* const node = std::exchange(vrf_in_callback, nullptr)) {
    log_warning("record service", "the callback left the access to VRF %s open; closed", node->vrf_name);
    node->in_access = false;
  }
  if (IfNode* const node = std::exchange(interface_in_callback, nullptr)) {
    log_warning("record service", "the callback left the access to interface %s open; closed", node->if_name);
    node->in_access = false;
  }
}

}  // namespace vtab

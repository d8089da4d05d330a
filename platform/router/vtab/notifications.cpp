// A notification is over when its callback has returned, whether or not the callback made its access; an
// access that the callback left open (because its end failed) is closed then, so that no record remains
// locked. A begin-access outside a callback takes the oldest notification of the name; its callback is
// then not called.
//
// Look-ups show an interface as up only after its callback, so that a callback that counts which other
// interfaces are up never finds the interface itself.

#include <utility>

#include "platform/core/base/log.h"
#include "platform/router/vtab/service.h"

namespace vtab {

namespace {

void begin_callback() {
  service().client.vrf_in_access = nullptr;
  service().client.interface_in_access = nullptr;
}

void end_callback() {
  if (const VrfNode* node = std::exchange(service().client.vrf_in_access, nullptr)) {
    log_warning("record service", "the callback left the access to VRF %s open; closed", node->vrf_name);
  }
  if (const IfNode* node = std::exchange(service().client.interface_in_access, nullptr)) {
    log_warning("record service", "the callback left the access to interface %s open; closed",
                node->if_name.c_str());
  }
}

}  // namespace

// The callback's status is what it has already logged.
void VrfEvent::deliver() {
  if (was_taken || service().client.vrf_callback == nullptr) return;
  begin_callback();
  static_cast<void>(service().client.vrf_callback(node->vrf_name));
  end_callback();
}

StateEvent::StateEvent(IfNode* about, SharedText vrf, const IfChange& codes, IfState state)
    : node(about), vrf_name(std::move(vrf)), change(codes), to(std::move(state)) {
  ++node->pending;
}

void StateEvent::deliver() {
  if (!change.has_up()) service().interfaces.show_downs(node, to);
  if (!was_taken && change.is_one() && service().client.if_callback != nullptr) {
    const SharedText name = service().interfaces.known_name(*node);  // the callback may change the record
    begin_callback();
    static_cast<void>(service().client.if_callback(name.c_str(), vrf_name.c_str()));
    end_callback();
  }
  --node->pending;
  service().interfaces.show(node, std::move(to));
  service().interfaces.release(node);
}

}  // namespace vtab

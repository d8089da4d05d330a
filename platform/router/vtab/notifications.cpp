// Delivery to the record client, and the accesses that its callbacks make.
//
// A notification is over when its callback has returned, whether or not the callback made its access; an
// access that the callback left open (because its end failed) is closed then, so that no record remains
// locked. A begin-access outside a callback takes the oldest notification of the name; its callback is then
// not called.
//
// Look-ups show an interface as down before the callback for that runs, and as up only after its callback: a
// callback that counts which other interfaces are up finds the interface itself in neither case. An interface
// of which one family changes to down and the other to up was up and remains up; look-ups show the former
// states until the callback has returned.
#include "platform/router/vtab/notifications.h"

#include <utility>

#include "platform/core/base/log.h"

namespace vtab {

namespace {

void begin_callback(Client* client) {
  client->vrf_in_access = nullptr;
  client->interface_in_access = nullptr;
}

void end_callback(Client* client) {
  if (const VrfNode* node = std::exchange(client->vrf_in_access, nullptr)) {
    log_warning("record service", "the callback left the access to VRF %s open; closed", node->vrf_name);
  }
  if (const IfNode* node = std::exchange(client->interface_in_access, nullptr)) {
    log_warning("record service", "the callback left the access to interface %s open; closed", node->if_name);
  }
}

}  // namespace

// The callback's status is what it has already logged.
void VrfEvent::deliver() {
  if (was_taken || client_->vrf_callback == nullptr) return;
  begin_callback(client_);
  static_cast<void>(client_->vrf_callback(node->vrf_name));
  end_callback(client_);
}

StateEvent::StateEvent(Client* client, IfRecords* records, IfNode* about, std::string vrf,
                       const IfChange& codes, IfState state)
    : node(about),
      vrf_name(std::move(vrf)),
      change(codes),
      client_(client),
      records_(records),
      to_(std::move(state)) {
  ++node->pending;
}

void StateEvent::deliver() {
  if (!change.has_up()) show_downs(node, to_);
  if (!was_taken && change.is_one() && client_->if_callback != nullptr) {
    begin_callback(client_);
    static_cast<void>(client_->if_callback(node->known_name.c_str(), vrf_name.c_str()));
    end_callback(client_);
  }
  --node->pending;
  show(node, std::move(to_));
  records_->release(node);
}

}  // namespace vtab

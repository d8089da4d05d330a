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

namespace vtab {

// The callback's status is what it has already logged. It gets a copy of the name, because a callback that
// ends the client frees the record.
void VrfEvent::deliver() {
  client_->begin_callback();
  const VtabVrfCallback callback = client_->vrf_callback;
  if (was_taken || callback == nullptr) return;
  const std::string name = node->vrf_name;
  static_cast<void>(callback(name.c_str()));
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
  client_->begin_callback();
  if (!change.has_up()) show_downs(node, to_);
  const VtabIfCallback callback = client_->if_callback;
  if (was_taken || !change.is_one() || callback == nullptr) return;
  const std::string name = node->known_name;
  static_cast<void>(callback(name.c_str(), vrf_name.c_str()));
}

void StateEvent::finish() {
  client_->end_callback();
  --node->pending;
  show(node, std::move(to_));
  records_->release(node);
}

Rename::Rename(IfRecords* records, IfNode* node) : records_(records), node_(node) {
  ++node_->pending;
}

void Rename::finish() {
  --node_->pending;
  records_->know_name(node_);
  records_->release(node_);
}

}  // namespace vtab

// The record service's notifications in the change feed, and what they do to the records when they are
// delivered.
#pragma once

#include <cstdint>
#include <string>

#include "platform/router/feed/feed.h"
#include "platform/router/vtab/client.h"
#include "platform/router/vtab/if_records.h"
#include "platform/router/vtab/vrf_records.h"

namespace vtab {

// A VRF record was created, updated or deleted. The record exists until the notification is delivered.
class VrfEvent : public feed::Notification {
 public:
  VrfEvent(Client* client, VrfNode* about, std::uint32_t event_code)
      : node(about), code(event_code), client_(client) {}
  void deliver() override;

  VrfNode* node;
  std::uint32_t code;
  bool was_taken = false;  // by a begin-access

 private:
  Client* client_;
};

// An interface's states change from what the client knows to `to`.
class StateEvent : public feed::Notification {
 public:
  StateEvent(Client* client, IfRecords* records, IfNode* about, std::string vrf, const IfChange& codes,
             IfState state);
  void deliver() override;

  IfNode* node;
  std::string vrf_name;  // at the time of the change
  IfChange change;
  bool was_taken = false;

 private:
  Client* client_;
  IfRecords* records_;
  IfState to_;
};

}  // namespace vtab

// The record service of the process: the records, which follow the router model, its client, and the
// notifications in the change feed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/router/feed/feed.h"
#include "platform/router/vtab/if_records.h"
#include "platform/router/vtab/vrf_records.h"

namespace vtab {

// What the client has registered; the numbers are its own and not interpreted.
struct Client {
  EventManager* manager = nullptr;  // null without a client
  std::string name;
  std::size_t attribute_size = 0;
  std::array<std::uint32_t, 3> init_numbers{};  // of vtab_init
  VtabIfCallback if_callback = nullptr;
  VtabVrfCallback vrf_callback = nullptr;
  bool has_vrf_events = false;
  std::array<std::string, 2> vrf_texts;  // of vtab_reg_vrf_attributes: scope and default VRF
  std::array<std::uint32_t, 3> vrf_numbers{};
  bool has_if_events = false;
  std::array<std::string, 3> if_texts;  // of vtab_reg_if_attributes: scope, VRF scope and default VRF
  std::array<std::uint32_t, 4> if_numbers{};

  // The accesses that are begun and not ended.
  VrfNode* vrf_in_access = nullptr;
  IfNode* interface_in_access = nullptr;
};

// A VRF record was created, updated or deleted. The record exists until the notification is delivered.
struct VrfEvent : feed::Notification {
  VrfEvent(VrfNode* about, std::uint32_t event_code) : node(about), code(event_code) {}
  void deliver() override;

  VrfNode* node;
  std::uint32_t code;
  bool was_taken = false;  // by a begin-access
};

// An interface's states change from what the client knows to `to`.
struct StateEvent : feed::Notification {
  StateEvent(IfNode* about, SharedText vrf, const IfChange& codes, IfState state);
  void deliver() override;

  IfNode* node;
  SharedText vrf_name;  // at the time of the change
  IfChange change;
  IfState to;
  bool was_taken = false;
};

class Service : public router::Observer {
 public:
  void attach(router::Router* model);
  router::Router* model() const { return model_; }

  void vrf_created(const router::Vrf& vrf) override;
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override;
  void vrf_deleted(const router::Vrf& vrf) override;
  void vrf_referenced(const std::string& name) override;
  void vrf_unreferenced(const std::string& name) override;
  void interface_added(const router::Interface& interface) override;
  void interface_changed(const router::Interface& before, const router::Interface& now) override;
  void interface_moved(const router::Interface& now, const std::string& from) override;
  void interface_removed(const router::Interface& interface) override;

  Status start_client(const char* name, EventManager* manager, std::size_t attribute_size);
  // The record of the name, made as a forward reference (or complete, if the VRF exists) when there is none.
  VrfNode* find_or_add(std::string_view name);

  Client client;
  VrfRecords vrfs;
  IfRecords interfaces;
  std::string lock_holder;  // of the database lock; empty: not held

 private:
  void append_vrf_event(VrfNode* node, std::uint32_t code);
  void update_state(IfNode* node, const router::Interface& interface, const IfChange& change);
  void interface_reentered(IfNode* node, const router::Interface& before, const router::Interface& now);
  void append_rename(IfNode* node);
  void append_state(IfNode* node, const SharedText& vrf_name, const IfChange& change, IfState to);
  void delete_record(VrfNode* node);

  router::Router* model_ = nullptr;
  feed::Receiver receiver_;  // the client's
};

Service& service();

}  // namespace vtab

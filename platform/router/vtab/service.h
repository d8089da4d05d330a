// The one record service of the process: the records, which follow the router model, and the client's
// callbacks.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>

#include "platform/router/vtab/if_records.h"
#include "platform/router/vtab/vrf_records.h"

namespace vtab {

// Something that the client's callback has yet to be told, or a state that waits for what is told before it.
struct Event {
  bool is_vrf = false;
  bool was_taken = false;  // by a begin-access
  std::uint64_t turn = 0;  // its place among the events of both services (platform/router/vmap/vmap.h)

  // Of a VRF.
  std::uint32_t code = 0;
  VrfNode* node = nullptr;  // kept alive by node->queued_events

  // Of an interface.
  IfNode* interface = nullptr;  // kept alive by interface->queued_events
  bool is_rename = false;       // the client knows the new name from now on; there is no more to the event
  std::string vrf_name;         // at the time of the change
  IfChange change;
  IfState to;

  bool is_of_state() const { return !is_vrf && !is_rename; }
};

// What a client has registered; the numbers are kept as they came.
struct Client {
  EventManager* manager = nullptr;  // null: there is no client
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
  void names_change() override;
  void interface_added(const router::Interface& interface) override;
  void interface_changed(const router::Interface& before, const router::Interface& now) override;
  void interface_moved(const router::Interface& now, const std::string& from) override;
  void interface_removed(const router::Interface& interface) override;

  Status start_client(const char* name, EventManager* manager, std::size_t attribute_size);
  void end_client();
  // The record of the name, made as a forward reference (or complete, if the VRF exists) when there is none.
  VrfNode* find_or_add(std::string_view name);
  // The turn of the oldest event, or kVmapNoTurn.
  std::uint64_t oldest_turn() const;
  // Frees the deleted records of this name that nobody can use any more.
  void release(const char* vrf_name);

  // The oldest event of the record or interface that no access has taken, or null.
  Event* oldest_vrf_event(std::string_view vrf_name);
  Event* oldest_if_event(std::string_view if_name, std::string_view vrf_name);

  Client client;
  VrfRecords vrfs;
  IfRecords interfaces;
  std::string lock_holder;  // of the database lock; empty: not held
  // The accesses that the running callback has begun and not ended; null outside callbacks.
  VrfNode* vrf_in_callback = nullptr;
  IfNode* interface_in_callback = nullptr;

 private:
  void call_back(const Event& event);
  void close_left_accesses();
  void queue_vrf_event(VrfNode* node, std::uint32_t code);
  void take_over(IfNode* node, const router::Interface& interface, const IfChange& change);
  void interface_reentered(IfNode* node, const router::Interface& before, const router::Interface& now);
  void tell_name(IfNode* node);
  void queue_if_event(IfNode* node, const std::string& vrf_name, const IfChange& change, IfState to);
  void queue(Event event);
  void post_delivery();
  void run_delivery(std::uint64_t generation);
  void deliver_front();
  void settle(Event event);
  void delete_record(VrfNode* node);
  void forget_events();
  template <typename Matches>
  Event* oldest_event(Matches matches);

  router::Router* model_ = nullptr;
  std::deque<Event> events_;      // the front one stays while its callback runs
  std::uint64_t generation_ = 0;  // a posted delivery of an earlier one does nothing
};

Service& service();

}  // namespace vtab

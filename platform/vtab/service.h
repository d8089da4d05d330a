// The one record service of the process: the records, which follow the router model, and the client's
// callbacks.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "platform/vtab/if_records.h"
#include "platform/vtab/vrf_records.h"

namespace vtab {

// Something that the client's callback has yet to be told.
struct Event {
  bool is_vrf = false;
  std::uint32_t code = 0;    // of a VRF event
  VrfNode* node = nullptr;   // of a VRF event; kept alive by node->queued_events
  std::string if_name;       // of an interface event
  std::string vrf_name;      // of an interface event: where the interface was at the time
  std::uint32_t handle = 0;  // of an interface event; 0: the interface was removed
  std::uint32_t change = 0;  // of an interface event, the same for both families
  bool was_taken = false;    // by a begin-access
};

struct Client {
  EventManager* manager = nullptr;  // null: there is no client
  std::string name;
  std::size_t attribute_size = 0;
  VtabIfCallback if_callback = nullptr;
  VtabVrfCallback vrf_callback = nullptr;
  bool has_vrf_events = false;
  bool has_if_events = false;
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
  void end_client();
  // The record of the name, made as a forward reference (or complete, if the VRF exists) when there is none.
  VrfNode* find_or_add(std::string_view name);
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
  void queue_if_event(const router::Interface& interface, std::uint32_t handle, std::uint32_t change);
  void queue(Event event);
  void post_delivery();
  void run_delivery(std::uint64_t generation);
  void deliver_front();
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

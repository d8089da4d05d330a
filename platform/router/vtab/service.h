// The record service of the process: the records, which follow the router model, and the client's callbacks.
#pragma once

#include <cstdint>
#include <string>

#include "platform/router/feed/feed.h"
#include "platform/router/vtab/client.h"
#include "platform/router/vtab/if_records.h"
#include "platform/router/vtab/vrf_records.h"

namespace vtab {

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
  void append_state(IfNode* node, const std::string& vrf_name, const IfChange& change, IfState to);
  void delete_record(VrfNode* node);

  router::Router* model_ = nullptr;
  feed::Receiver receiver_;  // the client's
};

Service& service();

}  // namespace vtab

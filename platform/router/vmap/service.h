// The membership service of the process: the model, the members, the client, and the operations that its
// sources share.
//
// What was announced to the client outlives its connection: the next registration compares it with the model
// to find stale entries. VRFs are announced with their incarnation, a number that no two created VRFs share,
// so that a VRF that was deleted and created again under its name is recognized as another one.
#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/router/feed/feed.h"
#include "platform/router/vmap/vmap.h"

namespace vmap {

// One item as it will be delivered.
struct Event {
  VmapEvent kind = VmapEvent::kUpdate;
  bool is_vrf = false;
  std::uint32_t handle = 0;  // of an interface
  std::uint32_t vrf_id = 0;
  std::uint64_t incarnation = 0;  // of a VRF
  SharedText vrf_name;
};

struct AnnouncedVrf {
  Event event;
  std::uint32_t flags = 0;
};

struct AnnouncedInterface {
  SharedText vrf;
  SharedText name;  // at the time of the delivery, when the client looks it up
};

struct Announced {
  std::map<SharedText, AnnouncedVrf, router::ShorterFirst> vrfs;
  absl::btree_map<std::uint32_t, AnnouncedInterface> interfaces;  // by handle
};

}  // namespace vmap

struct VmapMemberDatabase {
  std::uint32_t type = 0;
  std::uint32_t batch = feed::kDefaultBatch;
  VmapIntfCallback intf_callback = nullptr;
  VmapVrfCallback vrf_callback = nullptr;
};

struct VmapClient {
  std::string name;
  feed::Receiver receiver;
  VmapLibraryCallback callback = nullptr;
  int client_end = -1;   // the descriptor that the client watches
  int service_end = -1;  // closed by the service to hang up; -1: not connected
  std::unique_ptr<VmapMemberDatabase> database;
  bool is_registered = false;  // with the database
  vmap::Announced announced;
};

namespace vmap {

class Service : public router::Observer {
 public:
  void attach(router::Router* model);
  bool is_available() const { return model_ != nullptr; }
  // 0 for a VRF that does not exist.
  std::uint64_t incarnation_of(std::string_view vrf) const;
  std::uint32_t flags_of(std::string_view vrf) const;  // REQUIRES: the VRF exists
  // Null for an interface that is in no VRF.
  const router::Interface* member(std::uint32_t handle) const;

  void vrf_created(const router::Vrf& vrf) override;
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override;
  void vrf_deleted(const router::Vrf& vrf) override;
  void interface_added(const router::Interface& interface) override { join(interface); }
  void interface_changed(const router::Interface& before, const router::Interface& now) override;
  void interface_moved(const router::Interface& now, const std::string& from) override;
  void interface_removed(const router::Interface& interface) override {
    leave(interface.handle, interface.vrf);
  }

  // Every VRF that exists, then every interface in a VRF, as updates.
  std::vector<Event> everything() const;

  std::unique_ptr<VmapClient> client;
  bool (*must_leave_on_rename)(const char* vrf_name, const char* if_name) = nullptr;

 private:
  Event vrf_event(VmapEvent kind, const router::Vrf& vrf) const;
  Event interface_event(VmapEvent kind, std::uint32_t handle, const SharedText& vrf) const;
  void announce(const Event& event);
  void announce_members_of(std::string_view vrf);
  void join(const router::Interface& interface);
  void leave(std::uint32_t handle, const SharedText& vrf);

  router::Router* model_ = nullptr;
  std::map<SharedText, absl::btree_set<std::uint32_t>, router::ShorterFirst> members_;  // handles, by VRF
  std::map<std::string, std::uint64_t, router::ShorterFirst> incarnations_;
  std::uint64_t last_incarnation_ = 0;
};

Service& service();

// --- delivery.cpp, for the client's registration
void deliver(const Event& event);
// Announces stale entries as deletions, then everything that exists, at once. The number of items announced.
std::uint32_t replay();

// --- calls.cpp
// The service fails: it hangs up.
void close_connection();

}  // namespace vmap

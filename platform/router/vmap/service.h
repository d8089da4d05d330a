// The membership service of the process: the model, the members, the clients, and the operations that its
// sources share.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/router/vmap/client.h"

namespace vmap {

class Service : public router::Observer {
 public:
  void attach(router::Router* model);
  bool is_available() const { return model_ != nullptr; }
  // 0 for a VRF that does not exist.
  std::uint64_t incarnation_of(std::string_view vrf) const;
  std::uint32_t flags_of(std::string_view vrf) const;      // REQUIRES: the VRF exists
  const std::string& name_of(std::uint32_t handle) const;  // REQUIRES: the interface exists

  void vrf_created(const router::Vrf& vrf) override;
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override;
  void vrf_deleted(const router::Vrf& vrf) override;
  void interface_added(const router::Interface& interface) override;
  void interface_changed(const router::Interface& before, const router::Interface& now) override;
  void interface_moved(const router::Interface& now, const std::string& from) override;
  void interface_removed(const router::Interface& interface) override;

  // Every VRF that exists, then every interface in a VRF, as updates.
  std::vector<Event> everything() const;

  Members members;
  std::vector<std::unique_ptr<VmapClient>> clients;
  std::uint64_t last_client = 0;
  bool (*must_leave_on_rename)(const char* vrf_name, const char* if_name) = nullptr;

 private:
  Event vrf_event(VmapEvent kind, const router::Vrf& vrf) const;
  Event interface_event(VmapEvent kind, const Member& member) const;
  void announce(const Event& event);
  void announce_members_of(const std::string& vrf);
  void join(const router::Interface& interface);
  void leave(std::uint32_t handle);

  router::Router* model_ = nullptr;
  std::map<std::string, std::uint64_t, router::ShorterFirst> incarnations_;
  std::uint64_t last_incarnation_ = 0;
};

Service& service();

// --- delivery.cpp ---
// A notification that delivers the event to the client.
std::unique_ptr<feed::Notification> notification_of(VmapClient* client, const Event& event);
// Announces stale entries as deletions, then everything that exists, at once. The number of items announced.
std::uint32_t replay(VmapClient* client);
// Whether this registration of this client still exists; for loops around callbacks, which may end both.
bool is_registered(std::uint64_t client_id, std::uint64_t registration);
// Ends the registration, if there is one; what is pending for it is dropped.
void end_registration(VmapClient* client);

// --- calls.cpp ---
void close_all_connections();

}  // namespace vmap

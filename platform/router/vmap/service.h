// The one membership service of the process: the model, the members and the clients, and the operations that
// its sources share.
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
  bool is_available() const { return running && model_ != nullptr; }
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

  bool running = true;
  Members members;
  std::vector<std::unique_ptr<VmapClient>> clients;
  std::uint64_t last_client = 0;
  void (*deletion_told)(const char* vrf_name) = nullptr;
  std::uint64_t (*oldest_elsewhere)() = nullptr;
  bool (*name_must_end)(const char* vrf_name, const char* if_name) = nullptr;

 private:
  Event vrf_event(VmapEvent kind, const router::Vrf& vrf) const;
  Event interface_event(VmapEvent kind, const Member& member) const;
  void announce(Event event);
  void announce_members_of(const std::string& vrf);
  void join(const router::Interface& interface);
  void leave(std::uint32_t handle);

  router::Router* model_ = nullptr;
  std::map<std::string, std::uint64_t, router::ShorterFirst> incarnations_;
  std::uint64_t last_incarnation_ = 0;
};

Service& service();

// --- delivery.cpp ---
// Puts the event behind what waits already and sees that it will be delivered.
void enqueue(VmapClient* client, const Event& event);
// The registered client whose first waiting event is the oldest of all; null when nothing waits.
VmapClient* oldest_waiting();
// Takes the client's first waiting event and tells it, unless it is about something that went untold. The
// client may have ended on return.
void deliver_front(VmapClient* client);
// Ghosts as deletions, then everything that exists, delivered at once. The number of items announced.
std::uint32_t replay(VmapClient* client);
// Whether this registration of this client lasts still; for loops around callbacks, which may end both.
bool is_registered(std::uint64_t client_id, std::uint64_t registration);
// Ends the registration, if there is one, and what it had not delivered.
void end_registration(VmapClient* client);
// The client may forget a VRF of this name now.
void tell_deletion_hook(const std::string& vrf_name);

}  // namespace vmap

// A client of the membership service: its connection, its member databases, what waits to be delivered to it
// and what it was told.
//
// The last outlives connections: it is what the next registration compares with the model to find the ghosts.
// VRFs are told with their incarnation, a number that no two created VRFs share, so that a VRF that was
// deleted and created again under its name is recognised as another one.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/router/vmap/members.h"
#include "platform/router/vmap/vmap.h"

namespace vmap {

// One item as it will be delivered; complete in itself.
struct Event {
  VmapEvent kind = VmapEvent::kUpdate;
  bool is_vrf = false;
  std::uint32_t handle = 0;  // of an interface
  std::uint32_t vrf_id = 0;
  std::uint64_t incarnation = 0;  // of a VRF
  std::uint64_t turn = 0;         // its place among the events of both services (vmap.h)
  SharedName vrf_name;
};

struct ToldVrf {
  std::uint32_t vrf_id = 0;
  std::uint64_t incarnation = 0;
  std::uint32_t flags = 0;
};

struct ToldInterface {
  SharedName vrf_name;
  std::string name;  // the interface's own at the time of the delivery, when the client asks for it
};

struct Told {
  std::map<std::string, ToldVrf, router::ShorterFirst> vrfs;
  std::unordered_map<std::uint32_t, ToldInterface> interfaces;  // by handle
};

inline constexpr std::uint32_t kDefaultBatch = 40;

}  // namespace vmap

struct VmapMemberDatabase {
  VmapClient* client = nullptr;
  std::uint32_t type = 0;
  std::uint32_t batch = vmap::kDefaultBatch;
  VmapIntfCallback intf_callback = nullptr;
  VmapVrfCallback vrf_callback = nullptr;
};

struct VmapClient {
  std::uint64_t id = 0;
  std::string name;
  EventManager* manager = nullptr;
  VmapLibraryCallback callback = nullptr;
  int client_end = -1;   // the descriptor that the client watches
  int service_end = -1;  // closed by the service to hang up; -1: not connected
  std::vector<std::unique_ptr<VmapMemberDatabase>> databases;
  VmapMemberDatabase* registered = nullptr;
  std::uint64_t registration = 0;  // counts registrations and their ends
  std::deque<vmap::Event> queue;
  bool delivery_posted = false;
  vmap::Told told;
};

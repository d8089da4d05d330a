// A client of the membership service: its connection, its member databases and what was announced to it.
//
// The last outlives connections: the next registration compares it with the model to find stale entries. VRFs
// are announced with their incarnation, a number that no two created VRFs share, so that a VRF that was
// deleted and created again under its name is recognized as another one.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/router/feed/feed.h"
#include "platform/router/vmap/members.h"
#include "platform/router/vmap/vmap.h"

namespace vmap {

// One item as it will be delivered.
struct Event {
  VmapEvent kind = VmapEvent::kUpdate;
  bool is_vrf = false;
  std::uint32_t handle = 0;  // of an interface
  std::uint32_t vrf_id = 0;
  std::uint64_t incarnation = 0;  // of a VRF
  SharedName vrf_name;
};

struct AnnouncedVrf {
  std::uint32_t vrf_id = 0;
  std::uint64_t incarnation = 0;
  std::uint32_t flags = 0;
};

struct AnnouncedInterface {
  SharedName vrf_name;
  std::string name;  // at the time of the delivery, when the client looks it up
};

struct Announced {
  std::map<std::string, AnnouncedVrf, router::ShorterFirst> vrfs;
  std::unordered_map<std::uint32_t, AnnouncedInterface> interfaces;  // by handle
};

}  // namespace vmap

struct VmapMemberDatabase {
  VmapClient* client = nullptr;
  std::uint32_t type = 0;
  std::uint32_t batch = feed::kDefaultBatch;
  VmapIntfCallback intf_callback = nullptr;
  VmapVrfCallback vrf_callback = nullptr;
};

struct VmapClient {
  std::uint64_t id = 0;
  std::string name;
  feed::Receiver receiver;
  VmapLibraryCallback callback = nullptr;
  int client_end = -1;   // the descriptor that the client watches
  int service_end = -1;  // closed by the service to hang up; -1: not connected
  std::vector<std::unique_ptr<VmapMemberDatabase>> databases;
  VmapMemberDatabase* registered = nullptr;
  std::uint64_t registration = 0;  // counts registrations and their ends
  vmap::Announced announced;
};

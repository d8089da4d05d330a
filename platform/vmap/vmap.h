// Membership service: which VRFs exist and which interfaces are in which VRF.
//
// A client binds (its descriptor hangs up when the service goes away), builds a member database, subscribes to all
// interfaces and all VRFs, and registers: the registering call replays what exists, VRFs first, then interfaces in
// the order they joined; changes after that arrive through the event manager, in the order they happened, in
// bounded batches. An interface that is in no VRF is not announced. A move is a Delete for the old VRF, then an
// Update for the new one. VRFs that are only named are not announced.
//
// The connection can drop and come back (vmap_service_restart). What a client was told and what has gone meanwhile
// is announced as deleted by the next registration, before what exists, so that no client keeps a ghost.
//
// Fault points are named after the operations. Main thread only.
#pragma once

#include <cstdint>

#include "platform/base/status.h"
#include "platform/evm/evm.h"
#include "platform/router/router.h"

struct VmapClient;
struct VmapMemberDatabase;

enum class VmapEvent : std::uint32_t { kUpdate = 0, kDelete = 1 };

struct VmapVrfItem {
  const char* vrf_name;
  std::uint32_t vrf_id;
  std::uint32_t vr_id;
  std::uint32_t flags;  // 0x2: a VRF of many routes; 0x8: not for clients of the MIB
  void* attr;
};

struct VmapIntfItem {
  std::uint32_t ifh;  // interface handle
  const char* vrf_name;
  std::uint32_t vrf_id;  // 0 when the VRF does not exist
  std::uint32_t flags;   // 0x2, 0x4: not for clients of the MIB
  void* attr;
};

using VmapLibraryCallback = int (*)(void* argument);
using VmapVrfCallback = void (*)(VmapMemberDatabase*, VmapEvent, const VmapVrfItem*);
using VmapIntfCallback = void (*)(VmapMemberDatabase*, VmapEvent, const VmapIntfItem*);

void vmap_attach(router::Router* model);  // called once by the process; null takes the model away

[[nodiscard]] Status vmap_c_lib_init(const char* client_name, EventManager* manager, VmapLibraryCallback callback,
                                     VmapClient** client);
void vmap_c_lib_end(VmapClient* client);  // for tests that start the daemon again
[[nodiscard]] Status vmap_c_bind(VmapClient* client, int* fd);
// Also releases the client's member databases that are still there.
[[nodiscard]] Status vmap_c_unbind(VmapClient* client);
[[nodiscard]] Status vmap_c_mdb_init(VmapClient* client, std::uint32_t type, VmapMemberDatabase** database);
void vmap_c_mdb_free(VmapMemberDatabase* database);
[[nodiscard]] Status vmap_c_mdb_add_intf_all(VmapMemberDatabase* database, VmapIntfCallback callback,
                                             std::uint32_t batch);
[[nodiscard]] Status vmap_c_mdb_add_vrf_all(VmapMemberDatabase* database, VmapVrfCallback callback);
[[nodiscard]] Status vmap_c_notif_reg(VmapMemberDatabase* database, int* fd, std::uint32_t* num_results);

// The service drops every connection and refuses new ones until told otherwise.
void vmap_service_stop();
void vmap_service_start();
// True while a record of this name must not be released because a client was told of the VRF and not yet of its
// deletion. Asked by the record service.
bool vmap_owes_vrf_deletion(const char* vrf_name);

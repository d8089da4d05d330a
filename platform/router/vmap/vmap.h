// Membership service: which VRFs exist and which interfaces are in which VRF.
//
// A client binds (its descriptor hangs up when the service closes the connection), builds a member database,
// subscribes to all interfaces and all VRFs, and registers. The registering call replays what exists, VRFs
// first, then interfaces in the order of their handles; later changes are delivered by the event manager, in
// the order they happened, in bounded batches. Not announced: an interface that is in no VRF, the VRF
// "default", and VRFs that are only referenced. A move is a Delete for the old VRF, then an Update for the
// new one. An item is announced again when its contents have changed: an interface with a new name or index,
// the members of a VRF that was created or deleted (their vrf_id). An item has the contents of the time of
// the change, whatever happens before it is delivered. To a client that knows the interface by another name,
// it may be announced as having left first (vmap_on_rename).
//
// Clients ignore interfaces of subscribers. An interface that gets a subscriber's name while it is in a VRF
// is announced as having left, and then under its new name.
//
// A client treats a VRF that is announced again as a new one, so a change of its flags alone is not
// announced: the announcement of a VRF has the flags of the time of its delivery, and its deletion has the
// flags that were delivered last. The exception is a VRF that clients of the MIB must ignore from now on, or
// no longer (kVmapVrfFlagIgnore): it is announced as deleted with the former flags and created with the new
// ones.
//
// A client whose connection was closed binds and registers again. The next registration announces what is
// stale as deleted before it replays what exists: interfaces in handle order, then VRFs in name order. A VRF
// that was deleted and created again meanwhile is another VRF, and is announced as deleted first. Changes
// that were pending when the connection was closed are dropped; the next registration makes up for them.
//
// A VRF, or a membership, that ended before it was announced is not announced at all: its details can no
// longer be looked up.
//
// The record service notifies its client of the same changes, in one order with these (platform/router/feed).
//
// One client per process. Its callbacks do not call the service. Fault points are named after the operations.
// "vmap_service" is the failure of the service itself: it refuses to bind, and at the next change it closes
// the connection. kStatusInvalid for null arguments. Main thread only.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

struct VmapClient;
struct VmapMemberDatabase;

enum class VmapEvent : std::uint32_t { kUpdate = 0, kDelete = 1 };

inline constexpr std::uint32_t kVmapVrfFlagIgnore = 0x8;  // of a VRF that is not for clients of the MIB

struct VmapVrfItem {
  const char* vrf_name;
  std::uint32_t vrf_id;
  std::uint32_t vr_id;
  std::uint32_t flags;  // router::kVrfFlagBig, kVmapVrfFlagIgnore
  void* attr;
};

struct VmapIntfItem {
  std::uint32_t ifh;  // interface handle
  const char* vrf_name;
  std::uint32_t vrf_id;  // 0 when the VRF does not exist
  std::uint32_t flags;   // 0x2, 0x4: not for clients of the MIB
  void* attr;
};

// Called with the client when the service closes its connection; the result is not used.
using VmapLibraryCallback = int (*)(void* argument);
using VmapVrfCallback = void (*)(VmapMemberDatabase*, VmapEvent, const VmapVrfItem*);
using VmapIntfCallback = void (*)(VmapMemberDatabase*, VmapEvent, const VmapIntfItem*);

// The model that the service announces; called once by the process. Null detaches it.
void vmap_attach(router::Router* model);

// kStatusExists while there is a client.
[[nodiscard]] Status vmap_c_lib_init(const char* client_name, EventManager* manager,
                                     VmapLibraryCallback callback, VmapClient** client);
// Ends the client (null: nothing); it may not use anything that was announced to it any more. Call it before
// the event manager is destroyed.
void vmap_c_lib_end(VmapClient* client);
// The descriptor belongs to the client library, which closes it in vmap_c_unbind; the caller only watches it.
// kStatusUnavailable without a model, kStatusExists for a client that is connected.
[[nodiscard]] Status vmap_c_bind(VmapClient* client, int* fd);
// Also releases the member database if the client did not free it.
[[nodiscard]] Status vmap_c_unbind(VmapClient* client);
// kStatusNotConnected for a client that is not bound or whose connection was closed, kStatusExists while
// there is a database.
[[nodiscard]] Status vmap_c_mdb_init(VmapClient* client, std::uint32_t type, VmapMemberDatabase** database);
void vmap_c_mdb_free(VmapMemberDatabase* database);
// One iteration of the event loop delivers at most `batch` items; 0 means 40.
[[nodiscard]] Status vmap_c_mdb_add_intf_all(VmapMemberDatabase* database, VmapIntfCallback callback,
                                             std::uint32_t batch);
[[nodiscard]] Status vmap_c_mdb_add_vrf_all(VmapMemberDatabase* database, VmapVrfCallback callback);
// Replays before it returns; *num_results is the number of items announced. kStatusNotConnected as above,
// kStatusExists when the database is registered already.
[[nodiscard]] Status vmap_c_notif_reg(VmapMemberDatabase* database, int* fd, std::uint32_t* num_results);

// Called before an interface is announced to a client that knows it by another name, `if_name`, in this VRF.
// When it returns true, the interface is announced as having left right before the update, so that the client
// removes what it stored under that name. Null removes the function.
void vmap_on_rename(bool (*must_leave)(const char* vrf_name, const char* if_name));

// True for the name of a subscriber's interface: it contains ".ip" or ".pppoe".
bool vmap_is_subscribers_name(const char* if_name);

// Membership service: which VRFs exist and which interfaces are in which VRF.
//
// A client binds (its descriptor hangs up when the service goes away), builds a member database, subscribes
// to all interfaces and all VRFs, and registers: the registering call replays what exists, VRFs first, then
// interfaces in the order they joined; changes after that arrive through the event manager, in the order they
// happened, in bounded batches. An interface that is in no VRF is not announced, nor is the VRF "default". A
// move is a Delete for the old VRF, then an Update for the new one. VRFs that are only named are not
// announced. An item is announced again when its contents have changed: an interface under a new name or
// index, the members of a VRF that was created or deleted (their vrf_id). An item has the contents of the
// time of the change, whatever happens before it is delivered. To a client that knows the interface by
// another name it may be announced as having left first (vmap_on_rename).
//
// Clients do not keep interfaces of subscribers. An interface that gets such a name while it is in a VRF is
// announced as having left, and then under its new name.
//
// A client treats a VRF that is announced again as a new one, so a change of its flags alone is not
// announced: an announcement of a VRF has the flags of the time of its delivery, and its deletion those that
// were delivered last. Only a VRF that clients of the MIB must ignore from now on, or must not ignore any
// more (kVmapVrfFlagIgnore), is announced as deleted with the former flags and created with the new ones.
//
// The connection can drop and come back (vmap_service_stop, vmap_service_start). What a client was told and
// what has gone meanwhile is announced as deleted by the next registration, before what exists, so that no
// client keeps a ghost: interfaces in handle order, then VRFs in name order. A VRF that was deleted and
// created again meanwhile is another VRF, and is announced as deleted first. Changes that were not delivered
// when the connection dropped are forgotten; the next registration makes up for them.
//
// A VRF, or a membership, that is gone again before a client was told of it is not announced at all: nobody
// could ask any more what it was.
//
// The record service tells its client of the same changes; what both have to tell is delivered in the order
// of the changes (VmapPhase), so that an interface is down before it leaves, a record gone before its VRF's
// id is announced for another VRF, and an interface in its VRF before it comes up there.
//
// Fault points are named after the operations. kStatusInvalid for null arguments. Main thread only.
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

// Called with the client when the service drops its connection; the result is not used.
using VmapLibraryCallback = int (*)(void* argument);
using VmapVrfCallback = void (*)(VmapMemberDatabase*, VmapEvent, const VmapVrfItem*);
using VmapIntfCallback = void (*)(VmapMemberDatabase*, VmapEvent, const VmapIntfItem*);

// The model that the service speaks of; called once by the process. Null takes it away and drops every
// connection.
void vmap_attach(router::Router* model);

[[nodiscard]] Status vmap_c_lib_init(const char* client_name, EventManager* manager,
                                     VmapLibraryCallback callback, VmapClient** client);
// Ends the client and what it was told: a new client knows nothing. Before the event manager goes.
void vmap_c_lib_end(VmapClient* client);
// The descriptor belongs to the client library, which closes it in vmap_c_unbind; the caller only watches it.
// kStatusUnavailable while the service is stopped or has no model, kStatusExists for a client that is
// connected.
[[nodiscard]] Status vmap_c_bind(VmapClient* client, int* fd);
// Also releases the client's member databases that are still there.
[[nodiscard]] Status vmap_c_unbind(VmapClient* client);
// kStatusNotConnected for a client that is not bound or whose connection was dropped.
[[nodiscard]] Status vmap_c_mdb_init(VmapClient* client, std::uint32_t type, VmapMemberDatabase** database);
void vmap_c_mdb_free(VmapMemberDatabase* database);
// `batch` is the most items that one turn of the event loop delivers; 0 means 40.
[[nodiscard]] Status vmap_c_mdb_add_intf_all(VmapMemberDatabase* database, VmapIntfCallback callback,
                                             std::uint32_t batch);
[[nodiscard]] Status vmap_c_mdb_add_vrf_all(VmapMemberDatabase* database, VmapVrfCallback callback);
// Replays before it returns; *num_results is the number of items announced. kStatusNotConnected as above,
// kStatusExists when the client has a registered member database already. A callback may unbind: nothing more
// is announced then, and a replay ends with kStatusNotConnected.
[[nodiscard]] Status vmap_c_notif_reg(VmapMemberDatabase* database, int* fd, std::uint32_t* num_results);

// The service drops every connection and refuses new ones until told otherwise.
void vmap_service_stop();
void vmap_service_start();

// True while a client was told of a VRF of this name that has been deleted since, and not yet of the
// deletion: the client may still use its record. Asked by the record service.
bool vmap_owes_vrf_deletion(const char* vrf_name);
// The order of what one change of the model makes the two services tell: the lower first.
enum class VmapPhase : std::uint8_t { kWentDown, kLeft, kRecord, kJoined, kCameUp };
inline constexpr std::uint64_t vmap_turn(std::uint64_t change, VmapPhase phase) {
  return change * 8 + static_cast<std::uint64_t>(phase);
}
inline constexpr std::uint64_t kVmapNoTurn = UINT64_MAX;
// The turn of the oldest undelivered event of any client, or kVmapNoTurn.
std::uint64_t vmap_oldest_turn();
// Delivers that event. How the record service lets what is older pass.
void vmap_deliver_oldest();
// The turn of the oldest event of the record service, asked before each delivery: what is younger than that
// waits. Null ends it.
void vmap_wait_for(std::uint64_t (*oldest_elsewhere)());

// Asked before an interface is announced to a client that knows it by another name, `if_name`, in this VRF:
// true when what is kept under that name must end, which it does by a deletion of the interface right before
// the update. Null ends it.
void vmap_on_rename(bool (*must_end)(const char* vrf_name, const char* if_name));

// True for the name of a subscriber's interface: it contains ".ip" or ".pppoe".
bool vmap_is_subscribers_name(const char* if_name);

// Called with the name whenever a client was told of a VRF's deletion, or ended; null ends it. How the record
// service learns that it may look again.
void vmap_on_vrf_deletion_told(void (*hook)(const char* vrf_name));

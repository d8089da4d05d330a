// The router model: VRFs, interfaces, addresses and memberships as the platform services see them. One source
// (a file, the kernel) feeds it; services observe it.
//
// Names: a VRF name has 1 to 31 octets (the bound of RFC 4382's MplsL3VpnName) without NUL, an interface name
// 1 to 63. "default" is the routing context of every interface that is in no VRF; it always exists, with id
// 1.
//
// Identity: a VRF's id and table ids are the source's and stable across restarts; an interface's handle is
// the model's own and stable while the interface exists; its index is the host's ifIndex.
//
// A membership may name a VRF that does not exist (yet); deleting a VRF leaves the memberships that name it.
// Every change is validated first and made completely or not at all; every observer is notified before the
// call returns. A change that an observer or visitor attempts from inside a call fails with kStatusDeadlock.
// Main thread only. Every change is a fault point, "router_" and its name ("router_create_vrf").
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/compact/shared_block.h"
#include "platform/core/compact/shared_text.h"
#include "platform/router/model/address.h"
#include "platform/router/model/address_list.h"
#include "platform/router/model/default_vrf.h"
#include "platform/router/model/route_store.h"

namespace router {

inline constexpr std::size_t kVrfNameMax = 31;
inline constexpr std::size_t kInterfaceNameMax = 63;
inline constexpr std::uint32_t kVrfFlagBig = 0x2;  // a VRF of many routes

// The order of names everywhere below the router model: shorter names first, names of one length octet by
// octet. It is the order of the MIB's indexes (a length, then the octets; RFC 2578 section 7.7).
struct ShorterFirst {
  using is_transparent = void;
  bool operator()(std::string_view left, std::string_view right) const {
    return left.size() != right.size() ? left.size() < right.size() : left < right;
  }
};

struct Vrf {
  std::string name;
  std::uint32_t id = 0;          // never 0 for a VRF that exists
  std::uint32_t ipv4_table = 0;  // routing-table ids; 0: the VRF has no table of this family
  std::uint32_t ipv6_table = 0;
  std::uint32_t ipv4_multicast_table = 0;
  std::uint32_t ipv6_multicast_table = 0;
  std::uint32_t flags = 0;
  std::string description;
  std::string rd;  // route distinguisher as text; empty when none
  bool operator==(const Vrf&) const = default;
};

// What the kernel says of one IPv4 address of an interface.
struct Ipv4Detail {
  Address address{};
  Address peer{};          // the other end of a point-to-point address; else the address itself
  bool secondary = false;  // not the first address of its subnet
  bool operator==(const Ipv4Detail&) const = default;
};

SharedText default_vrf_name();

// Small, because a router has 100,000: services share its texts and addresses instead of copying them.
struct Interface {
  std::uint32_t handle = 0;  // never 0
  std::uint32_t index = 0;   // ifIndex, 1 to 2147483647
  SharedText name;
  SharedText description;
  SharedText vrf = default_vrf_name();
  AddressList addresses;                 // in the source's order; the first of a family is its primary one
  SharedBlock<Ipv4Detail> ipv4_details;  // empty when the source knows no more than `addresses`
  bool up = false;                       // operationally up
  bool operator==(const Interface&) const = default;
};

// The holders of references to a VRF name. A name is referenced while it has at least one holder.
enum class ReferenceHolder : std::uint8_t {
  kSource = 0x1,         // the router has the VRF, but it is not created
  kConfiguration = 0x2,  // the VRF has configuration
};

// Notifications of changes. `before` is the state before the change; references are valid during the call
// only.
class Observer {
 public:
  virtual ~Observer() = default;
  // Before a VRF is created, changed or deleted; the model and all that services derived from it are
  // unchanged. `next` is the VRF after the change; null for a deletion.
  virtual void vrf_changing(const std::string& /*name*/, const Vrf* /*next*/) {}
  virtual void vrf_created(const Vrf&) {}
  virtual void vrf_changed(const Vrf& /*before*/, const Vrf& /*now*/) {}
  virtual void vrf_deleted(const Vrf&) {}
  virtual void vrf_referenced(const std::string& /*name*/) {}    // named by configuration and not created
  virtual void vrf_unreferenced(const std::string& /*name*/) {}  // no longer named, and not created either
  virtual void interface_added(const Interface&) {}              // already with its membership
  // Before an interface changes, as vrf_changing.
  virtual void interface_changing(const Interface& /*now*/, const Interface& /*next*/) {}
  virtual void interface_changed(const Interface& /*before*/, const Interface& /*now*/) {
  }  // not the membership
  virtual void interface_moved(const Interface& /*now*/, const std::string& /*from*/) {}  // the membership
  virtual void interface_removed(const Interface&) {}  // still with its membership
  virtual void routes_changed(RouteTableId) {}         // once a batch for each table that changed
};

// Observers are notified in this order of creations and additions, and in the reverse order of deletions,
// removals and moves: a record exists before a membership names it and is deleted after it.
enum class ObserverRank : int { kRecords = 0, kMembership = 1, kOther = 2, kFeed = 3 };

class Router {
 public:
  Router();
  ~Router();
  Router(const Router&) = delete;
  Router& operator=(const Router&) = delete;

  void observe(ObserverRank rank, Observer* observer);
  void stop_observing(Observer* observer);

  // kStatusExists (name or id taken; "default" has id 1), kStatusInvalid (name, id 0, or "default").
  [[nodiscard]] Status create_vrf(const Vrf& vrf);
  // Replaces everything but name and id. kStatusNoSuchRow, kStatusInvalid ("default" may change).
  // No notification when nothing differs.
  [[nodiscard]] Status change_vrf(const Vrf& vrf);
  [[nodiscard]] Status delete_vrf(std::string_view name);
  // References a VRF name, whether or not the VRF exists; services have a forward reference for a referenced
  // VRF that does not exist. Each holder references a name at most once: kStatusExists for the second
  // reference, kStatusNoSuchRow for releasing a reference that the holder does not have, kStatusInvalid for a
  // bad name or "default". Observers are notified of the first holder and of the last one, and only while the
  // VRF does not exist; the deletion of a referenced VRF is a plain vrf_deleted, and is_referenced() still
  // returns true.
  [[nodiscard]] Status reference_vrf(std::string_view name,
                                     ReferenceHolder holder = ReferenceHolder::kSource);
  [[nodiscard]] Status unreference_vrf(std::string_view name,
                                       ReferenceHolder holder = ReferenceHolder::kSource);

  // The handle field is ignored; the new handle is written to *handle when not null. kStatusExists (name or
  // index taken), kStatusInvalid (name, index, VRF name or an address).
  [[nodiscard]] Status add_interface(const Interface& interface, std::uint32_t* handle = nullptr);
  // Replaces everything but handle and membership (also the name and the index). One notification, none when
  // nothing differs. kStatusNoSuchRow for an unknown handle, else as for add_interface.
  [[nodiscard]] Status change_interface(const Interface& interface);
  [[nodiscard]] Status remove_interface(std::uint32_t handle);
  // Joins `vrf`, leaving the one it was in; kDefaultVrf leaves only. No notification when it is there
  // already.
  [[nodiscard]] Status move_interface(std::uint32_t handle, std::string_view vrf);

  const Vrf* find_vrf(std::string_view name) const;
  const Vrf* find_vrf_by_id(std::uint32_t id) const;
  bool is_referenced(std::string_view name) const;  // by any holder
  bool is_referenced(std::string_view name, ReferenceHolder holder) const;
  const Interface* find_interface(std::uint32_t handle) const;
  const Interface* find_interface_by_name(std::string_view name) const;
  const Interface* find_interface_by_index(std::uint32_t index) const;

  // The owner (platform/config/owners.h) to whom the RDs of the model are attributed. The source states it
  // when it is constructed; empty for a source that sets no RD.
  void set_rd_owner(std::string_view owner);
  const std::string& rd_owner() const;

  // The number of changes so far; during a notification it includes the change that is being notified.
  std::uint64_t changes() const;

  std::size_t vrf_count() const;  // without "default"
  std::size_t interface_count() const;
  // In name order (ShorterFirst); "default" is included in for_each_vrf.
  void for_each_vrf(const std::function<void(const Vrf&)>& visit) const;
  void for_each_reference(const std::function<void(const std::string&)>& visit) const;  // by any holder
  // In handle order (the order of addition).
  void for_each_interface(const std::function<void(const Interface&)>& visit) const;
  // The same one by one, for walks in steps: the first one after this name or handle, which need not exist;
  // null at the end. Nothing is before an empty name or handle 0.
  const Vrf* vrf_after(std::string_view name) const;
  const std::string* reference_after(std::string_view name) const;
  const Interface* interface_after(std::uint32_t handle) const;
  // In the order of the names' octets.
  const Interface* interface_after_name(std::string_view name) const;

  // The unicast tables of the VRFs. A table is open while a VRF has it. It is opened, empty, before observers
  // are notified of the VRF; it is closed and its routes are removed before observers are notified of the
  // deletion or of another table id.
  RouteStore& routes();
  const RouteStore& routes() const;
  // Notifies every observer once of each table whose routes changed since the last call. Sources call it
  // after each batch.
  void flush_route_changes();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

bool valid_vrf_name(std::string_view name);
bool valid_interface_name(std::string_view name);

}  // namespace router

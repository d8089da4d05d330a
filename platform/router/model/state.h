// The state of a router::Router, shared by the sources that implement it.
//
// References to VRFs and interfaces remain valid while others are added and removed. The orders of interfaces
// by name and by index read both in the interfaces: remove an entry before they change.
#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <utility>

#include "platform/core/base/fault.h"
#include "platform/router/model/router.h"

namespace router {

struct Router::State {
  std::map<std::string, Vrf, ShorterFirst> vrfs;  // with "default"
  std::unordered_map<std::uint32_t, Vrf*> vrfs_by_id;
  std::map<std::string, std::uint8_t, ShorterFirst> references;  // the holders' bits, never 0

  struct ByName {
    using is_transparent = void;
    bool operator()(const Interface* left, const Interface* right) const { return left->name < right->name; }
    bool operator()(const Interface* left, std::string_view right) const { return left->name < right; }
    bool operator()(std::string_view left, const Interface* right) const { return left < right->name; }
  };

  struct ByIndex {
    using is_transparent = void;
    bool operator()(const Interface* left, const Interface* right) const {
      return left->index < right->index;
    }
    bool operator()(const Interface* left, std::uint32_t right) const { return left->index < right; }
    bool operator()(std::uint32_t left, const Interface* right) const { return left < right->index; }
  };

  // A hash table that grows visits all its entries at once.
  absl::btree_map<std::uint32_t, std::unique_ptr<Interface>> interfaces;  // by handle
  absl::btree_set<Interface*, ByIndex> interfaces_by_index;
  absl::btree_set<Interface*, ByName> interfaces_by_name;
  std::uint32_t last_handle = 0;
  // The names of VRFs that interfaces are in, each once, with the number of those interfaces.
  std::map<SharedText, std::uint32_t, ShorterFirst> members;

  RouteStore routes;
  std::string rd_owner;

  std::vector<std::pair<ObserverRank, Observer*>> observers;  // by rank, then in order of registration
  unsigned busy = 0;                                          // > 0 while observers or visitors run
  std::uint64_t changes = 0;

  // The start of every change: its fault point, and the refusal of changes inside a notification.
  Status may_change(const char* operation) const {
    if (Status status = fault_check(operation)) return status;
    return busy > 0 ? kStatusDeadlock : kStatusOk;
  }

  // Refuses changes while it exists.
  class Busy {
   public:
    explicit Busy(State* state) : state_(state) { ++state_->busy; }
    ~Busy() { --state_->busy; }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

   private:
    State* state_;
  };

  template <typename Notify>
  void notify_records_first(Notify notify) {
    const Busy guard(this);
    ++changes;
    for (const auto& [rank, observer] : observers) notify(*observer);
  }

  template <typename Notify>
  void notify_records_last(Notify notify) {
    const Busy guard(this);
    ++changes;
    for (auto entry = observers.rbegin(); entry != observers.rend(); ++entry) notify(*entry->second);
  }

  template <typename Notify>
  void notify_before_change(Notify notify) {
    const Busy guard(this);
    for (const auto& [rank, observer] : observers) notify(*observer);
  }

  template <typename Map, typename Visit>
  void visit_all(const Map& map, const Visit& visit) {
    const Busy guard(this);
    for (const auto& [key, value] : map) visit(value);
  }
};

}  // namespace router

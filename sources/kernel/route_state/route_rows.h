// Makes rows of the route store from the kernel's routes. Keeps the kernel's next-hop objects, which routes
// may name instead of having paths. docs/routes.md describes the rows.
//
// Main thread only.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "platform/router/model/route_store.h"
#include "sources/kernel/route_state/route_message.h"

namespace kernel {

class NextHopObjects {
 public:
  // Objects whose routes are deleted, and those whose routes have other paths.
  struct Affected {
    std::set<std::uint32_t> removed;
    std::set<std::uint32_t> changed;
  };

  // True when the object is new or differs.
  bool update(const NextHopObject& object);
  // Also from groups. A group without a member is removed.
  Affected remove(std::uint32_t id);
  // Removes the objects over an interface, as the kernel does without an announcement when it loses its
  // carrier, is set down or is removed.
  Affected remove_over(std::uint32_t interface_index);
  bool empty() const { return objects_.empty(); }
  const NextHopObject* find(std::uint32_t id) const;  // valid until a change
  // The object and the groups that have it as a member.
  std::set<std::uint32_t> users(std::uint32_t id) const;
  // A comparison with objects that were read, in steps. Changes and removals between the steps belong to
  // both.
  struct Comparison {
    std::uint64_t next = 0;         // the lowest number that was not compared
    std::uint64_t differences = 0;  // objects that were not equal
    Affected affected{};            // since the caller emptied it
  };
  // Makes up to `count` objects those of `read`; false when all are.
  [[nodiscard]] bool adopt_some(const NextHopObjects& read, std::size_t count, Comparison* comparison);
  // Frees up to `count` objects; false when none is left. Nothing but this and destruction may follow.
  [[nodiscard]] bool release_some(std::size_t count);

 private:
  using Pairs = std::set<std::pair<std::uint32_t, std::uint32_t>>;
  void enter(const NextHopObject& object);
  void withdraw(const NextHopObject& object);
  void remove(std::uint32_t id, Affected* affected);
  void adopt(std::uint32_t id, const NextHopObject* read, Comparison* comparison);

  std::map<std::uint32_t, NextHopObject> objects_;
  Pairs over_;    // interface, object
  Pairs groups_;  // member, group
};

// False for entries that are not rows of a routing table for management: local, broadcast, multicast and
// anycast entries, IPv6 link-local prefixes, cached exceptions.
bool is_shown(const KernelRoute& route);

// Appends the rows of a route that is shown, one per path in use. False, without rows, when the route has no
// paths of its own and names an unknown object.
[[nodiscard]] bool append_rows(const KernelRoute& route, const NextHopObjects& objects,
                               std::vector<router::Route>* rows);

}  // namespace kernel

// Makes rows of the route store from the kernel's routes. Keeps the kernel's next-hop objects, which routes
// may name instead of having paths. docs/routes.md describes the rows.
//
// Main thread only.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "platform/router/model/route_store.h"
#include "sources/kernel/routes/route_message.h"

namespace kernel {

class NextHopObjects {
 public:
  // True when the object is new or differs.
  bool update(const NextHopObject& object);
  // True when it existed.
  bool remove(std::uint32_t id) { return objects_.erase(id) != 0; }
  bool empty() const { return objects_.empty(); }
  const NextHopObject* find(std::uint32_t id) const;  // valid until a change
  // The object and the groups that have it as a member.
  std::set<std::uint32_t> users(std::uint32_t id) const;
  // Objects that are in only one of the two, or differ, and the groups that have them as members.
  std::set<std::uint32_t> differences(const NextHopObjects& other) const;

 private:
  void add_differences(const NextHopObjects& other, std::set<std::uint32_t>* ids) const;
  std::map<std::uint32_t, NextHopObject> objects_;
};

// False for entries that are not rows of a routing table for management: local, broadcast, multicast and
// anycast entries, IPv6 link-local prefixes, cached exceptions.
bool is_shown(const KernelRoute& route);

// Appends the rows of a route that is shown, one per path in use. False, without rows, when the route has no
// paths of its own and names an unknown object.
[[nodiscard]] bool append_rows(const KernelRoute& route, const NextHopObjects& objects,
                               std::vector<router::Route>* rows);

}  // namespace kernel

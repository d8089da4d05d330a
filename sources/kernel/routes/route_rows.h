// From the kernel's routes to rows of the route store; the kernel's next-hop objects, which routes may name
// instead of having paths. docs/routes.md says which rows appear and how.
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
  bool see(const NextHopObject& object);
  // True when it was there.
  bool lose(std::uint32_t id) { return objects_.erase(id) != 0; }
  bool empty() const { return objects_.empty(); }
  std::size_t size() const { return objects_.size(); }
  const NextHopObject* find(std::uint32_t id) const;  // valid until a change
  // The object and the groups that have it as a member.
  std::set<std::uint32_t> users(std::uint32_t id) const;
  // Objects that are in only one of the two, or differ, and the groups that have them as members.
  std::set<std::uint32_t> differences(const NextHopObjects& other) const;

 private:
  void add_differences(const NextHopObjects& other, std::set<std::uint32_t>* ids) const;
  std::map<std::uint32_t, NextHopObject> objects_;
};

// False for what is no row of a routing table for management: local, broadcast, multicast and anycast
// entries, IPv6 link-local prefixes, cached exceptions.
bool is_shown(const KernelRoute& route);

// Appends the rows of one route that is shown, one a path that is in use. False when the route names an
// object that is not known (and has no paths of its own): nothing is appended.
[[nodiscard]] bool append_rows(const KernelRoute& route, const NextHopObjects& objects,
                               std::vector<router::Route>* rows);

}  // namespace kernel

// What happened to interfaces and next-hop objects, and what the kernel made of routes on account of it
// without an announcement.
//
// An entry is O(1); a route is compared with the entries when it is next used. So a link that fails with a
// million routes costs nothing before a walk over these routes, and a route that is added meanwhile is newer
// than the entry. Main thread only.
#pragma once

#include <absl/container/btree_map.h>

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sources/kernel/route_state/route_message.h"

namespace kernel {

class RouteHistory {
 public:
  using Moment = std::uint64_t;  // grows with each entry

  enum class LinkChange : std::uint8_t {
    kIpv4Down,  // the link is down, has another VRF, or lost its last IPv4 address
    kIpv6Down,
    kIpv4Up,
    kIpv6Up,
    kRemoved,
  };
  enum class Verdict { kSame, kChanged, kDeleted };

  void add(std::uint32_t interface_index, LinkChange change);
  void object_changed(std::uint32_t id);
  void object_removed(std::uint32_t id);
  Moment now() const { return now_; }
  bool empty() const { return links_.empty() && objects_.empty(); }
  std::size_t size() const { return links_.size() + objects_.size(); }
  // Entries are forgotten, which is allowed when every route was compared with them.
  void clear();
  // The same when they were not: every route of an object that was valid before counts as changed. Routes
  // over links must be read again.
  void cut();

  // Applies to the route, which was valid at `since`, what happened after it. A route whose next-hop object
  // changed is kChanged although it is equal.
  Verdict apply(Moment since, KernelRoute* route) const;

 private:
  struct ObjectEntry {
    Moment changed = 0;  // last
    Moment removed = 0;
  };
  struct LinkEntry {
    Moment moment;
    std::uint32_t interface_index;
    LinkChange change;
  };
  Verdict apply_object(Moment since, const KernelRoute& route) const;
  std::vector<LinkEntry> link_entries(Moment since, const KernelRoute& route) const;

  absl::btree_map<std::pair<std::uint32_t, Moment>, LinkChange> links_;
  std::unordered_map<std::uint32_t, ObjectEntry> objects_;
  Moment now_ = 0;
  Moment cut_ = 0;
};

}  // namespace kernel

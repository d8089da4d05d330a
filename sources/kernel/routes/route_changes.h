// What has changed of links, next-hop objects and addresses, and whether a table depends on it.
#pragma once

#include <cstdint>

#include <absl/container/btree_set.h>
#include "sources/kernel/routes/table_routes.h"

namespace kernel {

struct RouteChanges {
  absl::btree_set<std::uint32_t> links;
  absl::btree_set<std::uint32_t> objects;   // with their groups
  absl::btree_set<std::uint32_t> carriers;  // links; those that hide paths are moved to `hiding`
  absl::btree_set<std::uint32_t> hiding;    // links that may hide paths
  absl::btree_set<std::uint32_t> sources;   // removed IPv4 addresses
  bool everything = false;

  bool is_empty() const { return links.empty() && objects.empty() && sources.empty() && !everything; }
  // The table has paths over one of the links or routes with one of the objects.
  bool concerns(const RouteUsage& usage) const;
  bool may_hide_paths(const RouteUsage& usage) const;
};

}  // namespace kernel

// One routing table in its compact form. Private to the route store.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "platform/router/model/route_store.h"
#include "platform/router/model/routes/route_attributes.h"

namespace router {

using RouteVisitor = std::function<void(const RouteMark&)>;

// The operations of RouteStore on one table, for validated routes (valid_route). The sets of
// attributes must outlive the table.
class RouteTable {
 public:
  virtual ~RouteTable() = default;
  virtual RouteChange put(const Route& route) = 0;
  virtual bool erase(const RouteKey& key) = 0;
  // Removes up to `limit` rows; true while there are more.
  virtual bool release_some(std::size_t limit) = 0;
  virtual void begin_refresh() = 0;
  virtual bool end_refresh(std::size_t limit, std::size_t* erased) = 0;
  virtual RouteRetention keep(const RouteKey& prefix, std::uint32_t origin) = 0;
  virtual void unkeep(const RouteKey& prefix) = 0;
  virtual void visit_prefix(const RouteKey& prefix, const RouteVisitor& visit) const = 0;
  virtual bool visit_from(const RouteKey& first, std::size_t limit, const RouteVisitor& visit) const = 0;
  virtual bool find(const RouteKey& key, Route* route) const = 0;
  virtual bool find_next(const RouteKey& key, Route* route) const = 0;
  virtual bool find_first(Route* route) const = 0;
  virtual bool find_labelled(const RouteKey& prefix, Route* route) const = 0;
  virtual std::size_t count() const = 0;
  virtual const RouteCounts& counts() const = 0;
};

std::unique_ptr<RouteTable> make_route_table(Family family, RouteAttributeSets* sets);

// Whether a table of the family can store the route.
bool valid_route(Family family, const Route& route);
// Whether a key's lengths and unused octets are those of the family; bits beyond the prefix length are not
// checked.
bool valid_route_key(Family family, const RouteKey& key);

}  // namespace router

// The route store finds the table and validates the routes of the sources; route_table.cpp stores the rows.
//
// Tables are ordered by family and number, so that notifications have a fixed order. A table is opened once
// for every VRF that has it.
#include "platform/router/model/route_store.h"

#include <deque>
#include <map>
#include <set>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/router/model/address.h"
#include "platform/router/model/routes/route_table.h"

namespace router {

struct RouteStore::State {
  struct OpenTable {
    std::unique_ptr<RouteTable> rows;
    std::size_t openings = 0;
  };

  RouteAttributeSets sets;  // outlives the tables
  std::map<RouteTableId, OpenTable> tables;
  std::set<RouteTableId> changed;                    // open tables, since the last take_changed()
  std::deque<std::unique_ptr<RouteTable>> released;  // tables that no reader finds any more
  std::function<void()> on_release;                  // null: freed at once

  OpenTable* find(RouteTableId id) {
    const auto found = tables.find(id);
    return found == tables.end() ? nullptr : &found->second;
  }

  void release(std::unique_ptr<RouteTable> rows) {
    if (!on_release) return;  // frees `rows`
    released.push_back(std::move(rows));
    if (released.size() == 1) on_release();
  }

  Status put(RouteTableId id, const Route& route, RouteChange* change) {
    if (Status status = fault_check("route_store_put")) return status;
    OpenTable* table = find(id);
    if (table == nullptr) return kStatusNoSuchRow;
    if (!valid_route(id.family, route)) return kStatusInvalid;
    const RouteChange what = table->rows->put(route);
    if (what != RouteChange::kNone) changed.insert(id);
    if (change != nullptr) *change = what;
    return kStatusOk;
  }
};

std::uint32_t route_age(const Route& route) {
  return static_cast<std::uint32_t>(clock_monotonic() / kNanosecondsPerSecond) - route.changed;
}

RouteStore::RouteStore() : state_(std::make_unique<State>()) {}
RouteStore::~RouteStore() = default;

Status RouteStore::put(RouteTableId table, const Route& route, RouteChange* change) {
  return state_->put(table, route, change);
}

Status RouteStore::erase(RouteTableId table, const RouteKey& key) {
  if (Status status = fault_check("route_store_erase")) return status;
  State::OpenTable* found = state_->find(table);
  if (found == nullptr || !valid_route_key(table.family, key) || !found->rows->erase(key)) {
    return kStatusNoSuchRow;
  }
  state_->changed.insert(table);
  return kStatusOk;
}

void RouteStore::begin_refresh(RouteTableId table) {
  if (State::OpenTable* found = state_->find(table)) found->rows->begin_refresh();
}

bool RouteStore::end_refresh(RouteTableId table, std::size_t limit, std::size_t* erased) {
  State::OpenTable* found = state_->find(table);
  if (found == nullptr) return false;
  std::size_t removed = 0;
  const bool more = found->rows->end_refresh(limit, &removed);
  if (removed > 0) state_->changed.insert(table);
  if (erased != nullptr) *erased += removed;
  return more;
}

RouteRetention RouteStore::keep(RouteTableId table, const RouteKey& prefix, std::uint32_t origin) {
  State::OpenTable* found = state_->find(table);
  return found == nullptr ? RouteRetention::kAbsent : found->rows->keep(prefix, origin);
}

void RouteStore::unkeep(RouteTableId table, const RouteKey& prefix) {
  if (State::OpenTable* found = state_->find(table)) found->rows->unkeep(prefix);
}

void RouteStore::visit_prefix(RouteTableId table, const RouteKey& prefix,
                              const std::function<void(const RouteMark&)>& visit) const {
  if (const State::OpenTable* found = state_->find(table)) found->rows->visit_prefix(prefix, visit);
}

bool RouteStore::visit_from(RouteTableId table, const RouteKey& first, std::size_t limit,
                            const std::function<void(const RouteMark&)>& visit) const {
  const State::OpenTable* found = state_->find(table);
  return found != nullptr && found->rows->visit_from(first, limit, visit);
}

bool RouteStore::find(RouteTableId table, const RouteKey& key, Route* route) const {
  const State::OpenTable* found = state_->find(table);
  return found != nullptr && valid_route_key(table.family, key) && found->rows->find(key, route);
}

bool RouteStore::find_next(RouteTableId table, const RouteKey& key, Route* route) const {
  const State::OpenTable* found = state_->find(table);
  return found != nullptr && valid_route_key(table.family, key) && found->rows->find_next(key, route);
}

bool RouteStore::find_first(RouteTableId table, Route* route) const {
  const State::OpenTable* found = state_->find(table);
  return found != nullptr && found->rows->find_first(route);
}

bool RouteStore::find_labelled(RouteTableId table, const RouteAddress& destination,
                               std::uint8_t prefix_length, Route* route) const {
  const RouteKey prefix{destination, prefix_length, {}};
  const State::OpenTable* found = state_->find(table);
  return found != nullptr && valid_route_key(table.family, prefix) &&
         found->rows->find_labelled(prefix, route);
}

std::size_t RouteStore::count(RouteTableId table) const {
  const State::OpenTable* found = state_->find(table);
  return found == nullptr ? 0 : found->rows->count();
}

RouteCounts RouteStore::counts(RouteTableId table) const {
  const State::OpenTable* found = state_->find(table);
  return found == nullptr ? RouteCounts() : found->rows->counts();
}

std::size_t RouteStore::total() const {
  std::size_t sum = 0;
  for (const auto& [id, table] : state_->tables) sum += table.rows->count();
  return sum;
}

bool RouteStore::is_open(RouteTableId table) const {
  return state_->find(table) != nullptr;
}

void RouteStore::open(RouteTableId table) {
  if (table.table == 0) return;
  State::OpenTable& opened = state_->tables[table];
  if (opened.openings++ == 0) opened.rows = make_route_table(table.family, &state_->sets);
}

void RouteStore::close(RouteTableId table) {
  State::OpenTable* found = state_->find(table);
  if (found == nullptr || --found->openings > 0) return;
  auto closed = state_->tables.extract(table);
  state_->changed.erase(table);
  state_->release(std::move(closed.mapped().rows));
}

void RouteStore::defer_releases(std::function<void()> hook) {
  state_->on_release = std::move(hook);
  if (!state_->on_release) state_->released.clear();
}

bool RouteStore::release_some(std::size_t rows) {
  auto& released = state_->released;
  if (!released.empty() && !released.front()->release_some(rows)) released.pop_front();
  return !released.empty();
}

void RouteStore::take_changed(const std::function<void(RouteTableId)>& visit) {
  const std::set<RouteTableId> changed = std::exchange(state_->changed, {});
  for (const RouteTableId id : changed) visit(id);
}

}  // namespace router

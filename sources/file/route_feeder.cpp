// Written groups precede generated ones, so one short step adds all routes that a person wrote.
#include "sources/file/route_feeder.h"

#include <algorithm>
#include <utility>

namespace router_file {

void RouteFeeder::begin(std::vector<RouteGroup> groups) {
  groups_ = std::move(groups);
  written_ = static_cast<std::size_t>(std::ranges::count(groups_, 1U, &RouteGroup::count));
  group_ = 0;
  row_ = 0;
  last_vrf_.clear();
  tables_.clear();
  changes_ = RouteChanges{};
  stage_ = Stage::kBegin;
}

Status RouteFeeder::step(std::size_t rows) {
  Status status = kStatusOk;
  if (stage_ == Stage::kBegin) begin_tables(rows);
  if (stage_ == Stage::kPut) {
    status = put_some(rows);
  } else if (stage_ == Stage::kSweep) {
    sweep_some(rows);
  }
  if (status != kStatusOk) stage_ = Stage::kDone;
  model_->flush_route_changes();
  return status;
}

void RouteFeeder::begin_tables(std::size_t vrfs) {
  const router::Vrf* vrf = model_->vrf_after(last_vrf_);
  for (; vrf != nullptr && vrfs > 0; vrf = model_->vrf_after(last_vrf_), --vrfs) {
    begin_table({router::Family::kIpv4, vrf->ipv4_table});
    begin_table({router::Family::kIpv6, vrf->ipv6_table});
    last_vrf_ = vrf->name;
  }
  if (vrf != nullptr) return;
  stage_ = Stage::kPut;
}

void RouteFeeder::begin_table(router::RouteTableId table) {
  if (table.table != 0 && tables_.insert(table).second) model_->routes().begin_refresh(table);
}

Status RouteFeeder::put_some(std::size_t rows) {
  while (rows > 0 && group_ < groups_.size()) {
    if (const Status status = put_group(groups_[group_], &rows)) return status;
  }
  if (group_ == groups_.size()) {
    groups_.clear();
    stage_ = Stage::kSweep;
    sweep_some(std::max<std::size_t>(rows, 1));
  }
  return kStatusOk;
}

Status RouteFeeder::put_group(const RouteGroup& group, std::size_t* rows) {
  router::Route route = group.first;
  bool is_open = model_->routes().is_open(group.table);
  for (; is_open && *rows > 0 && row_ < group.count; ++row_, --*rows) {
    is_open = nth_prefix(group.first.key.destination, route.key.prefix_length, row_, &route.key.destination);
    router::RouteChange change = router::RouteChange::kNone;
    if (const Status status = model_->routes().put(group.table, route, &change)) return status;
    if (change == router::RouteChange::kAdded) ++changes_.added;
    if (change == router::RouteChange::kReplaced) ++changes_.changed;
  }
  if (!is_open || row_ == group.count) {
    ++group_;
    row_ = 0;
  }
  return kStatusOk;
}

void RouteFeeder::sweep_some(std::size_t rows) {
  router::RouteStore& store = model_->routes();
  for (std::size_t visited = 0; !tables_.empty() && visited < rows;) {
    const router::RouteTableId table = *tables_.begin();
    visited += std::min(rows, store.count(table)) + 1;
    if (!store.end_refresh(table, rows, &changes_.removed)) tables_.erase(tables_.begin());
  }
  if (tables_.empty()) stage_ = Stage::kDone;
}

}  // namespace router_file

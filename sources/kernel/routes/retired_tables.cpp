#include "sources/kernel/routes/retired_tables.h"

#include <utility>

namespace kernel {
namespace {

constexpr std::size_t kContentsPerRelease = 3000;

}  // namespace

void RetiredTables::stop() {
  event_timer_cancel(manager_, std::exchange(timer_, 0));
}

void RetiredTables::add(TableRoutes routes) {
  tables_.push_back(std::move(routes));
  if (tables_.size() == 1) release_soon();
}

void RetiredTables::release_soon() {
  timer_ = event_timer_start(manager_, 0, [this] { release_some(); });
}

void RetiredTables::release_some() {
  timer_ = 0;
  if (!tables_.front().release_some(kContentsPerRelease)) tables_.pop_front();
  if (!tables_.empty()) release_soon();
}

}  // namespace kernel

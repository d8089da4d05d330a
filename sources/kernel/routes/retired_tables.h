// Frees the routes of closed tables in steps on the event loop: a table with a label for each route has as
// many contents as routes. Owns them until then. Main thread only.
#pragma once

#include <deque>

#include "platform/core/evm/evm.h"
#include "sources/kernel/routes/table_routes.h"

namespace kernel {

class RetiredTables {
 public:
  void start(EventManager* manager) { manager_ = manager; }
  // What remains is freed by the destructor, at once.
  void stop();
  // REQUIRES: started.
  void add(TableRoutes routes);

 private:
  void release_soon();
  void release_some();

  EventManager* manager_ = nullptr;
  EventTimerId timer_ = 0;
  std::deque<TableRoutes> tables_;
};

}  // namespace kernel

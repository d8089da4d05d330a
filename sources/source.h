// What the daemon starts to learn about the router: a source of the router model, or one that only writes
// configuration, such as the routing suite beside a kernel.
//
// The daemon constructs a source, loads it before it serves any client, and starts it on its main event
// manager. Main thread. A source lives as long as the process; in tests it is destroyed before the event
// manager.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/route_store.h"
#include "platform/store/status/facts.h"

class Source {
 public:
  Source() = default;
  virtual ~Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  // Reads everything there is and applies it; may block. On failure *error states what is wrong and where.
  [[nodiscard]] virtual Status load(std::string* error) = 0;
  // Follows changes from here on. REQUIRES: load() succeeded.
  [[nodiscard]] virtual Status start(EventManager* manager) = 0;
  // What is read, for messages: "the kernel", the path of a file.
  virtual std::string describe() const = 0;
  // Reads again what may have changed without notice, and calls `done` when that is applied or refused, here
  // or later; the default is for a source that follows everything. REQUIRES: it is started.
  virtual void reload(std::function<void()> done) { done(); }
  // How the source is, in a few words for operators: "FRR: bgpd and zebra answer"; empty if there is nothing
  // to say.
  virtual std::string state() const { return {}; }
  // Whether the model has had all routes of the table since the start; the default is for a source that loads
  // them.
  virtual bool has_read_routes(router::RouteTableId /*table*/) const { return true; }
  // What it asks, and how that answers; none for a source that asks nothing but the model.
  virtual std::vector<process_status::SourceFact> facts() const { return {}; }
  // How much of the model later readings had to correct because changes had not been announced; none for a
  // source without such readings.
  virtual std::optional<std::uint64_t> corrections() const { return std::nullopt; }
  // The same by place: what existing tables had corrected; empty for a source without such readings.
  virtual std::vector<process_status::CorrectionFact> corrections_by_table() const { return {}; }
  // Messages that were dropped because they are malformed; none for a source that receives none.
  virtual std::optional<std::uint64_t> malformed() const { return std::nullopt; }
};

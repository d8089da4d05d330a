#include "sources/kernel/kernel_source.h"

#include <sys/utsname.h>

#include <string>
#include <vector>

#include "platform/core/base/clock.h"
#include "sources/kernel/links/link_follower.h"
#include "sources/kernel/routes/route_follower.h"

// The routes, on sockets of their own, follow the VRFs that the links put into the model.
struct KernelSource::State {
  State(router::Router* model, const KernelSourceSettings& settings)
      : links(model, settings), routes(model, settings) {}
  ~State() {
    routes.stop();
    links.stop();
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  kernel::LinkFollower links;
  kernel::RouteFollower routes;
};

KernelSource::KernelSource(router::Router* model, const KernelSourceSettings& settings)
    : state_(std::make_unique<State>(model, settings)) {}

KernelSource::~KernelSource() = default;

Status KernelSource::load(std::string* error) {
  return state_->links.load(error);
}

Status KernelSource::start(EventManager* manager) {
  if (const Status status = state_->routes.start(manager)) return status;
  const Status status = state_->links.start(manager);
  if (status != kStatusOk) state_->routes.stop();
  return status;
}

std::vector<process_status::SourceFact> KernelSource::facts() const {
  const kernel::LinkFollower& links = state_->links;
  utsname system{};
  const char* const version = uname(&system) == 0 ? system.release : "";
  const std::string& problem = links.problem().empty() ? state_->routes.problem() : links.problem();
  return {{"kernel", version, problem.empty(), links.last_answer() / kNanosecondsPerSecond, problem}};
}

std::vector<process_status::CorrectionFact> KernelSource::corrections_by_table() const {
  const kernel::RouteFollower& routes = state_->routes;
  std::vector<process_status::CorrectionFact> all = {
      {process_status::kNextHopObjects, "", routes.counters().object_corrections}};
  for (const auto& [id, count] : routes.table_corrections()) {
    const char* const family = id.family == router::Family::kIpv4 ? "ipv4" : "ipv6";
    all.push_back({std::to_string(id.table), family, count});
  }
  return all;
}

KernelSourceCounters KernelSource::counters() const {
  return {state_->links.counters(), state_->routes.counters()};
}

bool KernelSource::has_read_routes(router::RouteTableId table) const {
  return state_->routes.has_read(table);
}

bool KernelSource::settled() const {
  return state_->links.settled() && state_->routes.settled();
}

#include "platform/store/status/status.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/files/set_aside.h"
#include "platform/core/wire/client_summary.h"
#include "platform/store/server/server.h"
#include "platform/store/status/records.h"

namespace process_status {

namespace {

struct Provided {
  EventManager* manager;
  ProcessIdentity identity;
  std::uint64_t started = clock_monotonic();
  KvConnection* connection = nullptr;
};

std::unique_ptr<Provided>& provided() {
  static auto* const instance = new std::unique_ptr<Provided>;  // never destroyed: a handler may still run
  return *instance;
}

using wire::saturated;

std::uint32_t seconds_since(std::uint64_t time) {
  return saturated((clock_monotonic() - time) / kNanosecondsPerSecond);
}

// Borrows the role's name, which is constant.
ClientStatus status_of(const wire::Connection& client) {
  const wire::ClientSummary summary = wire::summarize(client);
  return {summary.id,
          summary.user,
          summary.process,
          const_cast<char*>(summary.role),
          summary.age,
          summary.requests,
          summary.requests_per_second,
          summary.loop_milliseconds,
          summary.queued};
}

std::vector<ClientStatus> clients() {
  std::vector<ClientStatus> all;
  if (const auto& server = kvtree::the_server())
    server->server.for_each([&all](const wire::Connection& client) { all.push_back(status_of(client)); });
  return all;
}

// What the identity's function states; nothing without one.
template <typename Result>
Result ask(const std::function<Result()>& fact) {
  return fact ? fact() : Result{};
}

// Borrows the texts.
SourceStatus status_of(SourceFact& fact) {
  return {fact.name.data(), fact.version.data(), fact.problem.data(), fact.is_up ? 1U : 0U,
          saturated(fact.last_answer)};
}

std::uint64_t octets_of(const std::string& path) {
  std::error_code missing;
  const std::uintmax_t octets = std::filesystem::file_size(path, missing);
  return missing ? 0 : octets;
}

DatabaseStatus status_of(DatabaseFact& fact) {
  const std::uint64_t octets = octets_of(fact.path) + octets_of(fact.path + "-wal");
  return {fact.name.data(),
          fact.path.data(),
          fact.problem.data(),
          saturated((octets + 1023) / 1024),
          count_unusable(fact.path),
          saturated(fact.quarantine.rows),
          fact.quarantine.tables.data()};
}

RouteModuleFailure status_of(std::string& failure) {
  return {failure.data()};
}

// The facts as records, which borrow their texts.
template <typename Fact>
class Records {
 public:
  explicit Records(const std::function<std::vector<Fact>()>& facts) : facts_(ask(facts)) {
    for (Fact& fact : facts_) records_.push_back(status_of(fact));
  }
  ParcelArray array() { return {records_.size(), records_.data()}; }

 private:
  std::vector<Fact> facts_;
  std::vector<decltype(status_of(std::declval<Fact&>()))> records_;
};

void set_traps(const std::optional<TrapsFact>& traps, ProcessStatus* status) {
  if (!traps) return;
  status->has_traps = 1;
  status->traps_waiting = saturated(traps->waiting);
  status->traps_capacity = saturated(traps->capacity);
  status->traps_lost = saturated(traps->lost);
  status->traps_subscriber = saturated(traps->subscriber);
  status->traps_alone_for = saturated(traps->alone_for);
}

// What the client stated when it subscribed.
std::string version_of(std::uint64_t client) {
  if (kvtree::the_server() == nullptr) return "";
  const auto& subscriptions = kvtree::the_server()->subscriptions;
  const auto found = subscriptions.find(client);
  if (found == subscriptions.end()) return "";
  const auto states_version = [](const kvtree::Subscription& each) { return !each.version.empty(); };
  const auto stated = std::ranges::find_if(found->second, states_version);
  return stated == found->second.end() ? "" : stated->version;
}

void set_figure(const std::optional<std::uint64_t>& figure, std::uint32_t* is_known, std::uint32_t* value) {
  *is_known = figure ? 1 : 0;
  *value = saturated(figure.value_or(0));
}

void set_loop(const EventStatistics& loop, ProcessStatus* status) {
  status->long_iterations = saturated(loop.long_iterations);
  status->longest_iteration = saturated(loop.longest / kNanosecondsPerMillisecond);
  status->longest_iteration_time = saturated(loop.longest_stamp / kNanosecondsPerSecond);
}

Status get_status(const KvRequest* request, KvReply* reply) {
  if (request->path != kItemName || provided() == nullptr) return kStatusUnknownPath;
  Provided& process = *provided();
  ProcessIdentity& identity = process.identity;
  std::vector<ClientStatus> all = clients();
  Records<SourceFact> sources(identity.sources);
  Records<DatabaseFact> databases(identity.databases);
  Records<std::string> failures(identity.route_module_failures);
  ProcessStatus status{};
  status.version = identity.version.data();
  status.source = identity.source.data();
  status.uptime = seconds_since(process.started);
  set_loop(event_statistics(process.manager), &status);
  status.clients = {all.size(), all.data()};
  set_figure(ask(identity.corrections), &status.is_corrected, &status.corrections);
  set_figure(ask(identity.malformed), &status.has_messages, &status.malformed);
  status.sources = sources.array();
  status.databases = databases.array();
  status.route_module_failures = failures.array();
  const std::optional<TrapsFact> traps = ask(identity.traps);
  set_traps(traps, &status);
  std::string front_end_version = traps ? version_of(traps->subscriber) : "";
  status.front_end_version = front_end_version.data();
  std::string settings_problem = ask(identity.settings_problem);
  status.settings_problem = settings_problem.data();
  MetricsFact metrics = ask(identity.metrics);
  status.metrics_place = metrics.place.data();
  status.metrics_problem = metrics.problem.data();
  reply->kind = kKvKindRecord;
  return parcel_encode(&kProcessStatusParcel, &status, &reply->data, &reply->length);
}

Status provide(Provided* process) {
  if (const Status status = kvtree_bind(&process->connection, kProviderPath, kKvBindProvider)) return status;
  KvProviderFunctions functions;
  if (const Status status = kvtree_init_prov_functions(&functions)) return status;
  functions.get = get_status;
  return kvtree_register_prov2(process->connection, "", process->manager, &functions, 0, 0);
}

}  // namespace

std::vector<SourceFact> source_facts() {
  return provided() == nullptr ? std::vector<SourceFact>{} : ask(provided()->identity.sources);
}

}  // namespace process_status

Status process_status_start(EventManager* manager, ProcessIdentity identity) {
  auto& provided = process_status::provided();
  if (provided != nullptr) return kStatusExists;
  provided.reset(new process_status::Provided{manager, std::move(identity)});
  const Status status = process_status::provide(provided.get());
  if (status != kStatusOk) process_status_stop();
  return status;
}

void process_status_stop() {
  auto& provided = process_status::provided();
  if (provided == nullptr) return;
  if (provided->connection != nullptr) {
    if (const Status status = kvtree_unbind(provided->connection))
      log_error("kvtree", "%s is still provided: %s", process_status::kProviderPath, err_text(status));
  }
  provided.reset();
}

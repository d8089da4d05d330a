#include "platform/store/status/status.h"

#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
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

std::optional<std::uint64_t> ask(const std::function<std::optional<std::uint64_t>()>& figure) {
  return figure ? figure() : std::nullopt;
}

Status get_status(const KvRequest* request, KvReply* reply) {
  if (request->path != kItemName || provided() == nullptr) return kStatusUnknownPath;
  Provided& process = *provided();
  std::vector<ClientStatus> all = clients();
  const EventStatistics loop = event_statistics(process.manager);
  const std::optional<std::uint64_t> corrections = ask(process.identity.corrections);
  const std::optional<std::uint64_t> malformed = ask(process.identity.malformed);
  const ProcessStatus status{process.identity.version.data(),
                             process.identity.source.data(),
                             seconds_since(process.started),
                             saturated(loop.long_iterations),
                             saturated(loop.longest / kNanosecondsPerMillisecond),
                             saturated(loop.longest_stamp / kNanosecondsPerSecond),
                             {all.size(), all.data()},
                             corrections ? 1U : 0U,
                             saturated(corrections.value_or(0)),
                             malformed ? 1U : 0U,
                             saturated(malformed.value_or(0))};
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

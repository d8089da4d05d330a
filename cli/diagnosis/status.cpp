// "show status": the daemon's process and the clients of its data store.
#include <fmt/format.h>
#include <pwd.h>

#include <array>
#include <optional>
#include <span>

#include "cli/commands.h"
#include "cli/output/columns.h"
#include "cli/output/details.h"
#include "cli/output/json_list.h"
#include "cli/output/record.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "platform/store/status/records.h"

namespace cli {

namespace {

using process_status::ClientStatus;
using process_status::ProcessStatus;

// The number if this system has no such user.
std::string user_name(const ClientStatus& client) {
  std::array<char, 4096> texts;
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(client.user, &entry, texts.data(), texts.size(), &found) != 0 || found == nullptr)
    return std::to_string(client.user);
  return found->pw_name;
}

Json user_name_json(const ClientStatus& client) {
  return user_name(client);
}

std::string age_of(const ClientStatus& client) {
  return duration_text(client.age);
}

constexpr Column<ClientStatus> kClientColumns[] = {
    {"id", member_json<&ClientStatus::id>, number("CLIENT")},
    {"user", member_json<&ClientStatus::user>},
    {"userName", user_name_json, {"USER"}},
    {"process", member_json<&ClientStatus::process>, number("PROCESS")},
    {"role", member_json<&ClientStatus::role>, {"ROLE"}},
    {"age", member_json<&ClientStatus::age>, number("AGE"), age_of},
    {"requests", member_json<&ClientStatus::requests>, number("REQUESTS")},
    {"requestsPerSecond", member_json<&ClientStatus::requests_per_second>, number("PER SECOND")},
    {"loopMilliseconds", member_json<&ClientStatus::loop_milliseconds>, number("LOOP MS")},
    {"queuedOctets", member_json<&ClientStatus::queued>, number("QUEUED")},
};

std::span<const ClientStatus> clients_of(const ProcessStatus& status) {
  return {static_cast<const ClientStatus*>(status.clients.elements),
          static_cast<std::size_t>(status.clients.count)};
}

std::string iterations_text(const ProcessStatus& status) {
  if (status.long_iterations == 0) return "none";
  return fmt::format("{}, the longest {} ms at {}", status.long_iterations, status.longest_iteration,
                     local_time_text(status.longest_iteration_time));
}

void print_text(const Session& session, const ProcessStatus& status) {
  Details details(session.out, 0, 28);
  details.line("version", text_or_dash(status.version));
  details.line("source", text_or_dash(status.source));
  details.line("up for", duration_text(status.uptime));
  details.line("loop iterations over 50 ms", iterations_text(status));
  session.out << '\n';
  RowWriter<ClientStatus> writer(session, kClientColumns);
  for (const ClientStatus& client : clients_of(status)) writer.add(client);
  writer.end();
}

void print_json(const Session& session, const ProcessStatus& status) {
  Json clients = Json::array();
  for (const ClientStatus& client : clients_of(status))
    clients.push_back(row_json<ClientStatus>(kClientColumns, client));
  session.out << json_line({{"version", text_or_empty(status.version)},
                            {"source", text_or_empty(status.source)},
                            {"uptime", status.uptime},
                            {"longIterations", status.long_iterations},
                            {"longestIteration", status.longest_iteration},
                            {"longestIterationTime", status.longest_iteration_time},
                            {"clients", clients}})
              << '\n';
}

}  // namespace

void show_status(const Session& session) {
  const std::string path = std::string(process_status::kProviderPath) + process_status::kItemName;
  const kvtree::GetResult result = connect_to_daemon(session)->get(path);
  if (result.status) throw request_failure(session, path, result.status);
  const Record<ProcessStatus> status(session, path, process_status::kProcessStatusParcel, result.record);
  session.json ? print_json(session, *status) : print_text(session, *status);
}

}  // namespace cli

// "show status": the daemon's process, and the clients of its two sockets.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <array>
#include <optional>
#include <span>
#include <vector>

#include "cli/commands.h"
#include "cli/config/config_tree.h"
#include "cli/diagnosis/status_facts.h"
#include "cli/output/columns.h"
#include "cli/output/details.h"
#include "cli/output/json_list.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "cli/show/watched_vrfs.h"
#include "platform/core/base/clock.h"
#include "platform/core/debug/debug_client.h"
#include "platform/core/files/user_name.h"
#include "platform/store/status/records.h"

namespace cli {

namespace {

using process_status::ClientStatus;
using process_status::ProcessStatus;

Json user_name_json(const ClientStatus& client) {
  return user_name(client.user);
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

// The clients of the debug socket, or why they are unknown. The thread that serves it knows them, and it is
// asked on its own socket.
struct DebugClients {
  Status status = kStatusOk;
  std::vector<DebugPeer> peers;
};

DebugClients ask_debug_socket() {
  DebugClients clients;
  DebugClient socket(DebugClient::default_socket());
  clients.status = socket.connect();
  if (clients.status == kStatusOk) clients.status = socket.clients(&clients.peers);
  return clients;
}

// Borrows the role.
ClientStatus as_status(const DebugPeer& peer) {
  return {peer.id,
          peer.user,
          peer.process,
          const_cast<char*>(peer.role.c_str()),
          peer.age,
          peer.requests,
          peer.requests_per_second,
          peer.loop_milliseconds,
          peer.queued};
}

void print_text(const Session& session, const DebugClients& clients) {
  if (clients.status != kStatusOk) {
    fmt::print(session.out, "\nclients of the debug socket: unknown ({})\n", err_text(clients.status));
    return;
  }
  session.out << "\nclients of the debug socket:\n";
  RowWriter<ClientStatus> writer(session, kClientColumns);
  for (const DebugPeer& peer : clients.peers) writer.add(as_status(peer));
  writer.end();
}

// Null if they are unknown.
Json json_of(const DebugClients& clients) {
  if (clients.status != kStatusOk) return nullptr;
  Json all = Json::array();
  for (const DebugPeer& peer : clients.peers)
    all.push_back(row_json<ClientStatus>(kClientColumns, as_status(peer)));
  return all;
}

void print_text(const Session& session, const ProcessStatus& status,
                const std::optional<MissingRoutes>& missing) {
  Details details(session.out, 0, 28, session.terminal.width);
  details.line("version", version_text(status));
  details.line("source", text_or_dash(status.source));
  if (const std::string problem = text_or_empty(status.settings_problem); !problem.empty())
    details.line("settings", problem);
  details.line("up for", duration_text(status.uptime));
  details.line("loop iterations over 50 ms", iterations_text(status));
  if (status.is_corrected != 0) details.line("route corrections", std::to_string(status.corrections));
  if (status.has_messages != 0) details.line("malformed messages", std::to_string(status.malformed));
  print_facts(details, status);
  details.line("missing routes", missing_routes_text(missing));
  session.out << '\n';
  print_fact_tables(session, status);
  RowWriter<ClientStatus> writer(session, kClientColumns);
  for (const ClientStatus& client : clients_of(status)) writer.add(client);
  writer.end();
}

// Null if the source has no such figure.
Json figure_json(std::uint32_t is_known, std::uint32_t figure) {
  return is_known != 0 ? Json(figure) : Json(nullptr);
}

// Null if no commit waits for its confirmation.
Json confirmation_json(const KvConfigConfirmation& waiting) {
  if (waiting.id.empty()) return nullptr;
  const std::uint64_t deadline = waiting.deadline / kNanosecondsPerSecond;
  return {{"commit", commit_json(waiting.id)},
          {"user", user_json(waiting.user)},
          {"confirmBefore", deadline},
          {"confirmBeforeText", local_time_json(deadline)}};
}

void print_json(const Session& session, const ProcessStatus& status, const KvConfigConfirmation& waiting,
                const DebugClients& debug, const std::optional<MissingRoutes>& missing) {
  Json clients = Json::array();
  for (const ClientStatus& client : clients_of(status))
    clients.push_back(row_json<ClientStatus>(kClientColumns, client));
  Json json = {{"version", text_or_empty(status.version)},
               {"source", text_or_empty(status.source)},
               {"settingsProblem", text_or_null(text_or_empty(status.settings_problem))},
               {"uptime", status.uptime},
               {"longIterations", status.long_iterations},
               {"longestIteration", status.longest_iteration},
               {"longestIterationTime", status.longest_iteration_time},
               {"longestIterationTimeText", local_time_json(status.longest_iteration_time)},
               {"routeCorrections", figure_json(status.is_corrected, status.corrections)},
               {"malformedMessages", figure_json(status.has_messages, status.malformed)},
               {"confirmation", confirmation_json(waiting)},
               {"missingRoutes", missing_routes_json(missing)},
               {"clients", clients},
               {"debugClients", json_of(debug)}};
  add_facts(status, &json);
  session.out << json_line(json) << '\n';
}

}  // namespace

void show_status(const Session& session) {
  const auto status = read_status(session);
  const auto client = connect_to_daemon(session);
  const DebugClients debug = ask_debug_socket();
  const std::optional<MissingRoutes> missing = count_missing_routes(session, *client);
  if (session.json) {
    print_json(session, **status, client->confirmation().confirmation, debug, missing);
  } else {
    print_text(session, **status, missing);
    print_text(session, debug);
    note_confirmation(session, *client);
  }
}

}  // namespace cli

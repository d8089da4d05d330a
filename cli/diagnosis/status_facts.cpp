#include "cli/diagnosis/status_facts.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "cli/output/columns.h"
#include "cli/output/record.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "cli/output/wrap.h"

namespace cli {

namespace {

using process_status::ClientStatus;
using process_status::DatabaseStatus;
using process_status::ProcessStatus;
using process_status::RouteModuleFailure;
using process_status::SourceStatus;

constexpr std::size_t kRestIndent = 2;  // of the rest of a broken line

template <typename T>
std::span<const T> elements_of(const ParcelArray& array) {
  return {static_cast<const T*>(array.elements), static_cast<std::size_t>(array.count)};
}

template <auto kMember, typename Row>
Json member_or_null(const Row& row) {
  return text_or_null(text_or_empty(row.*kMember));
}

std::string state_of(const SourceStatus& source) {
  return source.is_up != 0 ? "up" : "down";
}

Json state_json(const SourceStatus& source) {
  return state_of(source);
}

Json last_answer_json(const SourceStatus& source) {
  return source.last_answer == 0 ? Json(nullptr) : Json(source.last_answer);
}

Json last_answer_text_json(const SourceStatus& source) {
  return local_time_json(source.last_answer);
}

std::string last_answer_text(const SourceStatus& source) {
  return age_text(source.last_answer);
}

constexpr Column<SourceStatus> kSourceColumns[] = {
    {"name", member_json<&SourceStatus::name>, {"SOURCE"}},
    {"state", state_json, state("STATE")},
    {"version", member_or_null<&SourceStatus::version>, {"VERSION"}, member_or_dash<&SourceStatus::version>},
    {"lastAnswer", last_answer_json, number("LAST ANSWER"), last_answer_text},
    {"lastAnswerText", last_answer_text_json},
    {"problem", member_or_null<&SourceStatus::problem>},
};

std::filesystem::path path_of(const DatabaseStatus& database) {
  return text_or_empty(database.path);
}

std::string file_name_text(const DatabaseStatus& database) {
  return path_of(database).filename().string();
}

std::string size_text(const DatabaseStatus& database) {
  return fmt::format("{} KiB", database.kibibytes);
}

constexpr Column<DatabaseStatus> kDatabaseColumns[] = {
    {"name", member_json<&DatabaseStatus::name>, {"DATABASE"}},
    {"kibibytes", member_json<&DatabaseStatus::kibibytes>, number("SIZE"), size_text},
    {"setAside", member_json<&DatabaseStatus::set_aside>, number("SET ASIDE")},
    {"quarantined", member_json<&DatabaseStatus::quarantined>, number("QUARANTINED")},
    {"problem", member_or_null<&DatabaseStatus::problem>},
    {"path", member_json<&DatabaseStatus::path>, {"FILE"}, file_name_text},
};

// Of all databases; usually one.
std::string directories_text(const ParcelArray& databases) {
  std::set<std::string> directories;
  for (const auto& each : elements_of<DatabaseStatus>(databases))
    directories.insert(printable(path_of(each).parent_path().string()));
  return fmt::format("databases in {}:", fmt::join(directories, ", "));
}

// Below their table, in lines of their own: they are the longest texts, and the reason is at their end.
template <typename Row>
void print_problems(const Session& session, const ParcelArray& rows) {
  for (const Row& row : elements_of<Row>(rows)) {
    const std::string problem = text_or_empty(row.problem);
    if (problem.empty()) continue;
    const std::string line = fmt::format("{}: {}", printable(text_or_empty(row.name)), printable(problem));
    session.out << wrapped(line, session.terminal.width, kRestIndent);
  }
}

template <typename Row, std::size_t kColumns>
void print_table(const Session& session, const Column<Row> (&columns)[kColumns], const ParcelArray& rows) {
  if (rows.count == 0) return;
  RowWriter<Row> writer(session, columns);
  for (const Row& row : elements_of<Row>(rows)) writer.add(row);
  writer.end();
  print_problems<Row>(session, rows);
  session.out << '\n';
}

template <typename Row, std::size_t kColumns>
Json rows_json(const Column<Row> (&columns)[kColumns], const ParcelArray& rows) {
  Json all = Json::array();
  for (const Row& row : elements_of<Row>(rows)) all.push_back(row_json<Row>(columns, row));
  return all;
}

// The name of the program; empty if the system hides the process.
std::string program_of(std::uint32_t process) {
  std::ifstream name("/proc/" + std::to_string(process) + "/comm");
  std::string text;
  std::getline(name, text);
  return text;
}

// Which of the two front ends it is; "other" for another program, or one that the system hides.
std::string front_end_kind(const std::string& program) {
  if (program == "mpls_vpn_snmp") return "subAgent";
  return program == "snmpd" ? "module" : "other";
}

// The packages are of one release: another version was not started again after an upgrade.
std::string front_end_version_text(const ProcessStatus& status) {
  const std::string version = text_or_empty(status.front_end_version);
  if (version.empty()) return ", of an unknown version";
  const bool is_same = version == text_or_empty(status.version);
  return fmt::format(", version {}{}", printable(version),
                     is_same ? "" : ": start it again, the daemon is of another one");
}

std::string front_end_text(const ProcessStatus& status) {
  const ClientStatus* const client = front_end_of(status);
  if (client == nullptr)
    return fmt::format("none is connected for {}; traps wait", duration_text(status.traps_alone_for));
  const std::string program = program_of(client->process);
  const std::string kind = front_end_kind(program);
  const std::string what = kind == "subAgent" ? "sub-agent" : kind == "module" ? "module in snmpd" : program;
  return fmt::format("{}{}process {}, connected for {}{}", what, what.empty() ? "" : ", ", client->process,
                     duration_text(client->age), front_end_version_text(status));
}

std::string traps_text(const ProcessStatus& status) {
  const std::string lost =
      status.traps_lost == 0 ? "" : fmt::format(", {} lost while the queue was full", status.traps_lost);
  return fmt::format("{} of at most {}{}", status.traps_waiting, status.traps_capacity, lost);
}

Json traps_json(const ProcessStatus& status) {
  if (status.has_traps == 0) return nullptr;
  const Json alone_for = status.traps_subscriber != 0 ? Json(nullptr) : Json(status.traps_alone_for);
  return {{"waiting", status.traps_waiting},
          {"capacity", status.traps_capacity},
          {"lost", status.traps_lost},
          {"withoutFrontEnd", alone_for}};
}

Lines route_module_lines(const ProcessStatus& status) {
  Lines lines;
  for (const auto& failure : elements_of<RouteModuleFailure>(status.route_module_failures))
    lines.push_back("not loaded: " + text_or_empty(failure.text));
  return lines.empty() ? Lines{"loaded"} : lines;
}

Json route_modules_json(const ProcessStatus& status) {
  Json problems = Json::array();
  for (const auto& failure : elements_of<RouteModuleFailure>(status.route_module_failures))
    problems.push_back(text_or_empty(failure.text));
  return {{"loaded", problems.empty()}, {"problems", problems}};
}

std::string metrics_text(const ProcessStatus& status) {
  const std::string place = text_or_empty(status.metrics_place);
  const std::string problem = text_or_empty(status.metrics_problem);
  if (place.empty()) return "off";
  return problem.empty() ? place : fmt::format("not served at {}: {}", place, problem);
}

// Null if they are off.
Json metrics_json(const ProcessStatus& status) {
  const std::string place = text_or_empty(status.metrics_place);
  if (place.empty()) return nullptr;
  return {{"place", place}, {"problem", text_or_null(text_or_empty(status.metrics_problem))}};
}

}  // namespace

std::unique_ptr<Record<ProcessStatus>> read_status(const Session& session) {
  const std::string path = std::string(process_status::kProviderPath) + process_status::kItemName;
  const kvtree::GetResult result = connect_to_daemon(session)->get(path);
  if (result.status) throw request_failure(session, result.status);
  return std::make_unique<Record<ProcessStatus>>(session, path, process_status::kProcessStatusParcel,
                                                 result.record);
}

const ClientStatus* front_end_of(const ProcessStatus& status) {
  const auto clients = elements_of<ClientStatus>(status.clients);
  const auto found = std::ranges::find(clients, status.traps_subscriber, &ClientStatus::id);
  return status.traps_subscriber == 0 || found == clients.end() ? nullptr : &*found;
}

Json front_end_json(const ProcessStatus& status) {
  const ClientStatus* const client = front_end_of(status);
  if (client == nullptr) return nullptr;
  const std::string program = program_of(client->process);
  return {{"kind", front_end_kind(program)},
          {"program", text_or_null(program)},
          {"process", client->process},
          {"version", text_or_null(text_or_empty(status.front_end_version))},
          {"client", client->id},
          {"age", client->age}};
}

std::string version_text(const ProcessStatus& status) {
  const std::string version = text_or_dash(status.version);
  return version == MPLS_VERSION ? version : version + ", this command line is of version " MPLS_VERSION;
}

void print_facts(Details& details, const ProcessStatus& status) {
  details.lines("route modules", route_module_lines(status));
  details.line("metrics", metrics_text(status));
  if (status.has_traps == 0) return;
  details.line("SNMP front end", front_end_text(status));
  details.line("traps waiting for it", traps_text(status));
}

void print_fact_tables(const Session& session, const ProcessStatus& status) {
  print_table(session, kSourceColumns, status.sources);
  if (status.databases.count != 0)
    session.out << wrapped(directories_text(status.databases), session.terminal.width, kRestIndent);
  print_table(session, kDatabaseColumns, status.databases);
}

void add_facts(const ProcessStatus& status, Json* json) {
  (*json)["commandLineVersion"] = MPLS_VERSION;
  (*json)["routeModules"] = route_modules_json(status);
  (*json)["metrics"] = metrics_json(status);
  (*json)["frontEnd"] = front_end_json(status);
  (*json)["traps"] = traps_json(status);
  (*json)["sources"] = rows_json(kSourceColumns, status.sources);
  (*json)["databases"] = rows_json(kDatabaseColumns, status.databases);
}

}  // namespace cli

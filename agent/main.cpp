// mpls_vpn_snmp: serves MPLS-L3VPN-STD-MIB (RFC 4382) to SNMP managers, as a sub-agent of the host's master
// agent, from the daemon's data.
//
// Ends with status 0 on SIGTERM or SIGINT, after closing the session with the master agent; with 1 when it
// cannot start, with 2 for wrong arguments. SIGHUP connects again.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/rows/row_cache.h"
#include "agent/service/run.h"
#include "agent/sub_agent.h"
#include "platform/core/base/log.h"
#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"
#include "platform/store/client/client.h"

namespace {

constexpr int kWrongArguments = 2;
constexpr std::string_view kUnixPrefix = "unix:";

struct CommandLine {
  std::string agentx_socket = "/var/agentx/master";
  std::string daemon_socket;
  std::string run_directory;
  unsigned row_age_ms = tables::kRowAgeMs;
  bool verbose = false;
};

// Other transports of snmpd look like paths that do not exist, for which the sub-agent would wait.
std::string check_agentx_socket(const std::string& socket) {
  for (const char* transport : {"tcp:", "tcp6:", "udp:", "udp6:"}) {
    if (socket.starts_with(transport))
      return socket +
             " is not a Unix socket; set agentXSocket in snmpd.conf to a path and name the same path";
  }
  return {};
}

// Turns a duration into milliseconds, which it counts without a unit.
std::string take_row_age(std::string& word) {
  constexpr double kSecond = 1000;
  const std::optional<double> seconds = text::parse_duration(word, 1 / kSecond);
  const double milliseconds = std::ceil(seconds.value_or(-1) * kSecond);
  if (!(milliseconds >= 0 && milliseconds <= tables::kMostRowAgeMs))
    return text::quoted(word) + " is not a time from 0 to " + std::to_string(tables::kMostRowAgeMs / 1000) +
           "s, such as 500ms or 2s";
  word = std::to_string(static_cast<unsigned>(milliseconds));
  return {};
}

void describe(CLI::App* app, CommandLine* line) {
  app->add_option(
         "--agentx-socket", line->agentx_socket,
         "Unix socket of the SNMP master agent (default: $AGENTX_SOCKET, or " + line->agentx_socket + ")")
      ->envname("AGENTX_SOCKET")
      ->check(check_agentx_socket)
      ->option_text("PATH");
  app->add_option("--daemon-socket", line->daemon_socket,
                  "Unix socket of the daemon (default: in the run directory)")
      ->option_text("PATH");
  app->add_option("--run-dir", line->run_directory, "run directory of the daemon")->option_text("DIR");
  app->add_option(
         "--row-age", line->row_age_ms,
         "time for which a row that was read is served again: 500ms, 2s; milliseconds without a unit "
         "(default " +
             std::to_string(line->row_age_ms) + ")")
      ->transform(CLI::Validator(take_row_age, ""))
      ->option_text("TIME");
  app->add_flag("--verbose", line->verbose, "print a line for each request");
}

// The library names the option before a ':'.
std::string missing_value(const CLI::ArgumentMismatch& error) {
  const std::string_view what = error.what();
  return "a value is missing after " + text::quoted(std::string(what.substr(0, what.find(':'))));
}

int refuse(const std::string& reason) {
  const std::string message = text::continued(reason, "\"mpls_vpn_snmp --help\" lists the options");
  log_error("mpls_vpn_snmp", "%s", message.c_str());
  return kWrongArguments;
}

// With the closest option, if one is close.
std::string unknown_word(const CLI::App& app, const std::string& word) {
  if (!word.starts_with('-')) return "unexpected argument " + text::quoted(word);
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return text::continued("unknown option " + text::quoted(word),
                         text::hint(word.substr(0, word.find('=')), names, ""));
}

agent::SubAgentOptions to_options(const CommandLine& line) {
  agent::SubAgentOptions options;
  options.agentx_socket = line.agentx_socket;
  if (options.agentx_socket.starts_with(kUnixPrefix)) options.agentx_socket.erase(0, kUnixPrefix.size());
  options.daemon_socket = line.daemon_socket.empty() ? kvtree::Client::default_socket() : line.daemon_socket;
  options.row_age_ns = line.row_age_ms * kNanosecondsPerMillisecond;
  options.verbose = line.verbose;
  return options;
}

int parse_and_run(int argc, char** argv) {
  CLI::App app("SNMP sub-agent for MPLS-L3VPN-STD-MIB");
  CommandLine line;
  describe(&app, &line);
  app.set_version_flag("--version", MPLS_VERSION);
  app.allow_extras();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ArgumentMismatch& error) {
    return refuse(missing_value(error));
  } catch (const CLI::ParseError& error) {
    const bool is_answer = error.get_exit_code() == EXIT_SUCCESS;  // of --help and --version
    return is_answer ? app.exit(error) : refuse(error.what());
  }
  if (!app.remaining().empty()) return refuse(unknown_word(app, app.remaining().front()));
  if (!line.run_directory.empty() && setenv("MPLS_VPN_MIB_RUN_DIR", line.run_directory.c_str(), 1) != 0) {
    log_error("mpls_vpn_snmp", "setenv: %s", std::strerror(errno));
    return EXIT_FAILURE;
  }
  if (!line.verbose) log_limit(kLogLines, kLogInterval);
  return agent::run_as_service(to_options(line));
}

}  // namespace

int main(int argc, char** argv) {
  // A closed standard error is an error of the write, not the end of the process.
  signal(SIGPIPE, SIG_IGN);
  try {
    return parse_and_run(argc, argv);
  } catch (const std::exception& failure) {
    log_error("mpls_vpn_snmp", "%s", failure.what());
    return EXIT_FAILURE;
  }
}

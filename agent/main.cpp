// mpls_vpn_snmp: serves MPLS-L3VPN-STD-MIB (RFC 4382) to SNMP managers, as a sub-agent of the host's master
// agent, from the daemon's data.
//
// Ends with status 0 on SIGTERM or SIGINT, after closing the session with the master agent; with 1 when it
// cannot start, with 2 for wrong arguments. SIGHUP connects again.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include "agent/rows/row_cache.h"
#include "agent/service/run.h"
#include "agent/sub_agent.h"
#include "platform/core/base/log.h"
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

void describe(CLI::App* app, CommandLine* line) {
  app->add_option("--agentx-socket", line->agentx_socket, "Unix socket of the SNMP master agent")
      ->envname("AGENTX_SOCKET")
      ->check(check_agentx_socket)
      ->capture_default_str();
  app->add_option("--daemon-socket", line->daemon_socket,
                  "Unix socket of the daemon (default: in the run directory)");
  app->add_option("--run-dir", line->run_directory, "run directory of the daemon");
  app->add_option("--row-age", line->row_age_ms, "milliseconds for which a row that was read is served again")
      ->check(CLI::Range(0U, tables::kMostRowAgeMs))
      ->capture_default_str();
  app->add_flag("--verbose", line->verbose, "print a line for each request");
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
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : kWrongArguments;
  }
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

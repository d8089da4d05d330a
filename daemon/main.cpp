// mpls_vpn_mib: starts the router and its services, then the daemon, which returns only when its start-up
// failed. Settings are files and environment variables (README.md), not arguments.
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "daemon/check.h"
#include "daemon/host.h"
#include "mpls/vpn/mib/src/mpls_vpn_mib_start.h"
#include "platform/core/base/log.h"
#include "platform/core/base/status.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/text/words.h"

namespace {

constexpr int kWrongArguments = 2;

constexpr char kUsage[] =
    "Usage: mpls_vpn_mib [--help | --version | --check]\n"
    "\n"
    "The daemon of MPLS-L3VPN-STD-MIB. Without an argument it starts and serves until it is ended.\n"
    "\n"
    "  --help     prints this text\n"
    "  --version  prints the version\n"
    "  --check    checks the settings and the router file, and changes nothing\n"
    "\n"
    "Settings: platform.yaml in the configuration directory.\n"
    "Environment: MPLS_VPN_MIB_CONFIG_DIR, MPLS_VPN_MIB_RUN_DIR, MPLS_VPN_MIB_STATE_DIR, "
    "MPLS_VPN_MIB_LIB_DIR;\n"
    "MPLS_VPN_MIB_ADMIN_GROUP, MPLS_VPN_MIB_AGENT_GROUP (who may change the configuration, who is the "
    "sub-agent);\n"
    "MPLS_VPN_MIB_DEBUG=errors prints errors that the log does not have.\n"
    "Signals: SIGTERM and SIGINT end it, SIGHUP reads the settings and the router file again and applies\n"
    "changed metrics; SIGUSR1 and SIGUSR2 have no effect.\n"
    "Exit status: 1 the start or the check failed, 2 wrong arguments, 78 (also of --check) the settings or\n"
    "the router file are invalid, or a later release has written the databases.\n";

int print(const char* text) {
  return std::fputs(text, stdout) == EOF || std::fflush(stdout) == EOF ? 1 : 0;
}

int refuse(const std::string& argument, const std::string& hint) {
  const std::string reason = text::continued("unexpected argument " + text::quoted(argument), hint);
  const std::string message = text::continued(reason, "\"mpls_vpn_mib --help\" lists the arguments");
  std::fprintf(stderr, "mpls_vpn_mib: %s\n", message.c_str());
  return kWrongArguments;
}

int answer_arguments(int argc, char** argv) {
  const std::string first = argv[1];
  const std::vector<std::string> known = {"--help", "--version", "--check"};
  const bool is_known = std::find(known.begin(), known.end(), first) != known.end();
  if (!is_known) return refuse(first, text::hint(first, known, ""));
  if (argc > 2) return refuse(argv[2], "");
  if (first == "--check") return daemon_host::check_settings();
  return print(first == "--help" ? kUsage : MPLS_VERSION "\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) return answer_arguments(argc, argv);
  // Writing to a closed connection fails with EPIPE instead of ending the process.
  signal(SIGPIPE, SIG_IGN);
  if (const int status = daemon_host::start_host()) return status;
  const int status = mpls_vpn_mib_main(argc, argv);
  if (chkpt_failure() == kStatusNewerVersion) return daemon_host::kNeedsOperator;
  log_error("mpls_vpn_mib",
            "the start failed; without a reason above, start it with MPLS_VPN_MIB_DEBUG=errors, which prints "
            "errors of all debug areas");
  return status;
}

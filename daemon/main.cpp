// mpls_vpn_mib: starts the router and its services, then the daemon, which returns only when its start-up
// failed. There are no options: settings are files and environment variables (README.md).
#include <signal.h>

#include "daemon/host.h"
#include "mpls/vpn/mib/src/mpls_vpn_mib_start.h"

int main(int argc, char** argv) {
  // Writing to a closed connection fails with EPIPE instead of ending the process.
  signal(SIGPIPE, SIG_IGN);
  if (const int status = daemon_host::start_host()) return status;
  return mpls_vpn_mib_main(argc, argv);
}

// mpls_vpn_mib: the router and its services first, then the daemon, which never returns but for a failed
// start-up. The daemon takes no options of its own: its settings are files and environment variables
// (README.md).
#include <signal.h>

#include "daemon/host.h"
#include "mpls/vpn/mib/src/mpls_vpn_mib_start.h"

int main(int argc, char** argv) {
  // A reader that goes away is an error of the write, not the end of the process.
  signal(SIGPIPE, SIG_IGN);
  if (const int status = daemon_host::start_host()) return status;
  return mpls_vpn_mib_main(argc, argv);
}

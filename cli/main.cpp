// mplsvpn: the command line of mpls_vpn_mib.
#include <signal.h>

#include <iostream>

#include "cli/command_line.h"

int main(int argc, char** argv) {
  // In "mplsvpn show interfaces | head" the end of head ends us without a word, also under a parent that
  // ignores the signal. Writes to sockets do not raise it.
  signal(SIGPIPE, SIG_DFL);
  std::ios::sync_with_stdio(false);
  return cli::run(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}

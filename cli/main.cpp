// mplsvpn: the command line of mpls_vpn_mib.
#include <signal.h>

#include <iostream>

#include "cli/command_line.h"
#include "cli/output/pager.h"

int main(int argc, char** argv) {
  // In "mplsvpn show interfaces | head" the end of head ends us without a word, also under a parent that
  // ignores the signal. Writes to sockets do not raise it.
  signal(SIGPIPE, SIG_DFL);
  std::ios::sync_with_stdio(false);
  cli::Pager pager;
  const std::vector<std::string> words(argv + 1, argv + argc);
  return cli::run(words, std::cout, std::cerr, cli::terminal_of_output(&pager));
}

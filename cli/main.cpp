// mplsvpn: the command line of mpls_vpn_mib.
#include <iostream>

#include "cli/command_line.h"

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  return cli::run(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}

// What the user asks of "mplsvpn explain".
#pragma once

#include <string>

namespace cli {

struct ExplainRequest {
  std::string vrf{};
  std::string prefix{};  // or an address; empty: the VRF itself
  std::string suite_shell = "/usr/bin/vtysh";
  unsigned suite_patience = 10'000;  // ms, for an answer of the shell
};

}  // namespace cli
